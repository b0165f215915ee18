#include "MarluneCLI/OutputFormatter.h"

#include "MarluneCLIProtocol/CLIArgs.h"
#include "MarluneCLIProtocol/CLIErrorCode.h"
#include "MarluneCLIProtocol/ClipRecords.h"
#include "MarluneCLIProtocol/CommonRecords.h"
#include "MarluneCLIProtocol/LibraryRecords.h"
#include "MarluneCLIProtocol/Paging.h"
#include "MarluneCLIProtocol/SnippetRecords.h"
#include "MarluneCLIProtocol/SystemRecords.h"

#include <algorithm>
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

std::string cell(std::string_view text) {
    std::string flat;
    std::size_t width = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const bool lead = (static_cast<unsigned char>(c) & 0xC0) != 0x80;
        if (lead && ++width > maxCellWidth) {
            // Drop the last character kept and end with an ellipsis.
            while (!flat.empty() && (static_cast<unsigned char>(flat.back()) & 0xC0) == 0x80) {
                flat.pop_back();
            }
            if (!flat.empty()) {
                flat.pop_back();
            }
            return flat + "…";
        }
        flat += (c == '\n' || c == '\r' || c == '\t') ? ' ' : c;
    }
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
        // --- cli2 renderers end
        // --- data renderers begin
        // --- data renderers end
        // --- board renderers begin
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
    const auto& raw = std::get<std::string>(text);
    // The depth-limited reader vets the text first; the ordered one keeps the key order.
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
