#include "LibraryImport/RaycastImporter.h"

#include "LibraryImport/DocumentBuilder.h"
#include "LibraryImport/StableID.h"
#include "MarluneCLIProtocol/CLIRecordCodec.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <set>
#include <vector>

namespace marlune {

namespace {

constexpr ImportFormat kFormat = ImportFormat::raycast;
const std::string kDefaultGroup = "Raycast Snippets";
// A snippet that includes one that includes another… stops here.
constexpr int kMaxDepth = 8;

struct Entry {
    std::string name;
    std::string text;
    std::string keyword;
};

// One "{…}" mark: its name, its attributes and the modifiers after "|".
struct Mark {
    std::string name;
    std::vector<std::pair<std::string, std::string>> attributes;
    std::vector<std::string> modifiers;

    std::optional<std::string> attribute(std::string_view key) const {
        for (const auto& [k, v] : attributes) {
            if (k == key) {
                return v;
            }
        }
        return std::nullopt;
    }
};

bool isNameChar(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '-' || c == '_';
}

void skipSpaces(std::string_view s, std::size_t& i) {
    while (i < s.size() && s[i] == ' ') {
        ++i;
    }
}

// Reads the inside of a mark; nothing when it isn't one Raycast could have written.
std::optional<Mark> parseMark(std::string_view inside) {
    Mark mark;
    std::size_t i = 0;
    skipSpaces(inside, i);
    while (i < inside.size() && isNameChar(inside[i])) {
        mark.name += inside[i++];
    }
    if (mark.name.empty()) {
        return std::nullopt;
    }
    while (true) {
        skipSpaces(inside, i);
        if (i >= inside.size()) {
            return mark;
        }
        if (inside[i] == '|') {
            ++i;
            skipSpaces(inside, i);
            std::string modifier;
            while (i < inside.size() && isNameChar(inside[i])) {
                modifier += inside[i++];
            }
            if (modifier.empty()) {
                return std::nullopt;
            }
            mark.modifiers.push_back(modifier);
            continue;
        }
        if (!mark.modifiers.empty()) {
            return std::nullopt; // attributes come before modifiers
        }
        std::string key;
        while (i < inside.size() && isNameChar(inside[i])) {
            key += inside[i++];
        }
        if (key.empty() || i >= inside.size() || inside[i] != '=' || i + 1 >= inside.size() ||
            inside[i + 1] != '"') {
            return std::nullopt;
        }
        i += 2;
        std::string value;
        while (i < inside.size() && inside[i] != '"') {
            if (inside[i] == '\\' && i + 1 < inside.size()) {
                ++i;
            }
            value += inside[i++];
        }
        if (i >= inside.size()) {
            return std::nullopt;
        }
        ++i;
        mark.attributes.emplace_back(std::move(key), std::move(value));
    }
}

std::vector<std::string> splitOptions(std::string_view text) {
    std::vector<std::string> out;
    std::size_t start = 0;
    while (start <= text.size()) {
        auto end = text.find(',', start);
        if (end == std::string_view::npos) {
            end = text.size();
        }
        auto piece = text.substr(start, end - start);
        while (!piece.empty() && piece.front() == ' ') {
            piece.remove_prefix(1);
        }
        while (!piece.empty() && piece.back() == ' ') {
            piece.remove_suffix(1);
        }
        if (!piece.empty()) {
            out.emplace_back(piece);
        }
        start = end + 1;
    }
    return out;
}

class Converter {
public:
    Converter(DocumentBuilder& builder, const std::vector<Entry>& entries)
        : builder_(builder), entries_(entries) {}

    std::string body(const Entry& entry, std::int64_t& fillInCount) {
        fields_.clear();
        unnamed_ = 0;
        name_ = "“" + (entry.name.empty() ? entry.keyword : entry.name) + "”";
        std::set<std::string> chain = {entry.name};
        std::string out = convert(entry.text, chain, 0);
        fillInCount = static_cast<std::int64_t>(fields_.size());
        return out;
    }

private:
    void note(const std::string& detail) { builder_.note(name_ + detail); }

    std::string convert(std::string_view text, std::set<std::string>& chain, int depth) {
        if (TemplateText::opensPlaceholder(text)) {
            note(": the text contains “{@”, which Marlune reads as the start of a placeholder.");
        }
        const auto opens = [](char c) {
            return std::isalpha(static_cast<unsigned char>(c)) != 0 || c == '=';
        };
        return replaceBraceMarks(text, opens, [&](std::string_view inside, std::string_view typed) {
            if (inside.front() == '=') {
                note(": " + std::string(typed) +
                     " (a calculation) has no Marlune equivalent — left as typed.");
                return std::string(typed);
            }
            auto mark = parseMark(inside);
            if (!mark) {
                note(": " + std::string(typed.substr(0, typed.size() - 1)) +
                     "} couldn't be read — left as typed.");
                return std::string(typed);
            }
            return placeholder(*mark, typed, chain, depth);
        });
    }

    std::string transform(const Mark& mark) {
        std::string transform;
        for (const auto& modifier : mark.modifiers) {
            if ((modifier == "uppercase" || modifier == "lowercase") && transform.empty()) {
                transform = modifier;
            } else {
                note(": the “" + modifier + "” setting isn't supported and was dropped.");
            }
        }
        return transform;
    }

    void dropAttributesExcept(const Mark& mark, std::set<std::string_view> kept) {
        for (const auto& [key, value] : mark.attributes) {
            if (!kept.contains(key)) {
                note(": the " + key + "=\"" + value +
                     "\" setting isn't supported and was dropped.");
            }
        }
    }

    std::string safe(std::string_view value, bool names) {
        bool swapped = false;
        auto out = names ? TemplateText::safeName(value, swapped)
                         : TemplateText::safeValue(value, swapped);
        if (swapped) {
            note(": a value contained | , = or @} — swapped for look-alikes Marlune can store.");
        }
        return out;
    }

    std::string dateMark(const Mark& mark) {
        if (!mark.modifiers.empty()) {
            transform(mark);
        }
        for (const auto& [key, value] : mark.attributes) {
            if (key == "offset") {
                note(": the offset=\"" + value +
                     "\" setting was dropped — the date shows today, in your language.");
            } else if (key != "format") {
                note(": the " + key + "=\"" + value +
                     "\" setting isn't supported and was dropped.");
            }
        }
        if (const auto format = mark.attribute("format")) {
            return TemplateText::placeholder(mark.name == "time" ? "time" : "date",
                                             {{"format", safe(*format, false)}});
        }
        if (mark.name == "time") {
            return "{@time@}";
        }
        if (mark.name == "datetime") {
            return "{@date@} {@time@}";
        }
        if (mark.name == "day") {
            return "{@date|format=EEEE@}";
        }
        return "{@date@}";
    }

    std::string argument(const Mark& mark) {
        for (const auto& modifier : mark.modifiers) {
            note(": the “" + modifier + "” setting can't apply to a fill-in — dropped.");
        }
        dropAttributesExcept(mark, {"name", "default", "options"});
        const auto rawName = mark.attribute("name");
        const std::string name = rawName && !rawName->empty()
                                     ? safe(*rawName, true)
                                     : "Argument " + std::to_string(++unnamed_);
        fields_.insert(name);
        const auto defaultValue = mark.attribute("default");
        if (const auto options = mark.attribute("options")) {
            std::vector<std::string> list;
            for (const auto& option : splitOptions(*options)) {
                list.push_back(safe(option, true));
            }
            if (!list.empty()) {
                if (defaultValue && !defaultValue->empty()) {
                    const auto safeDefault = safe(*defaultValue, true);
                    const auto found = std::find(list.begin(), list.end(), safeDefault);
                    if (found == list.end()) {
                        note(": the default “" + *defaultValue +
                             "” isn't one of the options — the first option is the default.");
                    } else {
                        std::rotate(list.begin(), found, found + 1);
                    }
                }
                std::string joined;
                for (const auto& option : list) {
                    joined += (joined.empty() ? "" : ",") + option;
                }
                return TemplateText::placeholder("select", {{"name", name}, {"options", joined}});
            }
        }
        std::vector<std::pair<std::string, std::string>> params = {{"name", name}};
        if (defaultValue && !defaultValue->empty()) {
            params.emplace_back("default", safe(*defaultValue, false));
        }
        return TemplateText::placeholder("text", params);
    }

    std::string snippet(const Mark& mark, std::string_view typed, std::set<std::string>& chain,
                        int depth) {
        const auto target = mark.attribute("name");
        if (!target || target->empty()) {
            note(": " + std::string(typed) + " doesn't name a snippet — left as typed.");
            return std::string(typed);
        }
        const Entry* found = nullptr;
        for (const auto& entry : entries_) {
            if (entry.name == *target) {
                found = &entry;
                break;
            }
        }
        if (found == nullptr || chain.contains(*target) || depth >= kMaxDepth) {
            note(": " + std::string(typed) +
                 " refers to a snippet that isn't in this file — left as typed.");
            return std::string(typed);
        }
        note(": the snippet “" + *target + "” was copied in — later edits to it won't carry over.");
        chain.insert(*target);
        auto out = convert(found->text, chain, depth + 1);
        chain.erase(*target);
        return out;
    }

    std::string placeholder(const Mark& mark, std::string_view typed, std::set<std::string>& chain,
                            int depth) {
        const std::string& name = mark.name;
        if (name == "clipboard" || name == "selection") {
            dropAttributesExcept(mark, {});
            const auto how = transform(mark);
            if (how.empty()) {
                return "{@" + name + "@}";
            }
            return TemplateText::placeholder(name, {{"transform", how}});
        }
        if (name == "cursor") {
            dropAttributesExcept(mark, {});
            return "{@cursor@}";
        }
        if (name == "date" || name == "time" || name == "datetime" || name == "day") {
            return dateMark(mark);
        }
        if (name == "argument") {
            return argument(mark);
        }
        if (name == "snippet") {
            return snippet(mark, typed, chain, depth);
        }
        note(": " + std::string(typed) + " has no Marlune equivalent — left as typed.");
        return std::string(typed);
    }

    DocumentBuilder& builder_;
    const std::vector<Entry>& entries_;
    std::string name_;
    std::set<std::string> fields_;
    int unnamed_ = 0;
};

std::string stringAt(const CLIJSONInput& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end()) {
        return {};
    }
    if (found->is_string()) {
        return found->get<std::string>();
    }
    if (found->is_number()) {
        return found->dump();
    }
    return {};
}

} // namespace

ImportOutcome RaycastImporter::convert(std::string_view text, const ImportOptions& options) {
    if (!TemplateText::isUTF8(text)) {
        return ImportError::notText(kFormat);
    }
    const auto json = parseWireJSON(text);
    if (!json) {
        return ImportError::invalidFile(kFormat, "the JSON can't be read.");
    }
    // Some versions wrap the list in an object under "snippets".
    const CLIJSONInput* list = &*json;
    if (json->is_object() && json->contains("snippets")) {
        list = &(*json)["snippets"];
    }
    if (!list->is_array()) {
        return ImportError::invalidFile(kFormat, "expected a list of snippets.");
    }
    DocumentBuilder builder(kFormat, options);
    std::vector<Entry> entries;
    for (const auto& item : *list) {
        if (!item.is_object()) {
            builder.skip("An entry without snippet text was skipped.");
            continue;
        }
        Entry entry{stringAt(item, "name"), stringAt(item, "text"), stringAt(item, "keyword")};
        if (entry.text.empty()) {
            builder.skip("An entry without snippet text was skipped.");
            continue;
        }
        entries.push_back(std::move(entry));
    }
    Converter converter(builder, entries);
    const auto group = builder.group(kDefaultGroup, kDefaultGroup);
    for (const auto& entry : entries) {
        SourceSnippet source;
        source.sourceID = entry.keyword.empty() ? "name:" + entry.name : entry.keyword;
        source.title = entry.name;
        source.keyword = entry.keyword;
        source.content = converter.body(entry, source.fillInCount);
        source.group = group;
        const std::string name = DocumentBuilder::name(source);
        if (!builder.add(StableID::raycast, std::move(source))) {
            builder.skip(name + " appears twice in the file — only the first one is imported.");
        }
    }
    return builder.finish();
}

} // namespace marlune
