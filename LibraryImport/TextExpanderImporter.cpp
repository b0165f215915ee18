#include "LibraryImport/TextExpanderImporter.h"

#include "LibraryImport/CSVReader.h"
#include "LibraryImport/PropertyList.h"
#include "LibraryImport/StableID.h"
#include "LibraryImport/ZipArchive.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <set>
#include <utility>

namespace marlune {

namespace {

constexpr ImportFormat kFormat = ImportFormat::textexpander;
const std::string kDefaultGroup = "TextExpander Snippets";
const std::string kSuggestedGroup = "Suggested Snippets";

bool isLetter(char c) {
    return std::isalpha(static_cast<unsigned char>(c)) != 0;
}

// Date and time macros and the pattern letters that write the same thing.
std::string_view datePattern(std::string_view macro) {
    static constexpr std::pair<std::string_view, std::string_view> table[] = {
        {"Y", "yyyy"}, {"y", "yy"}, {"m", "MM"}, {"1m", "M"},   {"B", "MMMM"}, {"b", "MMM"},
        {"d", "dd"},   {"e", "d"},  {"1d", "d"}, {"A", "EEEE"}, {"a", "EEE"},  {"H", "HH"},
        {"1H", "H"},   {"I", "hh"}, {"1I", "h"}, {"M", "mm"},   {"S", "ss"},   {"p", "a"},
        {"Z", "zzz"},  {"z", "xx"}, {"j", "D"},
    };
    for (const auto& [name, pattern] : table) {
        if (name == macro) {
            return pattern;
        }
    }
    return {};
}

bool isDateSeparator(char c) {
    return c == ' ' || c == ',' || c == '.' || c == '-' || c == '/' || c == ':';
}

std::vector<std::string> splitColons(std::string_view text) {
    std::vector<std::string> parts;
    std::size_t start = 0;
    while (true) {
        const auto colon = text.find(':', start);
        parts.emplace_back(text.substr(start, colon - start));
        if (colon == std::string_view::npos) {
            return parts;
        }
        start = colon + 1;
    }
}

class BodyConverter {
public:
    BodyConverter(std::string_view text, const std::string& name, DocumentBuilder& builder)
        : text_(text), name_(name), builder_(builder) {}

    std::string run(std::int64_t& fillInCount) {
        if (TemplateText::opensPlaceholder(text_)) {
            note(": the text contains “{@”, which Marlune reads as the start of a placeholder.");
        }
        while (i_ < text_.size()) {
            if (text_[i_] != '%') {
                literal(text_[i_++]);
                continue;
            }
            macro();
        }
        flushDate();
        fillInCount = static_cast<std::int64_t>(fieldNames_.size());
        return out_;
    }

private:
    void note(const std::string& detail) { builder_.note(name_ + detail); }

    void literal(char c) {
        if (!pattern_.empty() && isDateSeparator(c)) {
            separators_ += c;
            return;
        }
        flushDate();
        out_ += c;
    }

    void literalText(std::string_view text) {
        flushDate();
        out_ += text;
    }

    void emit(const std::string& placeholder) {
        flushDate();
        out_ += placeholder;
    }

    void date(std::string_view pattern) {
        if (!pattern_.empty()) {
            pattern_ += separators_;
        }
        separators_.clear();
        pattern_ += pattern;
    }

    void flushDate() {
        if (pattern_.empty()) {
            return;
        }
        out_ += TemplateText::placeholder("date", {{"format", pattern_}});
        pattern_.clear();
        out_ += separators_;
        separators_.clear();
    }

    void macro() {
        const std::size_t start = i_;
        if (i_ + 1 >= text_.size()) {
            literal(text_[i_++]);
            return;
        }
        const char next = text_[i_ + 1];
        switch (next) {
        case '%':
            literalText("%");
            i_ += 2;
            return;
        case '|':
            emit("{@cursor@}");
            i_ += 2;
            return;
        case '<':
        case '>':
        case '^':
        case 'v':
            note(": the %" + std::string(1, next) +
                 " cursor-key macro was dropped (Marlune types text, not keys).");
            i_ += 2;
            return;
        case '@':
            dateAdjustment();
            return;
        case '1':
            if (i_ + 2 < text_.size() && !datePattern(text_.substr(i_ + 1, 2)).empty()) {
                date(datePattern(text_.substr(i_ + 1, 2)));
                i_ += 3;
                return;
            }
            break;
        default:
            break;
        }
        if (!isLetter(next)) {
            literal(text_[i_++]);
            return;
        }
        std::size_t wordEnd = i_ + 1;
        while (wordEnd < text_.size() && isLetter(text_[wordEnd])) {
            ++wordEnd;
        }
        const std::string_view word = text_.substr(i_ + 1, wordEnd - i_ - 1);
        if (word == "clipboard") {
            emit("{@clipboard@}");
            i_ = wordEnd;
            return;
        }
        const bool delimited =
            wordEnd < text_.size() && (text_[wordEnd] == ':' || text_[wordEnd] == '%');
        const auto close = delimited ? text_.find('%', wordEnd) : std::string_view::npos;
        if (close != std::string_view::npos &&
            (word.starts_with("fill") || word == "key" || word == "snippet")) {
            const std::string_view body = text_.substr(i_ + 1, close - i_ - 1);
            const std::string_view typed = text_.substr(start, close + 1 - start);
            i_ = close + 1;
            named(word, body, typed);
            return;
        }
        if (const auto pattern = datePattern(word.substr(0, 1)); !pattern.empty()) {
            date(pattern);
            i_ += 2;
            return;
        }
        // Unknown: "%name%" or "%name:…%" as a whole, else just the letter after the mark.
        const std::size_t end = close != std::string_view::npos ? close + 1 : i_ + 2;
        const std::string_view typed = text_.substr(start, end - start);
        note(": the " + std::string(typed) + " macro isn't supported — left as typed.");
        literalText(typed);
        i_ = end;
    }

    // "%@+1D": a date shifted by a number of years, months, days, hours, minutes or seconds.
    void dateAdjustment() {
        std::size_t j = i_ + 2;
        if (j < text_.size() && (text_[j] == '+' || text_[j] == '-')) {
            ++j;
        }
        const std::size_t digits = j;
        while (j < text_.size() && std::isdigit(static_cast<unsigned char>(text_[j])) != 0) {
            ++j;
        }
        if (j == digits || j >= text_.size() ||
            std::string_view("YMDhms").find(text_[j]) == std::string_view::npos) {
            note(": the %@ macro isn't supported — left as typed.");
            literalText("%@");
            i_ += 2;
            return;
        }
        ++j;
        note(": the date adjustment " + std::string(text_.substr(i_, j - i_)) +
             " was dropped — the date shows today.");
        i_ = j;
    }

    std::string fieldName(const std::map<std::string, std::string>& params) {
        bool swapped = false;
        std::string name;
        if (const auto it = params.find("name"); it != params.end() && !it->second.empty()) {
            name = TemplateText::safeName(it->second, swapped);
        } else {
            name = "Field " + std::to_string(++unnamed_);
        }
        if (swapped) {
            swappedNote();
        }
        fieldNames_.insert(name);
        return name;
    }

    void swappedNote() {
        note(": a fill-in's name or value contained | , = or @} — swapped for look-alikes "
             "Marlune can store.");
    }

    void named(std::string_view word, std::string_view body, std::string_view typed) {
        const auto parts = splitColons(body);
        std::map<std::string, std::string> params;
        std::vector<std::string> bare;
        for (std::size_t k = 1; k < parts.size(); ++k) {
            const auto equals = parts[k].find('=');
            if (equals == std::string::npos) {
                bare.push_back(parts[k]);
            } else {
                params[parts[k].substr(0, equals)] = parts[k].substr(equals + 1);
            }
        }
        if (word == "key") {
            note(": the " + std::string(typed) + " key macro isn't supported — left as typed.");
            literalText(typed);
            return;
        }
        if (word == "snippet") {
            std::string keyword = parts.size() > 1 ? parts[1] : std::string();
            const std::string& prefix = builder_.options.keywordPrefix;
            if (!prefix.empty() && keyword.starts_with(prefix)) {
                keyword.erase(0, prefix.size());
            }
            if (keyword.empty()) {
                note(": the " + std::string(typed) + " macro isn't supported — left as typed.");
                literalText(typed);
                return;
            }
            bool swapped = false;
            emit(TemplateText::placeholder(
                "snippet", {{"keyword", TemplateText::safeValue(keyword, swapped)}}));
            return;
        }
        bool swapped = false;
        std::string defaultValue =
            params.contains("default") ? TemplateText::safeValue(params["default"], swapped) : "";
        if (word == "filltext" || word == "fillarea" || word == "fill") {
            if (word == "fill" && !params.contains("name") && !bare.empty()) {
                params["name"] = bare.front();
            }
            const std::string name = fieldName(params);
            std::vector<std::pair<std::string, std::string>> fields = {{"name", name}};
            if (!defaultValue.empty()) {
                fields.emplace_back("default", defaultValue);
            }
            emit(TemplateText::placeholder("text", fields));
            if (word == "fillarea") {
                note(": a multi-line fill-in (%fillarea%) became a single-line field.");
            }
        } else if (word == "fillpopup") {
            const std::string name = fieldName(params);
            std::vector<std::string> options;
            if (params.contains("default")) {
                options.push_back(TemplateText::safeName(params["default"], swapped));
            }
            for (const auto& value : bare) {
                auto option = TemplateText::safeName(value, swapped);
                if (std::find(options.begin(), options.end(), option) == options.end()) {
                    options.push_back(std::move(option));
                }
            }
            std::string joined;
            for (const auto& option : options) {
                joined += (joined.empty() ? "" : ",") + option;
            }
            if (options.empty()) {
                emit(TemplateText::placeholder("text", {{"name", name}}));
            } else {
                emit(TemplateText::placeholder("select", {{"name", name}, {"options", joined}}));
            }
        } else if (word == "fillpart") {
            note(": an optional section (%fillpart%) was imported as always-on text.");
        } else if (word == "fillpartend") {
            // The end of an optional section: its text stays, so the mark goes.
        } else {
            note(": the " + std::string(typed) + " macro isn't supported — left as typed.");
            literalText(typed);
        }
        if (swapped) {
            swappedNote();
        }
    }

    std::string_view text_;
    const std::string& name_;
    DocumentBuilder& builder_;
    std::size_t i_ = 0;
    std::string out_;
    std::string pattern_;
    std::string separators_;
    std::set<std::string> fieldNames_;
    int unnamed_ = 0;
};

bool isHeader(const CSVRow& row) {
    if (row.fields.size() < 2) {
        return false;
    }
    std::string first = row.fields[0];
    std::transform(first.begin(), first.end(), first.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return first == "abbreviation";
}

bool looksLikePropertyList(std::span<const std::uint8_t> bytes) {
    const std::string_view head(reinterpret_cast<const char*>(bytes.data()),
                                std::min<std::size_t>(bytes.size(), 64));
    return head.starts_with("bplist") || head.starts_with("<?xml") || head.starts_with("<plist");
}

ImportOutcome convertPropertyList(std::span<const std::uint8_t> bytes,
                                  const ImportOptions& options) {
    auto list = PropertyList::parse(bytes);
    if (!list || !PropertyList::isDictionary(list->root())) {
        return ImportError::invalidFile(kFormat, "the property list can't be read.");
    }
    const auto root = list->root();
    const auto snippetList = PropertyList::item(root, "snippetsTE2");
    if (snippetList == nullptr) {
        return ImportError::invalidFile(kFormat, "there's no snippet list (snippetsTE2) in it.");
    }
    const auto entries = PropertyList::array(snippetList);
    if (entries.empty()) {
        return ImportError::invalidFile(kFormat, "the property list has no snippets.");
    }

    DocumentBuilder builder(kFormat, options);
    // Which group each snippet belongs to, by the snippet's uuid.
    std::map<std::string, std::string> groupOf;
    std::map<std::string, std::string> groupNames;
    std::set<std::string> suggested;
    for (const auto group : PropertyList::array(PropertyList::item(root, "groupsTE2"))) {
        const auto name = PropertyList::string(group, "name").value_or(kDefaultGroup);
        const auto id = PropertyList::string(group, "uuidString").value_or(name);
        groupNames[id] = name;
        for (const auto member : PropertyList::array(PropertyList::item(group, "snippetUUIDs"))) {
            if (auto uuid = PropertyList::stringValue(member)) {
                if (name == kSuggestedGroup) {
                    suggested.insert(*uuid);
                } else {
                    groupOf.emplace(*uuid, id);
                }
            }
        }
    }
    if (!suggested.empty()) {
        builder.skipped += static_cast<std::int64_t>(suggested.size());
        builder.note("Skipped the Suggested Snippets group (" + std::to_string(suggested.size()) +
                     ") — TextExpander fills it with text it saw you type, which can include "
                     "passwords.");
    }

    for (const auto entry : entries) {
        if (!PropertyList::isDictionary(entry)) {
            continue;
        }
        SourceSnippet source;
        source.keyword = PropertyList::string(entry, "abbreviation").value_or("");
        source.title = PropertyList::string(entry, "label").value_or("");
        const auto uuid = PropertyList::string(entry, "uuidString");
        if (uuid && suggested.contains(*uuid)) {
            continue;
        }
        source.sourceID = uuid.value_or(source.keyword);
        const std::string name = DocumentBuilder::name(source);
        const auto type = PropertyList::integer(entry, "snippetType").value_or(0);
        if (type == 2 || type == 3 || type == 6) {
            const char* kind = type == 2   ? " is an AppleScript"
                               : type == 3 ? " is a shell script"
                                           : " is a JavaScript";
            builder.skip(name + kind + " snippet — skipped. Marlune never runs scripts.");
            continue;
        }
        if (type != 0 && type != 1) {
            builder.skip(name +
                         " is a kind of TextExpander snippet Marlune can't import — skipped.");
            continue;
        }
        const auto text = PropertyList::string(entry, "plainText");
        if (!text || text->empty()) {
            builder.skip(name + " has no plain text — skipped.");
            continue;
        }
        source.content =
            TextExpanderImporter::convertBody(*text, name, builder, source.fillInCount);
        const auto group = uuid ? groupOf.find(*uuid) : groupOf.end();
        if (group != groupOf.end()) {
            source.group = builder.group(group->second, groupNames[group->second]);
        } else {
            source.group = builder.group(kDefaultGroup, kDefaultGroup);
        }
        if (!builder.add(StableID::textexpander, std::move(source))) {
            builder.skip(name + " appears twice in the file — only the first one is imported.");
        }
    }
    return builder.finish();
}

} // namespace

std::string TextExpanderImporter::convertBody(std::string_view text, const std::string& name,
                                              DocumentBuilder& builder, std::int64_t& fillInCount) {
    return BodyConverter(text, name, builder).run(fillInCount);
}

ImportOutcome TextExpanderImporter::convertCSV(std::string_view text,
                                               const ImportOptions& options) {
    if (!TemplateText::isUTF8(text)) {
        return ImportError::notText(kFormat);
    }
    auto rows = CSVReader::read(text);
    if (auto* error = std::get_if<CSVError>(&rows)) {
        return ImportError::invalidFile(kFormat, error->reason());
    }
    DocumentBuilder builder(kFormat, options);
    const auto group = builder.group(kDefaultGroup, kDefaultGroup);
    bool first = true;
    for (const auto& row : std::get<std::vector<CSVRow>>(rows)) {
        if (std::exchange(first, false) && isHeader(row)) {
            continue;
        }
        SourceSnippet source;
        source.keyword = row.fields.empty() ? "" : row.fields[0];
        const std::string body = row.fields.size() > 1 ? row.fields[1] : "";
        source.title = row.fields.size() > 2 ? row.fields[2] : "";
        if (body.empty()) {
            if (!source.keyword.empty()) {
                builder.skip("A row with only “" + source.keyword +
                             "” and no snippet text was skipped.");
            }
            continue;
        }
        source.sourceID =
            source.keyword.empty() ? "label:" + source.title + "\n" + body : source.keyword;
        const std::string name = DocumentBuilder::name(source);
        source.content = convertBody(body, name, builder, source.fillInCount);
        source.group = group;
        if (!builder.add(StableID::textexpanderCSV, std::move(source))) {
            builder.skip(name + " appears twice in the file — only the first one is imported.");
        }
    }
    builder.groups.erase(std::remove_if(builder.groups.begin(), builder.groups.end(),
                                        [](const GroupDTO& g) { return g.snippetCount == 0; }),
                         builder.groups.end());
    return builder.finish();
}

ImportOutcome TextExpanderImporter::convertArchive(std::span<const std::uint8_t> bytes,
                                                   const ImportOptions& options) {
    if (looksLikePropertyList(bytes)) {
        return convertPropertyList(bytes, options);
    }
    auto opened = ZipArchive::open(bytes);
    if (auto* error = std::get_if<ZipError>(&opened)) {
        return ImportError::invalidFile(kFormat, error->reason);
    }
    const auto& archive = std::get<ZipArchive>(opened);
    // The settings list is the archive's property list; macOS adds resource forks beside it.
    const ZipEntry* chosen = nullptr;
    for (const auto& entry : archive.entries()) {
        if (entry.isDirectory() || entry.name.starts_with("__MACOSX/") ||
            entry.name.find("/._") != std::string::npos || entry.name.starts_with("._")) {
            continue;
        }
        const bool plist = entry.name.ends_with(".plist") || entry.name.ends_with(".xml") ||
                           entry.name.ends_with(".textexpander");
        if (plist || chosen == nullptr) {
            chosen = &entry;
            if (plist) {
                break;
            }
        }
    }
    if (chosen == nullptr) {
        return ImportError::invalidFile(kFormat, "the property list can't be read.");
    }
    auto read = archive.read(*chosen);
    if (auto* error = std::get_if<ZipError>(&read)) {
        return ImportError::invalidFile(kFormat, error->reason);
    }
    return convertPropertyList(std::get<std::vector<std::uint8_t>>(read), options);
}

} // namespace marlune
