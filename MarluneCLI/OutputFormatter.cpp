#include "MarluneCLI/OutputFormatter.h"

#include "MarluneCLIProtocol/BoardRecords.h"
#include "MarluneCLIProtocol/CLIArgs.h"
#include "MarluneCLIProtocol/CLIDateFormat.h"
#include "MarluneCLIProtocol/CLIErrorCode.h"
#include "MarluneCLIProtocol/ClipRecords.h"
#include "MarluneCLIProtocol/CommonRecords.h"
#include "MarluneCLIProtocol/DataRecords.h"
#include "MarluneCLIProtocol/LibraryRecords.h"
#include "MarluneCLIProtocol/Paging.h"
#include "MarluneCLIProtocol/SnippetRecords.h"
#include "MarluneCLIProtocol/SystemRecords.h"

#include <algorithm>
#include <ctime>
#include <functional>
#include <map>
#include <utility>
#include <vector>

namespace marlune {

namespace {

// Longer cells are cut so that one long title does not push every other column off screen.
constexpr std::size_t maxCellWidth = 48;
constexpr std::size_t idPrefixLength = 8;

// Columns line up by characters, not bytes; wide glyphs are not measured.
std::size_t displayWidth(std::string_view text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    }));
}

// Appends `text` flattened to one line, cut to the cell width with an ellipsis.
void appendCell(std::string& out, std::string_view text) {
    const std::size_t start = out.size();
    std::size_t width = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const bool lead = (static_cast<unsigned char>(c) & 0xC0) != 0x80;
        if (lead && ++width > maxCellWidth) {
            // Drop the last character kept and end with an ellipsis.
            while (out.size() > start && (static_cast<unsigned char>(out.back()) & 0xC0) == 0x80) {
                out.pop_back();
            }
            if (out.size() > start) {
                out.pop_back();
            }
            out += "…";
            return;
        }
        out += (c == '\n' || c == '\r' || c == '\t') ? ' ' : c;
    }
}

std::string cell(std::string_view text) {
    std::string flat;
    appendCell(flat, text);
    return flat;
}

std::string table(const std::vector<std::string>& headers,
                  const std::vector<std::vector<std::string>>& rows) {
    std::vector<std::size_t> widths(headers.size());
    for (std::size_t column = 0; column < headers.size(); ++column) {
        widths[column] = displayWidth(headers[column]);
    }
    std::vector<std::vector<std::string>> cells;
    for (const auto& row : rows) {
        auto& line = cells.emplace_back();
        for (std::size_t column = 0; column < headers.size(); ++column) {
            line.push_back(cell(column < row.size() ? row[column] : ""));
            widths[column] = std::max(widths[column], displayWidth(line.back()));
        }
    }
    std::string out;
    const auto emit = [&](const std::vector<std::string>& line) {
        std::string text;
        for (std::size_t column = 0; column < line.size(); ++column) {
            text += line[column];
            if (column + 1 < line.size()) {
                text += std::string(widths[column] - displayWidth(line[column]) + 2, ' ');
            }
        }
        while (!text.empty() && text.back() == ' ') {
            text.pop_back();
        }
        out += text + "\n";
    };
    emit(headers);
    for (const auto& line : cells) {
        emit(line);
    }
    return out;
}

using Fields = std::vector<std::pair<std::string, std::string>>;

// "key: value" lines with the values aligned; absent values are left out by the callers.
std::string record(const Fields& fields) {
    std::size_t width = 0;
    for (const auto& [key, value] : fields) {
        width = std::max(width, displayWidth(key));
    }
    std::string out;
    for (const auto& [key, value] : fields) {
        out += key + ":" + std::string(width - displayWidth(key) + 1, ' ') + value + "\n";
    }
    return out;
}

std::string yesNo(bool value) {
    return value ? "yes" : "no";
}

std::string idPrefix(const std::string& id) {
    return id.substr(0, idPrefixLength);
}

std::string valueText(const CLIJSONValue& value) {
    if (const auto* text = std::get_if<std::string>(&value.value)) {
        return *text;
    }
    return value.toJSON().dump();
}

template <class Item> std::string pageFooter(const Page<Item>& page, const std::string& plural) {
    if (page.items.empty()) {
        return page.page.total > 0
                   ? "No " + plural + " at offset " + std::to_string(page.page.offset) + " of " +
                         std::to_string(page.page.total) + ".\n"
                   : "No " + plural + ".\n";
    }
    if (!page.page.nextOffset) {
        return {};
    }
    const auto first = page.page.offset + 1;
    const auto last = page.page.offset + static_cast<std::int64_t>(page.items.size());
    return "Showing " + std::to_string(first) + "-" + std::to_string(last) + " of " +
           std::to_string(page.page.total) + "; more with --offset " +
           std::to_string(*page.page.nextOffset) + ".\n";
}

std::string joinedNames(const std::vector<TagRefDTO>& tags) {
    std::string text;
    for (const auto& tag : tags) {
        text += (text.empty() ? "" : ", ") + tag.name;
    }
    return text;
}

std::string joined(const std::vector<std::string>& words, std::string_view separator) {
    std::string text;
    for (const auto& word : words) {
        text += (text.empty() ? "" : std::string(separator)) + word;
    }
    return text;
}

std::string snippetPage(const Page<SnippetDTO>& page) {
    std::vector<std::vector<std::string>> rows;
    for (const auto& s : page.items) {
        rows.push_back({idPrefix(s.id), s.keyword, s.title, s.group ? s.group->name : "",
                        joinedNames(s.tags), std::to_string(s.usageCount),
                        s.isFavorite ? "*" : ""});
    }
    std::string out;
    if (!rows.empty()) {
        out = table({"ID", "KEYWORD", "TITLE", "GROUP", "TAGS", "USES", "FAV"}, rows);
    }
    return out + pageFooter(page, "snippets");
}

std::string clipPage(const Page<ClipDTO>& page) {
    std::vector<std::vector<std::string>> rows;
    for (const auto& c : page.items) {
        rows.push_back({idPrefix(c.id), c.primaryKind, c.previewText,
                        c.sourceApp && c.sourceApp->bundleID ? *c.sourceApp->bundleID : "",
                        std::to_string(c.recopyCount), c.isPinned ? "*" : ""});
    }
    std::string out;
    if (!rows.empty()) {
        out = table({"ID", "KIND", "PREVIEW", "FROM", "COPIES", "PIN"}, rows);
    }
    return out + pageFooter(page, "clips");
}

std::string clipRecord(const ClipDTO& c) {
    Fields fields{{"id", c.id}, {"kind", c.primaryKind}};
    if (c.sourceApp && (c.sourceApp->name || c.sourceApp->bundleID)) {
        fields.emplace_back("from", c.sourceApp->name.value_or(c.sourceApp->bundleID.value_or("")));
    }
    fields.emplace_back("created", c.createdAt);
    fields.emplace_back("copied again", std::to_string(c.recopyCount));
    fields.emplace_back("pinned", yesNo(c.isPinned));
    std::string flavours;
    for (const auto& r : c.representations) {
        flavours += (flavours.empty() ? "" : ", ") + r.utType +
                    (r.byteSize ? " (" + std::to_string(*r.byteSize) + " bytes)" : "");
    }
    fields.emplace_back("flavours", flavours);
    std::string out = record(fields) + "\n" + c.bestText.value_or(c.previewText);
    if (!out.ends_with('\n')) {
        out += '\n';
    }
    return out;
}

std::string snippetRecord(const SnippetDTO& s) {
    Fields fields{{"id", s.id}, {"title", s.title}, {"keyword", s.keyword}};
    if (s.keywordTrigger) {
        fields.emplace_back("trigger", *s.keywordTrigger);
    }
    fields.emplace_back("type", s.contentType);
    if (s.group) {
        fields.emplace_back("group", s.group->name);
    }
    if (!s.tags.empty()) {
        fields.emplace_back("tags", joinedNames(s.tags));
    }
    fields.emplace_back("favorite", yesNo(s.isFavorite));
    fields.emplace_back("fill-ins", std::to_string(s.fillInCount));
    fields.emplace_back("uses", std::to_string(s.usageCount));
    if (s.lastUsedAt) {
        fields.emplace_back("last used", *s.lastUsedAt);
    }
    fields.emplace_back("created", s.createdAt);
    fields.emplace_back("updated", s.updatedAt);
    std::string out = record(fields) + "\n" + s.content;
    if (!out.ends_with('\n')) {
        out += '\n';
    }
    return out;
}

std::string groupPage(const Page<GroupDTO>& page) {
    std::vector<std::vector<std::string>> rows;
    for (const auto& g : page.items) {
        rows.push_back({idPrefix(g.id), g.name, g.parent ? g.parent->name : "",
                        std::to_string(g.snippetCount)});
    }
    std::string out;
    if (!rows.empty()) {
        out = table({"ID", "NAME", "PARENT", "SNIPPETS"}, rows);
    }
    return out + pageFooter(page, "groups");
}

std::string groupRecord(const GroupDTO& g) {
    Fields fields{{"id", g.id}, {"name", g.name}, {"icon", g.iconSymbol}};
    if (g.colorRole) {
        fields.emplace_back("color", *g.colorRole);
    }
    if (g.parent) {
        fields.emplace_back("parent", g.parent->name);
    }
    fields.emplace_back("sort index", std::to_string(g.sortIndex));
    fields.emplace_back("snippets", std::to_string(g.snippetCount));
    fields.emplace_back("created", g.createdAt);
    return record(fields);
}

std::string tagPage(const Page<TagDTO>& page) {
    std::vector<std::vector<std::string>> rows;
    for (const auto& t : page.items) {
        rows.push_back({idPrefix(t.id), t.name, t.colorRole.value_or(""),
                        std::to_string(t.snippetCount), std::to_string(t.clipCount)});
    }
    std::string out;
    if (!rows.empty()) {
        out = table({"ID", "NAME", "COLOR", "SNIPPETS", "CLIPS"}, rows);
    }
    return out + pageFooter(page, "tags");
}

std::string tagRecord(const TagDTO& t) {
    Fields fields{{"id", t.id}, {"name", t.name}};
    if (t.colorRole) {
        fields.emplace_back("color", *t.colorRole);
    }
    fields.emplace_back("snippets", std::to_string(t.snippetCount));
    fields.emplace_back("clips", std::to_string(t.clipCount));
    fields.emplace_back("created", t.createdAt);
    return record(fields);
}

std::string profileList(const std::vector<ProfileVarDTO>& vars) {
    if (vars.empty()) {
        return "No profile variables.\n";
    }
    std::vector<std::vector<std::string>> rows;
    for (const auto& v : vars) {
        rows.push_back({v.key, v.value});
    }
    return table({"KEY", "VALUE"}, rows);
}

std::string configList(const std::vector<ConfigEntryDTO>& entries) {
    if (entries.empty()) {
        return "No settings.\n";
    }
    std::vector<std::vector<std::string>> rows;
    for (const auto& e : entries) {
        rows.push_back({e.key, valueText(e.value), e.type, e.requiresRelaunch ? "relaunch" : ""});
    }
    return table({"KEY", "VALUE", "TYPE", "APPLIES"}, rows);
}

std::string configEntry(const ConfigEntryDTO& e) {
    return record({{"key", e.key},
                   {"value", valueText(e.value)},
                   {"type", e.type},
                   {"requires relaunch", yesNo(e.requiresRelaunch)}});
}

std::string configSet(const ConfigSetResultDTO& r) {
    std::string out = record({{"key", r.key},
                              {"value", valueText(r.value)},
                              {"previous", valueText(r.previous)},
                              {"type", r.type}});
    if (r.requiresRelaunch) {
        out += "Quit and reopen Marlune for this to take effect.\n";
    }
    return out;
}

std::string deleted(const DeleteResultDTO& r, std::string_view noun) {
    std::string kind(noun);
    if (kind == "profile") {
        kind = "profile variable";
    }
    std::string out = std::string(r.dryRun ? "Would delete " : "Deleted ") +
                      std::to_string(r.deletedCount) + " " + kind +
                      (r.deletedCount == 1 ? "" : "s") + (r.affected.empty() ? "." : ":") + "\n";
    for (const auto& item : r.affected) {
        out += "  " + item + "\n";
    }
    return out;
}

std::string pingRecord(const PingResult& p) {
    return record({{"version", p.version},
                   {"pid", std::to_string(p.pid)},
                   {"protocol", std::to_string(p.protocolVersion)},
                   {"api", p.apiVersion},
                   {"menu bar only", yesNo(p.menuBarOnly)}});
}

ToolOutput expansion(const ExpandResultDTO& r, bool terminal) {
    ToolOutput output;
    // With no action taken (--list-fills), the fields are the answer.
    const bool listing = !r.actions.stdOut && !r.actions.copied && !r.actions.pasted;
    if (listing && !r.fills.empty()) {
        std::vector<std::vector<std::string>> rows;
        for (const auto& f : r.fills) {
            rows.push_back({f.name, f.kind, yesNo(f.filled), f.value.value_or(""),
                            f.defaultValue.value_or(""),
                            f.options ? joined(*f.options, ", ") : ""});
        }
        output.out = table({"NAME", "KIND", "FILLED", "VALUE", "DEFAULT", "OPTIONS"}, rows);
    } else if (listing && !r.text) {
        output.out = "This snippet has no fill-in fields.\n";
    }
    if (r.actions.stdOut && r.text) {
        output.out = *r.text;
        if (terminal && !output.out.empty() && !output.out.ends_with('\n')) {
            output.out += '\n';
        }
    }
    if (r.actions.copied) {
        output.err += "Copied to the clipboard.\n";
    }
    if (r.actions.pasted) {
        const auto& target = r.actions.pasteTarget;
        const auto app = target ? (target->app ? target->app : target->bundleID) : std::nullopt;
        output.err += app ? "Pasted into " + *app + ".\n" : "Pasted.\n";
    }
    if (!r.unresolvedFills.empty() && !listing) {
        output.err += "marlune: left unfilled: " + joined(r.unresolvedFills, ", ") +
                      ". Answer them with --fill name=value.\n";
    }
    return output;
}

// The human-readable rendering of one command's result record.
using Renderer = std::function<std::variant<ToolOutput, CLIErrorPayload>(const CLIResponse&, bool)>;

template <class Result> Renderer render(std::function<std::string(const Result&)> text) {
    return [text](const CLIResponse& response, bool) -> std::variant<ToolOutput, CLIErrorPayload> {
        auto decoded = decodeResult<Result>(response);
        if (auto* error = std::get_if<CLIErrorPayload>(&decoded)) {
            return std::move(*error);
        }
        return ToolOutput{text(std::get<Result>(decoded)), {}, 0};
    };
}

Renderer deletion(std::string noun) {
    return render<DeleteResultDTO>([noun](const DeleteResultDTO& r) { return deleted(r, noun); });
}

// --- cli2 rendering begin
std::string pinboardPage(const Page<PinboardDTO>& page) {
    std::vector<std::vector<std::string>> rows;
    for (const auto& p : page.items) {
        rows.push_back(
            {idPrefix(p.id), p.name, p.colorRole.value_or(""), std::to_string(p.clipCount)});
    }
    std::string out;
    if (!rows.empty()) {
        out = table({"ID", "NAME", "COLOR", "CLIPS"}, rows);
    }
    return out + pageFooter(page, "pinboards");
}

std::string pinboardRecord(const PinboardDTO& p) {
    Fields fields{{"id", p.id}, {"name", p.name}, {"icon", p.iconSymbol}};
    if (p.colorRole) {
        fields.emplace_back("color", *p.colorRole);
    }
    fields.emplace_back("sort index", std::to_string(p.sortIndex));
    fields.emplace_back("clips", std::to_string(p.clipCount));
    fields.emplace_back("created", p.createdAt);
    return record(fields);
}

std::string trashPage(const Page<TrashItemDTO>& page) {
    if (page.items.empty() && page.page.total == 0) {
        return "The Trash is empty.\n";
    }
    std::vector<std::vector<std::string>> rows;
    for (const auto& t : page.items) {
        rows.push_back({idPrefix(t.id), t.kind, t.label, t.deletedAt,
                        std::to_string(t.daysLeft) + (t.daysLeft == 1 ? " day" : " days")});
    }
    std::string out;
    if (!rows.empty()) {
        out = table({"ID", "KIND", "LABEL", "DELETED", "LEFT"}, rows);
    }
    return out + pageFooter(page, "items in the Trash");
}

std::string rulePage(const Page<CaptureRuleDTO>& page) {
    if (page.items.empty()) {
        return "No capture rules: copies from every application are kept.\n";
    }
    std::vector<std::vector<std::string>> rows;
    for (const auto& r : page.items) {
        rows.push_back(
            {idPrefix(r.id), r.bundleID, r.appName.value_or(""), r.isEnabled ? "on" : "off"});
    }
    return table({"ID", "APP", "NAME", "RULE"}, rows);
}

std::string ruleRecord(const CaptureRuleDTO& r) {
    Fields fields{{"id", r.id}, {"app", r.bundleID}};
    if (r.appName) {
        fields.emplace_back("name", *r.appName);
    }
    fields.emplace_back("enabled", yesNo(r.isEnabled));
    fields.emplace_back("created", r.createdAt);
    return record(fields);
}

const std::string stackEmptyText =
    "The Paste Stack is empty.\nQueue items with `marlune stack push <ref…>`.\n";

std::string stackItems(const std::vector<StackItemDTO>& items) {
    std::vector<std::vector<std::string>> rows;
    for (const auto& i : items) {
        rows.push_back({std::to_string(i.position), i.kind, idPrefix(i.id), i.preview});
    }
    return table({"#", "KIND", "ID", "PREVIEW"}, rows);
}

std::string stackList(const StackListResultDTO& r) {
    if (r.items.empty()) {
        return stackEmptyText;
    }
    return stackItems(r.items) + std::to_string(r.count) + " of " + std::to_string(r.capacity) +
           " places used.\n";
}

std::string stackPushed(const StackPushResultDTO& r) {
    std::string out = r.pushed.empty() ? std::string() : stackItems(r.pushed);
    out += "Added " + std::to_string(r.pushed.size()) + " to the Paste Stack (" +
           std::to_string(r.count) + " of " + std::to_string(r.capacity) + ").\n";
    return out;
}

std::string stackPopped(const StackPopResultDTO& r) {
    if (!r.item) {
        return stackEmptyText;
    }
    return stackItems({*r.item}) + std::to_string(r.remaining) + " left.\n";
}

std::string pasteTargetText(const std::optional<PasteTargetDTO>& target) {
    const auto app = target ? (target->app ? target->app : target->bundleID) : std::nullopt;
    return app ? " into " + *app : "";
}

std::string stackPasted(const StackPasteResultDTO& r) {
    if (r.copiedFallback) {
        return "Copied the Paste Stack to the clipboard instead of pasting it.\n";
    }
    return "Pasted " + std::to_string(r.pastedCount) + (r.pastedCount == 1 ? " item" : " items") +
           pasteTargetText(r.pasteTarget) + ".\n";
}

ToolOutput clipAction(const ClipActionResultDTO& r, bool terminal) {
    ToolOutput output;
    if (r.pasted) {
        output.err = "Pasted" + pasteTargetText(r.pasteTarget) + ".\n";
    } else if (r.copied) {
        output.err = "Copied to the clipboard (" + std::to_string(r.bytes) + " bytes).\n";
    } else if (r.text) {
        // Without a clipboard the text is the answer, as with `snippet expand`.
        output.out = *r.text;
        if (terminal && !output.out.empty() && !output.out.ends_with('\n')) {
            output.out += '\n';
        }
    }
    return output;
}

std::string clipsPasted(const ClipPasteStackResultDTO& r) {
    if (r.copiedFallback) {
        return "Copied " + std::to_string(r.clipIds.size()) +
               " clips to the clipboard instead of pasting them.\n";
    }
    return "Pasted " + std::to_string(r.pastedCount) + (r.pastedCount == 1 ? " clip" : " clips") +
           pasteTargetText(r.pasteTarget) + ".\n";
}

std::string statsRecord(const StatsDTO& s) {
    Fields fields{{"expansions this week", std::to_string(s.expansionsThisWeek)}};
    if (s.keystrokesSavedThisWeek) {
        fields.emplace_back("keystrokes saved this week",
                            std::to_string(*s.keystrokesSavedThisWeek));
    }
    if (s.minutesSavedThisWeek) {
        fields.emplace_back("minutes saved this week", std::to_string(*s.minutesSavedThisWeek));
    }
    fields.emplace_back("expansions in all", std::to_string(s.totalExpansions));
    fields.emplace_back("keystrokes saved in all", std::to_string(s.totalKeystrokesSaved));
    return record(fields) + "(Minutes at 40 words, or 200 characters, a minute.)\n";
}

std::string syncStatusRecord(const SyncStatusDTO& s) {
    Fields fields{{"state", s.state},
                  {"needs attention", yesNo(s.needsAttention)},
                  {"enabled this launch", yesNo(s.enabledThisLaunch)},
                  {"relaunch required", yesNo(s.relaunchRequired)}};
    if (s.lastImportAt) {
        fields.emplace_back("last import", CLIDateFormat::format(*s.lastImportAt));
    }
    if (s.lastExportAt) {
        fields.emplace_back("last export", CLIDateFormat::format(*s.lastExportAt));
    }
    return record(fields);
}

std::string syncDoctorRecord(const SyncDoctorReportDTO& r) {
    Fields fields{{"generated", CLIDateFormat::format(r.generatedAt)},
                  {"mirror", r.mirror.value_or("none")},
                  {"container", r.containerID},
                  {"account", r.accountStatus},
                  {"zone exists", yesNo(r.zoneExists)}};
    std::string out = record(fields);
    if (!r.entities.empty()) {
        std::vector<std::vector<std::string>> rows;
        for (const auto& e : r.entities) {
            rows.push_back({e.entity, std::to_string(e.localCount), std::to_string(e.serverCount),
                            std::to_string(e.onlyLocal), std::to_string(e.onlyServer)});
        }
        out += "\n" + table({"ENTITY", "LOCAL", "SERVER", "ONLY LOCAL", "ONLY SERVER"}, rows);
    }
    if (!r.notes.empty()) {
        out += "\n";
        for (const auto& note : r.notes) {
            out += "- " + note + "\n";
        }
    }
    return out;
}

// "The restored record": a snippet or a clip, told apart by the snippet's keyword field.
std::variant<ToolOutput, CLIErrorPayload> restored(const CLIResponse& response, bool) {
    auto text = response.result();
    if (auto* error = std::get_if<CLIErrorPayload>(&text)) {
        return std::move(*error);
    }
    const auto json = parseWireJSON(std::get<std::string_view>(text));
    if (json && json->is_object() && json->contains("keyword")) {
        auto snippet = decodeResult<SnippetDTO>(response);
        if (auto* error = std::get_if<CLIErrorPayload>(&snippet)) {
            return std::move(*error);
        }
        return ToolOutput{
            "Restored snippet \"" + std::get<SnippetDTO>(snippet).title + "\".\n", {}, 0};
    }
    auto clip = decodeResult<ClipDTO>(response);
    if (auto* error = std::get_if<CLIErrorPayload>(&clip)) {
        return std::move(*error);
    }
    return ToolOutput{"Restored clip " + idPrefix(std::get<ClipDTO>(clip).id) + ".\n", {}, 0};
}
// --- cli2 rendering end

// --- data rendering begin
std::string plural(std::int64_t count, const std::string& noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

// The document as a file holds it: keys sorted, indented, slashes as they are.
std::string exportedDocument(const DataDocumentDTO& document) {
    return encodeWire<CLIJSONInput>(document).dump(2, ' ', false,
                                                   CLIJSONInput::error_handler_t::replace) +
           "\n";
}

std::string importSummary(const DataImportResultDTO& r) {
    const std::int64_t created = r.createdSnippets.value_or(0);
    const std::int64_t restored = r.restoredSnippets.value_or(0);
    const std::int64_t updated = std::max<std::int64_t>(r.snippets - created - restored, 0);
    std::string out = std::string(r.dryRun ? "Would import " : "Imported ") +
                      plural(r.snippets, "snippet") + ": " + std::to_string(created) + " new, " +
                      std::to_string(updated) + " updated, " + std::to_string(restored) +
                      " restored from the Trash.\n";
    if (r.trashedSnippets.value_or(0) > 0) {
        out += std::string(r.dryRun ? "Would move " : "Moved ") +
               plural(*r.trashedSnippets, "snippet") +
               " that the file doesn't have to the Trash.\n";
    }
    out += record({{"groups", std::to_string(r.groups)},
                   {"tags", std::to_string(r.tags)},
                   {"pinboards", std::to_string(r.pinboards)},
                   {"profile variables", std::to_string(r.profileVars)},
                   {"settings", std::to_string(r.settingsApplied)}});
    if (!r.appliedSettingKeys.empty()) {
        out += std::string(r.dryRun ? "Would apply" : "Applied") +
               " the file's settings: " + joined(r.appliedSettingKeys, ", ") + ".\n";
    }
    if (!r.settingsRequiringRelaunch.empty()) {
        out += "Quit and reopen Marlune for " + joined(r.settingsRequiringRelaunch, ", ") +
               " to take effect.\n";
    }
    if (!r.unappliedSettingKeys.empty()) {
        out += "Left your settings as they are; the file also carries " +
               joined(r.unappliedSettingKeys, ", ") +
               ". Pass --apply-settings to apply them too.\n";
    }
    if (r.dryRun) {
        out += "Nothing was changed (dry run).\n";
    }
    return out;
}

// Clips left out go to the warnings, each with its reason.
std::string clipImportSummary(const DataImportResultDTO& r) {
    const std::string clips = plural(r.clips.value_or(0), "clip");
    return r.dryRun ? "Would import " + clips + "; nothing was changed (dry run).\n"
                    : "Imported " + clips + " into the history.\n";
}
// --- data rendering end

// --- board formatting begin
// Board dates in the reader's local time, to the minute.
std::string boardLocalTime(const std::string& wire) {
    const auto parsed = CLIDateFormat::parse(wire);
    if (!parsed) {
        return wire;
    }
    const std::time_t seconds =
        std::chrono::duration_cast<std::chrono::seconds>(parsed->time_since_epoch()).count();
    std::tm local{};
    localtime_r(&seconds, &local);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M", &local);
    return text;
}

// One item's line, appended to `out`: its done mark, id, text and what else applies.
void appendBoardItemLine(std::string& out, const BoardItemDTO& item) {
    out += item.isDone ? "  [x] " : "  [ ] ";
    out.append(item.id, 0, idPrefixLength);
    out += "  ";
    appendCell(out, item.text);
    bool marked = false;
    const auto mark = [&](std::string_view text) {
        out += marked ? ", " : "  (";
        marked = true;
        out += text;
    };
    if (item.pinned.value_or(false)) {
        mark("pinned");
    }
    if (item.dueAt) {
        mark("due ");
        out += boardLocalTime(*item.dueAt);
    }
    if (item.snoozedUntil) {
        mark("snoozed until ");
        out += boardLocalTime(*item.snoozedUntil);
    }
    if (!item.tags.empty()) {
        mark("#");
        out += joined(item.tags, " #");
    }
    if (item.note) {
        mark("note");
    }
    out += marked ? ")\n" : "\n";
}

// Items grouped under their section's name, in the order the application sent them, added
// one at a time.
class BoardItemListText {
public:
    void add(const BoardItemDTO& item) {
        if (first_ || item.sectionID != section_) {
            if (!first_) {
                out_ += '\n';
            }
            out_ += item.sectionName.empty() ? "History" : item.sectionName;
            out_ += '\n';
            section_ = item.sectionID;
            first_ = false;
        }
        appendBoardItemLine(out_, item);
    }
    std::string text() && { return first_ ? std::string("Nothing here.\n") : std::move(out_); }

private:
    std::string out_;
    std::string section_;
    bool first_ = true;
};

std::string boardItemList(const std::vector<BoardItemDTO>& items) {
    BoardItemListText list;
    for (const auto& item : items) {
        list.add(item);
    }
    return std::move(list).text();
}

// A listing is formatted as it is read, without holding all its items.
std::variant<ToolOutput, CLIErrorPayload> boardListing(const CLIResponse& response, bool) {
    BoardItemListText list;
    if (auto error = decodeResultEach<BoardItemDTO>(
            response, [&](const BoardItemDTO& item) { list.add(item); })) {
        return std::move(*error);
    }
    return ToolOutput{std::move(list).text(), {}, 0};
}

std::string boardSectionList(const std::vector<BoardSectionDTO>& sections) {
    if (sections.empty()) {
        return "The Board has no sections.\n";
    }
    std::vector<std::vector<std::string>> rows;
    for (const auto& s : sections) {
        rows.push_back({s.isActive ? "*" : "", idPrefix(s.id), s.name,
                        std::to_string(s.itemCount - s.doneCount), std::to_string(s.doneCount)});
    }
    return table({"", "ID", "SECTION", "OPEN", "DONE"}, rows);
}

std::string boardItemRecord(const BoardItemDTO& item) {
    Fields fields{{"id", item.id},
                  {"section", item.sectionName},
                  {"kind", item.kind},
                  {"done", item.isDone
                               ? "yes (" + boardLocalTime(item.completedAt.value_or("")) + ")"
                               : "no"}};
    if (item.pinned.value_or(false)) {
        fields.emplace_back("pinned", "yes");
    }
    if (item.dueAt) {
        fields.emplace_back("due", boardLocalTime(*item.dueAt));
    }
    if (item.snoozedUntil) {
        fields.emplace_back("snoozed until", boardLocalTime(*item.snoozedUntil));
    }
    if (item.sourceApp) {
        fields.emplace_back("from", *item.sourceApp);
    }
    if (item.sourceURL) {
        fields.emplace_back("address", *item.sourceURL);
    }
    if (!item.tags.empty()) {
        fields.emplace_back("tags", joined(item.tags, ", "));
    }
    if (item.note) {
        fields.emplace_back("note", *item.note);
    }
    fields.emplace_back("created", boardLocalTime(item.createdAt));
    std::string out;
    if (item.bumped) {
        out = *item.bumped ? "Already on " + item.sectionName + "; moved to the top.\n"
                           : "Added to " + item.sectionName + ".\n";
    }
    out += record(fields) + "\n" + item.text;
    if (!out.ends_with('\n')) {
        out += '\n';
    }
    return out;
}

std::string boardMutation(const BoardMutationResultDTO& r) {
    static const std::map<std::string, std::string> verbs = {
        {"check", "Checked"},
        {"uncheck", "Reopened"},
        {"remove", "Took off the Board"},
        {"file", "Filed"},
        {"pin", "Pinned"},
        {"unpin", "Unpinned"},
        {"snooze", "Snoozed"},
        {"wake", "Woke"},
        {"due", "Set the due date of"},
        {"clearDue", "Cleared the due date of"},
        {"tag", "Tagged"},
        {"clearCompleted", "Cleared"}};
    if (r.action == "capture") {
        return "Capturing the selection; Marlune shows what it added.\n";
    }
    const auto verb = verbs.find(r.action);
    std::string out = (verb != verbs.end() ? verb->second : r.action) + " " +
                      std::to_string(r.count) + (r.count == 1 ? " item" : " items") + ".\n";
    for (const auto& id : r.ids) {
        out += "  " + idPrefix(id) + "\n";
    }
    return out;
}

std::string boardSearch(const std::vector<BoardSearchHitDTO>& hits) {
    if (hits.empty()) {
        return "No matches.\n";
    }
    std::vector<BoardItemDTO> items;
    for (const auto& hit : hits) {
        items.push_back(hit.item);
    }
    return boardItemList(items);
}

std::string boardExport(const BoardExportResultDTO& r) {
    std::string out;
    for (const auto& file : r.files) {
        out += "Wrote " + file + "\n";
    }
    if (r.attachments > 0) {
        out += "Copied " + std::to_string(r.attachments) +
               (r.attachments == 1 ? " attachment.\n" : " attachments.\n");
    }
    return out;
}

std::string boardUse(const BoardSectionDTO& s) {
    return "Now using " + s.name + " (" + std::to_string(s.itemCount - s.doneCount) + " open, " +
           std::to_string(s.doneCount) + " done).\n";
}
// --- board formatting end

const std::map<std::string_view, Renderer>& renderers() {
    static const std::map<std::string_view, Renderer> table = [] {
        std::map<std::string_view, Renderer> r;
        r["ping"] = render<PingResult>(pingRecord);
        r["snippet.list"] = render<Page<SnippetDTO>>(snippetPage);
        r["snippet.search"] = render<Page<SnippetDTO>>(snippetPage);
        for (auto name : {"snippet.get", "snippet.create", "snippet.update", "snippet.duplicate",
                          "snippet.favorite", "snippet.move"}) {
            r[name] = render<SnippetDTO>(snippetRecord);
        }
        r["snippet.delete"] = deletion("snippet");
        r["clip.list"] = render<Page<ClipDTO>>(clipPage);
        r["clip.search"] = render<Page<ClipDTO>>(clipPage);
        r["clip.get"] = render<ClipDTO>(clipRecord);
        r["snippet.expand"] = [](const CLIResponse& response,
                                 bool terminal) -> std::variant<ToolOutput, CLIErrorPayload> {
            auto decoded = decodeResult<ExpandResultDTO>(response);
            if (auto* error = std::get_if<CLIErrorPayload>(&decoded)) {
                return std::move(*error);
            }
            return expansion(std::get<ExpandResultDTO>(decoded), terminal);
        };
        r["group.list"] = render<Page<GroupDTO>>(groupPage);
        for (auto name : {"group.get", "group.create", "group.update"}) {
            r[name] = render<GroupDTO>(groupRecord);
        }
        r["group.delete"] = deletion("group");
        r["tag.list"] = render<Page<TagDTO>>(tagPage);
        for (auto name : {"tag.get", "tag.create", "tag.update"}) {
            r[name] = render<TagDTO>(tagRecord);
        }
        r["tag.delete"] = deletion("tag");
        r["profile.list"] = render<std::vector<ProfileVarDTO>>(profileList);
        for (auto name : {"profile.get", "profile.set"}) {
            r[name] = render<ProfileVarDTO>([](const ProfileVarDTO& v) {
                return record({{"key", v.key}, {"value", v.value}});
            });
        }
        r["profile.unset"] = deletion("profile");
        r["config.list"] = render<std::vector<ConfigEntryDTO>>(configList);
        r["config.get"] = render<ConfigEntryDTO>(configEntry);
        r["config.set"] = render<ConfigSetResultDTO>(configSet);
        r["config.unset"] = render<ConfigSetResultDTO>(configSet);
        // --- cli2 renderers begin
        for (auto name : {"clip.pin", "clip.unpin"}) {
            r[name] = render<ClipDTO>(clipRecord);
        }
        for (auto name : {"clip.copy", "clip.paste"}) {
            r[name] = [](const CLIResponse& response,
                         bool terminal) -> std::variant<ToolOutput, CLIErrorPayload> {
                auto decoded = decodeResult<ClipActionResultDTO>(response);
                if (auto* error = std::get_if<CLIErrorPayload>(&decoded)) {
                    return std::move(*error);
                }
                return clipAction(std::get<ClipActionResultDTO>(decoded), terminal);
            };
        }
        r["clip.pasteStack"] = render<ClipPasteStackResultDTO>(clipsPasted);
        r["clip.delete"] = deletion("clip");
        r["clip.purge"] = deletion("clip");
        r["clip.promote"] = render<SnippetDTO>(snippetRecord);
        r["pinboard.list"] = render<Page<PinboardDTO>>(pinboardPage);
        for (auto name : {"pinboard.get", "pinboard.create", "pinboard.update", "pinboard.addClip",
                          "pinboard.removeClip"}) {
            r[name] = render<PinboardDTO>(pinboardRecord);
        }
        r["pinboard.delete"] = deletion("pinboard");
        r["trash.list"] = render<Page<TrashItemDTO>>(trashPage);
        r["trash.restore"] = restored;
        r["trash.empty"] = deletion("item");
        r["rule.list"] = render<Page<CaptureRuleDTO>>(rulePage);
        r["rule.add"] = render<CaptureRuleDTO>(ruleRecord);
        r["rule.remove"] = deletion("capture rule");
        r["stack.push"] = render<StackPushResultDTO>(stackPushed);
        r["stack.list"] = render<StackListResultDTO>(stackList);
        r["stack.pop"] = render<StackPopResultDTO>(stackPopped);
        r["stack.paste"] = render<StackPasteResultDTO>(stackPasted);
        r["stack.clear"] = render<StackClearResultDTO>([](const StackClearResultDTO& c) {
            return "Cleared the Paste Stack (" + std::to_string(c.cleared) +
                   (c.cleared == 1 ? " item" : " items") + ").\n";
        });
        r["stats.show"] = render<StatsDTO>(statsRecord);
        r["sync.status"] = render<SyncStatusDTO>(syncStatusRecord);
        r["sync.doctor"] = render<SyncDoctorReportDTO>(syncDoctorRecord);
        r["app.quit"] = render<AppActionResultDTO>(
            [](const AppActionResultDTO&) { return std::string("Marlune is quitting.\n"); });
        // --- cli2 renderers end
        // --- data renderers begin
        r["data.export"] = render<DataDocumentDTO>(exportedDocument);
        r["data.import"] = render<DataImportResultDTO>(importSummary);
        r["clip.import"] = render<DataImportResultDTO>(clipImportSummary);
        // --- data renderers end
        // --- board renderers begin
        r["board.sections"] = render<std::vector<BoardSectionDTO>>(boardSectionList);
        r["board.use"] = render<BoardSectionDTO>(boardUse);
        r["board.list"] = boardListing;
        for (auto name : {"board.add", "board.note", "board.move", "board.merge"}) {
            r[name] = render<BoardItemDTO>(boardItemRecord);
        }
        for (auto name : {"board.capture", "board.check", "board.uncheck", "board.remove",
                          "board.file", "board.pin", "board.unpin", "board.snooze", "board.wake",
                          "board.due", "board.clearCompleted", "board.tag"}) {
            r[name] = render<BoardMutationResultDTO>(boardMutation);
        }
        for (auto name : {"board.next", "board.copy"}) {
            r[name] = [](const CLIResponse& response,
                         bool terminal) -> std::variant<ToolOutput, CLIErrorPayload> {
                auto decoded = decodeResult<BoardCopyResultDTO>(response);
                if (auto* error = std::get_if<CLIErrorPayload>(&decoded)) {
                    return std::move(*error);
                }
                ToolOutput output{std::get<BoardCopyResultDTO>(decoded).text, {}, 0};
                if (terminal && !output.out.empty() && !output.out.ends_with('\n')) {
                    output.out += '\n';
                }
                return output;
            };
        }
        r["board.search"] = render<std::vector<BoardSearchHitDTO>>(boardSearch);
        r["board.export"] = render<BoardExportResultDTO>(boardExport);
        // --- board renderers end
        return r;
    }();
    return table;
}

// The result as the application sent it, keys in its order, indented.
std::variant<ToolOutput, CLIErrorPayload> prettyJSON(const CLIResponse& response) {
    auto text = response.result();
    if (auto* error = std::get_if<CLIErrorPayload>(&text)) {
        return std::move(*error);
    }
    const auto raw = std::get<std::string_view>(text);
    if (auto laidOut = cliJSONText::indented(raw, cliMaxJSONDepth, 2)) {
        return ToolOutput{std::move(*laidOut) + "\n", {}, 0};
    }
    // Not plain enough for the direct path (or not JSON at all): through the document. The
    // depth-limited reader vets the text first; the ordered one keeps the key order.
    if (!parseWireJSON(raw)) {
        return CLIErrorPayload{std::string(CLIErrorCode::runtime),
                               "The application's result is not JSON.", std::nullopt};
    }
    const auto ordered = CLIJSON::parse(raw, nullptr, false);
    return ToolOutput{ordered.dump(2, ' ', false, CLIJSON::error_handler_t::replace) + "\n", {}, 0};
}

} // namespace

ToolOutput OutputFormatter::error(const CLIErrorPayload& error) {
    ToolOutput output;
    output.err = "marlune: " + error.message + "\n";
    if (error.hint && !error.hint->empty()) {
        output.err += "hint: " + *error.hint + "\n";
    }
    output.exitStatus = CLIErrorCode::exitStatus(error.code);
    return output;
}

ToolOutput OutputFormatter::format(std::string_view command, const CLIResponse& response,
                                   Options options) {
    std::string warnings;
    for (const auto& warning : response.warnings) {
        warnings += "marlune: warning: " + warning.message + "\n";
    }
    std::variant<ToolOutput, CLIErrorPayload> rendered;
    const auto found = renderers().find(command);
    if (options.json || found == renderers().end()) {
        rendered = prettyJSON(response);
    } else {
        rendered = found->second(response, options.terminal);
    }
    ToolOutput output = std::holds_alternative<CLIErrorPayload>(rendered)
                            ? error(std::get<CLIErrorPayload>(rendered))
                            : std::get<ToolOutput>(std::move(rendered));
    output.err = warnings + output.err;
    return output;
}

} // namespace marlune
