#include "LibraryImport/DocumentBuilder.h"

#include "LibraryImport/StableID.h"
#include "MarluneCore/ContentLimits.h"

#include <algorithm>
#include <cctype>

namespace marlune {

std::string replaceBraceMarks(
    std::string_view text, const std::function<bool(char)>& opens,
    const std::function<std::string(std::string_view inside, std::string_view typed)>& mark) {
    std::string out;
    std::size_t i = 0;
    while (i < text.size()) {
        const auto open = text.find('{', i);
        if (open == std::string_view::npos) {
            out += text.substr(i);
            break;
        }
        out += text.substr(i, open - i);
        const auto close = text.find('}', open);
        if (close == std::string_view::npos || open + 1 >= text.size() || !opens(text[open + 1])) {
            out += '{';
            i = open + 1;
            continue;
        }
        i = close + 1;
        out += mark(text.substr(open + 1, close - open - 1), text.substr(open, close + 1 - open));
    }
    return out;
}

namespace {

// Look-alikes the template syntax leaves alone.
constexpr std::string_view kBar = "¦";
constexpr std::string_view kComma = "‚";
constexpr std::string_view kEquals = "꞊";
constexpr std::string_view kCloseBrace = "｝";

std::string swapMarks(std::string_view text, bool names, bool& swapped) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '|') {
            out += kBar;
            swapped = true;
        } else if (c == '@' && i + 1 < text.size() && text[i + 1] == '}') {
            out += '@';
            out += kCloseBrace;
            ++i;
            swapped = true;
        } else if (names && c == ',') {
            out += kComma;
            swapped = true;
        } else if (names && c == '=') {
            out += kEquals;
            swapped = true;
        } else {
            out += c;
        }
    }
    return out;
}

std::string firstLine(std::string_view text) {
    const auto end = text.find_first_of("\r\n");
    std::string line(text.substr(0, end));
    if (line.size() > 60) {
        line.resize(60);
        // Never end inside a UTF-8 sequence.
        while (!line.empty() && (static_cast<unsigned char>(line.back()) & 0xC0) == 0x80) {
            line.pop_back();
        }
        if (!line.empty() && (static_cast<unsigned char>(line.back()) & 0x80) != 0) {
            line.pop_back();
        }
        line += "…";
    }
    return line;
}

bool isAlphanumeric(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || (c & 0x80) != 0;
}

} // namespace

std::string
TemplateText::placeholder(std::string_view type,
                          const std::vector<std::pair<std::string, std::string>>& params) {
    std::string out = "{@" + std::string(type);
    for (const auto& [key, value] : params) {
        out += "|" + key + "=" + value;
    }
    return out + "@}";
}

std::string TemplateText::safeName(std::string_view text, bool& swapped) {
    return swapMarks(text, true, swapped);
}

std::string TemplateText::safeValue(std::string_view text, bool& swapped) {
    return swapMarks(text, false, swapped);
}

bool TemplateText::isUTF8(std::string_view text) {
    std::size_t i = 0;
    while (i < text.size()) {
        const auto c = static_cast<unsigned char>(text[i]);
        std::size_t length = 0;
        std::uint32_t point = 0;
        if (c < 0x80) {
            ++i;
            continue;
        }
        if ((c & 0xE0) == 0xC0) {
            length = 2;
            point = c & 0x1FU;
        } else if ((c & 0xF0) == 0xE0) {
            length = 3;
            point = c & 0x0FU;
        } else if ((c & 0xF8) == 0xF0) {
            length = 4;
            point = c & 0x07U;
        } else {
            return false;
        }
        if (text.size() - i < length) {
            return false;
        }
        for (std::size_t k = 1; k < length; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0) != 0x80) {
                return false;
            }
            point = (point << 6U) | (next & 0x3FU);
        }
        const bool overlong = (length == 2 && point < 0x80) || (length == 3 && point < 0x800) ||
                              (length == 4 && point < 0x10000);
        if (overlong || point > 0x10FFFF || (point >= 0xD800 && point <= 0xDFFF)) {
            return false;
        }
        i += length;
    }
    return true;
}

DocumentBuilder::DocumentBuilder(ImportFormat sourceFormat, ImportOptions importOptions)
    : format(sourceFormat), options(std::move(importOptions)) {}

std::string DocumentBuilder::name(const SourceSnippet& source) {
    if (!source.title.empty()) {
        return "“" + source.title + "”";
    }
    if (!source.keyword.empty()) {
        return "“" + source.keyword + "”";
    }
    return "A snippet";
}

GroupRefDTO DocumentBuilder::group(std::string_view sourceID, const std::string& name) {
    const std::string id = StableID::make(StableID::group, std::string(rawValue(format)) + "." +
                                                               std::string(sourceID));
    for (const auto& existing : groups) {
        if (existing.id == id) {
            return {existing.id, existing.name};
        }
    }
    GroupDTO dto;
    dto.id = id;
    dto.name = name;
    dto.iconSymbol = "folder";
    dto.sortIndex = static_cast<std::int64_t>(groups.size());
    dto.createdAt = CLIDateFormat::format(options.now);
    groups.push_back(dto);
    return {dto.id, dto.name};
}

std::string DocumentBuilder::keyword(const std::string& title, const std::string& raw,
                                     std::string_view sourcePrefix) {
    const std::string& mine = options.keywordPrefix;
    if (raw.empty()) {
        return raw;
    }
    if (!sourcePrefix.empty() && raw.starts_with(sourcePrefix) &&
        raw.size() > sourcePrefix.size()) {
        std::string stored = raw.substr(sourcePrefix.size());
        if (sourcePrefix != mine) {
            replacedPrefixes.emplace_back(std::string(sourcePrefix), mine + stored);
        }
        return stored;
    }
    if (!mine.empty() && raw.starts_with(mine) && raw.size() > mine.size()) {
        return raw.substr(mine.size());
    }
    if (!mine.empty()) {
        prefixMisses.push_back(raw);
    }
    if (TemplateText::opensPlaceholder(raw)) {
        note("“" + title + "”: the keyword " + raw +
             " contains “{@”, which Marlune reads as the start of a placeholder.");
    }
    return raw;
}

bool DocumentBuilder::add(std::string_view nameSpace, SourceSnippet source,
                          std::string_view sourcePrefix, std::string_view toolName) {
    if (!toolName.empty()) {
        toolName_ = std::string(toolName);
    }
    const std::string id = StableID::make(nameSpace, source.sourceID);
    if (!snippetIDs.insert(id).second) {
        return false;
    }
    if (const auto refusal = ContentLimits::refusal("snippet body", source.content.size(),
                                                    ContentLimits::snippetBodyBytes)) {
        skip(name(source) + " was skipped. " + *refusal);
        return true;
    }
    SnippetDTO dto;
    dto.id = id;
    dto.title = source.title.empty()
                    ? (source.keyword.empty() ? firstLine(source.content) : source.keyword)
                    : source.title;
    dto.keyword = keyword(dto.title, source.keyword, sourcePrefix);
    if (!dto.keyword.empty()) {
        dto.keywordTrigger = options.keywordPrefix + dto.keyword;
    }
    dto.content = std::move(source.content);
    dto.contentType = source.contentType;
    const std::string now = CLIDateFormat::format(options.now);
    dto.createdAt = source.createdAt.value_or(now);
    dto.updatedAt = source.updatedAt.value_or(now);
    dto.lastUsedAt = source.lastUsedAt;
    dto.usageCount = source.usageCount;
    dto.group = source.group;
    dto.fillInCount = source.fillInCount;
    if (dto.group) {
        for (auto& group : groups) {
            if (group.id == dto.group->id) {
                ++group.snippetCount;
            }
        }
    }
    snippets.push_back(std::move(dto));
    return true;
}

void DocumentBuilder::prefixNotes(std::string_view toolName) {
    const std::string& mine = options.keywordPrefix;
    std::vector<std::string> sourcePrefixes;
    for (const auto& [prefix, example] : replacedPrefixes) {
        if (std::find(sourcePrefixes.begin(), sourcePrefixes.end(), prefix) !=
            sourcePrefixes.end()) {
            continue;
        }
        sourcePrefixes.push_back(prefix);
        note(std::string(toolName) + "'s keyword prefix “" + prefix +
             "” is replaced by your Marlune prefix “" + mine + "” (for example " + example + ").");
    }
    if (prefixMisses.empty()) {
        return;
    }
    // When every such keyword starts with the same mark, that mark was the user's prefix in the
    // other tool, and making it Marlune's keeps their typing as it was.
    std::string advice;
    const char lead = prefixMisses.front().front();
    const bool shared =
        !isAlphanumeric(lead) &&
        std::all_of(prefixMisses.begin(), prefixMisses.end(),
                    [lead](const std::string& k) { return k.size() > 1 && k.front() == lead; });
    if (shared) {
        advice = " To keep typing them as before, set the keyword prefix to “" +
                 std::string(1, lead) + "” in Marlune's Settings, then import again.";
    }
    const std::string& first = prefixMisses.front();
    if (prefixMisses.size() == 1) {
        note("“" + first + "” doesn't start with your keyword prefix “" + mine +
             "”, so you'll type it in front of it (" + mine + first + ")." + advice);
        return;
    }
    note(std::to_string(prefixMisses.size()) + " keywords don't start with your keyword prefix “" +
         mine + "”, so you'll type it " + "in front of them (for example " + mine + first + ")." +
         advice);
}

ImportOutcome DocumentBuilder::finish() {
    if (snippets.empty()) {
        return ImportError::noSnippets(format);
    }
    prefixNotes(toolName_.empty() ? displayName(format) : toolName_);
    ImportConversion conversion;
    conversion.format = format;
    conversion.document.schemaVersion = 2;
    conversion.document.snippets = std::move(snippets);
    conversion.document.groups = std::move(groups);
    conversion.warnings = std::move(warnings.items);
    conversion.skippedCount = skipped;
    return conversion;
}

} // namespace marlune
