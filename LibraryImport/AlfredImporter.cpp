#include "LibraryImport/AlfredImporter.h"

#include "LibraryImport/DocumentBuilder.h"
#include "LibraryImport/PropertyList.h"
#include "LibraryImport/StableID.h"
#include "LibraryImport/ZipArchive.h"
#include "MarluneCLIProtocol/CLIRecordCodec.h"

#include <algorithm>
#include <cctype>
#include <set>
#include <vector>

namespace marlune {

namespace {

constexpr ImportFormat kFormat = ImportFormat::alfred;
constexpr int kMaxDepth = 8;

std::string baseName(std::string_view path) {
    const auto slash = path.find_last_of('/');
    return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

std::string collectionName(const std::string& sourceName) {
    std::string name = baseName(sourceName);
    constexpr std::string_view extension = ".alfredsnippets";
    if (name.ends_with(extension)) {
        name.resize(name.size() - extension.size());
    }
    return name.empty() ? "Alfred Snippets" : name;
}

bool isDigits(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
        return std::isdigit(static_cast<unsigned char>(c)) != 0;
    });
}

// "{random:1..5}": two whole numbers.
std::optional<std::pair<std::string, std::string>> numberRange(std::string_view text) {
    const auto dots = text.find("..");
    if (dots == std::string_view::npos) {
        return std::nullopt;
    }
    auto low = text.substr(0, dots);
    auto high = text.substr(dots + 2);
    const auto number = [](std::string_view s) {
        return isDigits(s.starts_with('-') ? s.substr(1) : s);
    };
    if (!number(low) || !number(high)) {
        return std::nullopt;
    }
    return std::pair{std::string(low), std::string(high)};
}

class Converter {
public:
    Converter(DocumentBuilder& builder, const std::vector<AlfredImporter::Snippet>& snippets)
        : builder_(builder), snippets_(snippets) {}

    std::string body(const AlfredImporter::Snippet& snippet, const std::string& name) {
        name_ = name;
        std::set<std::string> chain = {snippet.keyword};
        return convert(snippet.text, chain, 0);
    }

private:
    void note(const std::string& detail) { builder_.note(name_ + detail); }

    std::string convert(std::string_view text, std::set<std::string>& chain, int depth) {
        if (TemplateText::opensPlaceholder(text)) {
            note(": the text contains “{@”, which Marlune reads as the start of a placeholder.");
        }
        return replaceBraceMarks(
            text, [](char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0; },
            [&](std::string_view inside, std::string_view typed) {
                return placeholder(inside, typed, chain, depth);
            });
    }

    std::string format(std::string_view pattern) {
        bool swapped = false;
        auto out = TemplateText::safeValue(pattern, swapped);
        if (swapped) {
            note(": the format contained | or @} — swapped for look-alikes Marlune can store.");
        }
        return out;
    }

    // "{date}", "{time:short}", "{datetime:long}", "{date:yyyy-MM-dd}", "{date +1d}".
    std::string dateMark(std::string_view name, std::string_view argument) {
        std::string_view math;
        // Date math follows the format after a space, or stands alone: "+1d", "-2h".
        const auto mathAt = argument.find_first_of("+-");
        if (mathAt != std::string_view::npos && (mathAt == 0 || argument[mathAt - 1] == ' ')) {
            math = argument.substr(mathAt);
            argument = argument.substr(0, mathAt);
            while (!argument.empty() && argument.back() == ' ') {
                argument.remove_suffix(1);
            }
        }
        if (!math.empty()) {
            note(": the date math (" + std::string(math) +
                 ") was dropped — it shows the current date and time.");
        }
        const auto mark = [&](std::string_view type) {
            if (argument.empty()) {
                return "{@" + std::string(type) + "@}";
            }
            return TemplateText::placeholder(type, {{"format", format(argument)}});
        };
        if (name == "datetime") {
            return mark("date") + " " + mark("time");
        }
        return mark(name);
    }

    std::string clipboard(std::string_view argument, std::string_view typed) {
        if (argument.empty()) {
            return "{@clipboard@}";
        }
        if (isDigits(argument)) {
            if (argument == "0") {
                return "{@clipboard@}";
            }
            note(": " + std::string(typed) +
                 " pastes an older clipboard item — Marlune only has the current one; left as "
                 "typed.");
            return std::string(typed);
        }
        if (argument == "uppercase" || argument == "lowercase") {
            return TemplateText::placeholder("clipboard", {{"transform", std::string(argument)}});
        }
        if (argument == "capitals") {
            return TemplateText::placeholder("clipboard", {{"transform", "title-case"}});
        }
        note(": the “" + std::string(argument) + "” modifier has no Marlune equivalent — dropped.");
        return "{@clipboard@}";
    }

    std::string snippet(std::string_view keyword, std::string_view typed,
                        std::set<std::string>& chain, int depth) {
        const std::string wanted(keyword);
        if (chain.contains(wanted)) {
            note(": " + std::string(typed) + " refers back to itself — left as typed.");
            return std::string(typed);
        }
        const auto found = std::find_if(snippets_.begin(), snippets_.end(),
                                        [&](const auto& s) { return s.keyword == wanted; });
        if (found == snippets_.end() || depth >= kMaxDepth) {
            note(": " + std::string(typed) +
                 " refers to a snippet that isn't in this collection — left as typed.");
            return std::string(typed);
        }
        note(": " + std::string(typed) + " was copied in — later edits to it won't carry over.");
        chain.insert(wanted);
        auto out = convert(found->text, chain, depth + 1);
        chain.erase(wanted);
        return out;
    }

    std::string placeholder(std::string_view inside, std::string_view typed,
                            std::set<std::string>& chain, int depth) {
        std::string_view name = inside;
        std::string_view argument;
        const auto split = inside.find_first_of(": ");
        if (split != std::string_view::npos) {
            name = inside.substr(0, split);
            argument = inside.substr(split + (inside[split] == ':' ? 1 : 0));
        }
        if (name == "clipboard") {
            return clipboard(argument, typed);
        }
        if (name == "cursor" && argument.empty()) {
            return "{@cursor@}";
        }
        if (name == "date" || name == "time" || name == "datetime") {
            return dateMark(name, argument);
        }
        if (name == "snippet" && !argument.empty()) {
            return snippet(argument, typed, chain, depth);
        }
        if (name == "random") {
            if (auto range = numberRange(argument)) {
                return TemplateText::placeholder("random",
                                                 {{"min", range->first}, {"max", range->second}});
            }
            note(": " + std::string(typed) +
                 " has no Marlune equivalent (only number ranges like {random:1..5} do) — left "
                 "as typed.");
            return std::string(typed);
        }
        note(": " + std::string(typed) + " has no Marlune equivalent — left as typed.");
        return std::string(typed);
    }

    DocumentBuilder& builder_;
    const std::vector<AlfredImporter::Snippet>& snippets_;
    std::string name_;
};

bool truthy(const CLIJSONInput& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end()) {
        return false;
    }
    if (found->is_boolean()) {
        return found->get<bool>();
    }
    if (found->is_string()) {
        return !found->get<std::string>().empty();
    }
    return found->is_number() && found->get<double>() != 0;
}

std::string text(const CLIJSONInput& object, const char* key) {
    const auto found = object.find(key);
    return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

} // namespace

ImportOutcome AlfredImporter::convert(std::span<const std::uint8_t> bytes,
                                      const ImportOptions& options) {
    auto opened = ZipArchive::open(bytes);
    if (auto* error = std::get_if<ZipError>(&opened)) {
        return ImportError::invalidFile(kFormat, error->reason);
    }
    const auto& archive = std::get<ZipArchive>(opened);
    DocumentBuilder builder(kFormat, options);

    Settings settings;
    for (const auto& entry : archive.entries()) {
        if (baseName(entry.name) != "info.plist" || entry.name.starts_with("__MACOSX/")) {
            continue;
        }
        auto read = archive.read(entry);
        if (auto* error = std::get_if<ZipError>(&read)) {
            return ImportError::invalidFile(kFormat, error->reason);
        }
        auto list = PropertyList::parse(std::get<std::vector<std::uint8_t>>(read));
        if (!list || !PropertyList::isDictionary(list->root())) {
            return ImportError::invalidFile(kFormat, "the property list can't be read.");
        }
        settings.keywordPrefix =
            PropertyList::string(list->root(), "snippetkeywordprefix").value_or("");
        settings.keywordSuffix =
            PropertyList::string(list->root(), "snippetkeywordsuffix").value_or("");
        settings.stripNonAlphanumeric =
            PropertyList::boolean(list->root(), "stripnonalphanumeric").value_or(false);
        break;
    }

    std::vector<Snippet> snippets;
    std::set<std::string> uids;
    for (const auto& entry : archive.entries()) {
        const std::string file = baseName(entry.name);
        if (entry.isDirectory() || !file.ends_with(".json") || file.starts_with("._") ||
            entry.name.starts_with("__MACOSX/")) {
            continue;
        }
        auto read = archive.read(entry);
        if (auto* error = std::get_if<ZipError>(&read)) {
            return ImportError::invalidFile(kFormat, error->reason);
        }
        const auto& raw = std::get<std::vector<std::uint8_t>>(read);
        const std::string_view content(reinterpret_cast<const char*>(raw.data()), raw.size());
        const auto json = TemplateText::isUTF8(content) ? parseWireJSON(content) : std::nullopt;
        const CLIJSONInput* object = nullptr;
        if (json && json->is_object() && json->contains("alfredsnippet") &&
            (*json)["alfredsnippet"].is_object()) {
            object = &(*json)["alfredsnippet"];
        }
        if (object == nullptr) {
            builder.skip("“" + file + "” isn't a readable snippet — skipped.");
            continue;
        }
        Snippet snippet;
        snippet.fileName = file;
        snippet.uid = text(*object, "uid");
        snippet.name = text(*object, "name");
        snippet.keyword = text(*object, "keyword");
        snippet.text = text(*object, "snippet");
        snippet.dontAutoExpand = truthy(*object, "dontautoexpand");
        snippet.hasRichText = truthy(*object, "richtext") || truthy(*object, "rtf");
        const std::string label =
            "“" +
            (snippet.name.empty() ? (snippet.keyword.empty() ? file : snippet.keyword)
                                  : snippet.name) +
            "”";
        if (snippet.text.empty()) {
            builder.skip(label + " has no snippet text — skipped.");
            continue;
        }
        const std::string uid = snippet.uid.empty() ? file : snippet.uid;
        if (!uids.insert(uid).second) {
            builder.skip(label + " appears twice in the file — only the first one is imported.");
            continue;
        }
        snippets.push_back(std::move(snippet));
    }

    const auto group =
        builder.group(collectionName(options.sourceName), collectionName(options.sourceName));
    Converter converter(builder, snippets);
    std::vector<std::string> manual;
    for (const auto& snippet : snippets) {
        SourceSnippet source;
        source.sourceID = snippet.uid.empty() ? snippet.fileName : snippet.uid;
        source.title = snippet.name;
        if (!snippet.keyword.empty()) {
            source.keyword = settings.keywordPrefix + snippet.keyword + settings.keywordSuffix;
        }
        const std::string name = DocumentBuilder::name(source);
        source.content = converter.body(snippet, name);
        source.group = group;
        if (snippet.hasRichText) {
            builder.note(name + ": formatting was dropped — imported as plain text.");
        }
        if (snippet.dontAutoExpand && !snippet.keyword.empty()) {
            manual.push_back(name);
        }
        builder.add(StableID::alfred, std::move(source), settings.keywordPrefix, "Alfred");
    }
    if (manual.size() == 1) {
        builder.note(manual.front() +
                     " was set not to expand automatically in Alfred — in Marlune, typing it "
                     "expands it.");
    } else if (manual.size() > 1) {
        std::string examples;
        for (std::size_t k = 0; k < manual.size() && k < 3; ++k) {
            examples += (k == 0 ? "" : ", ") + manual[k];
        }
        builder.note(std::to_string(manual.size()) +
                     " snippets were set not to expand automatically in Alfred — in Marlune, "
                     "typing their keyword expands them (for example " +
                     examples + ").");
    }
    return builder.finish();
}

} // namespace marlune
