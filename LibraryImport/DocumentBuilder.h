#pragma once

#include "LibraryImport/ImportTypes.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace marlune {

// The notes of one conversion, in the order they arose; the same note is kept once.
struct WarningLog {
    std::vector<std::string> items;
    std::set<std::string> seen;

    void add(std::string note) {
        if (seen.insert(note).second) {
            items.push_back(std::move(note));
        }
    }
};

// One snippet as a converter read it, before the builder gives it its id and keyword.
struct SourceSnippet {
    // The source's own identifier, unique within the file (a uid, else an abbreviation).
    std::string sourceID;
    std::string title;
    // As the source wrote it, prefix included.
    std::string keyword;
    // Already in the template syntax.
    std::string content;
    std::string contentType = "plainText";
    std::optional<GroupRefDTO> group;
    std::int64_t fillInCount = 0;
    std::optional<std::string> createdAt;
    std::optional<std::string> updatedAt;
    std::optional<std::string> lastUsedAt;
    std::int64_t usageCount = 0;
};

// Walks `text` for the "{…}" marks of brace-style templates: a "{" followed by a character
// that `opens` accepts, up to the next "}". Text outside the marks is copied; each mark's
// inside and its text as typed go to `mark`, whose answer takes its place. A "{" that opens
// nothing, or is never closed, stays as typed.
std::string replaceBraceMarks(
    std::string_view text, const std::function<bool(char)>& opens,
    const std::function<std::string(std::string_view inside, std::string_view typed)>& mark);

// What every converter builds its document with: stable ids, groups by name, keyword prefixes
// and the notes about them, duplicates dropped, and the closing checks.
class DocumentBuilder {
public:
    DocumentBuilder(ImportFormat sourceFormat, ImportOptions importOptions);

    ImportFormat format;
    ImportOptions options;
    WarningLog warnings;
    std::int64_t skipped = 0;
    std::vector<SnippetDTO> snippets;
    std::set<std::string> snippetIDs;
    std::vector<GroupDTO> groups;
    std::vector<std::string> prefixMisses;
    // The source prefix and one keyword as the user will now type it.
    std::vector<std::pair<std::string, std::string>> replacedPrefixes;

    // The group for a source group (by its own id, or its name when it has none).
    GroupRefDTO group(std::string_view sourceID, const std::string& name);

    // Adds a snippet under the namespace's stable id. A second snippet with the same id is
    // dropped (false), for the caller to say why in its own words; one whose body is over the
    // library's size limit is skipped here with a note naming it and the limit.
    // `sourcePrefix` is the source tool's own keyword prefix, replaced by the user's;
    // `toolName` names that tool in the note about it.
    bool add(std::string_view nameSpace, SourceSnippet source, std::string_view sourcePrefix = {},
             std::string_view toolName = {});

    void note(std::string text) { warnings.add(std::move(text)); }
    void skip(std::string text) {
        ++skipped;
        note(std::move(text));
    }

    // The document, or noSnippets when nothing came across.
    ImportOutcome finish();

    // "“Title”" for notes: the title, else the keyword, else "A snippet".
    static std::string name(const SourceSnippet& source);

private:
    std::string keyword(const std::string& title, const std::string& raw,
                        std::string_view sourcePrefix);
    void prefixNotes(std::string_view toolName);

    std::string toolName_;
};

// Text of the template syntax, written from parts that may hold its own marks.
struct TemplateText {
    // A placeholder "{@type|key=value...@}".
    static std::string placeholder(std::string_view type,
                                   const std::vector<std::pair<std::string, std::string>>& params);

    // A fill-in name, option or value made safe to stand inside a placeholder: "|", "@}"
    // (and, in names and options, "," and "=") become look-alikes. `swapped` says whether any did.
    static std::string safeName(std::string_view text, bool& swapped);
    static std::string safeValue(std::string_view text, bool& swapped);

    // Whether literal text holds "{@", which the renderer would read as a placeholder.
    static bool opensPlaceholder(std::string_view text) {
        return text.find("{@") != std::string_view::npos;
    }

    // Whether text is valid UTF-8.
    static bool isUTF8(std::string_view text);
};

} // namespace marlune
