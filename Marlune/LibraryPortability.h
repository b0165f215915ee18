#pragma once

#include "MarluneCLIProtocol/DataRecords.h"
#include "MarluneCore/Date.h"
#include "MarluneCore/ModelContext.h"
#include "MarluneCore/Settings.h"

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace marlune {

// The library as one document, out and in: the settings pane's export and import, the command
// line's data commands and the foreign importers (whose converted documents come in here).
// Main thread only.
class LibraryPortability {
public:
    static constexpr std::int64_t schemaVersion = 2;

    enum class Scope { everything, snippets };

    // Which kinds a document carries; the command line picks them one by one.
    struct Parts {
        bool snippets = false;
        bool groups = false;
        bool tags = false;
        bool pinboards = false;
        bool profile = false;
        bool settings = false;

        static Parts of(Scope scope);
    };

    struct ApplyOptions {
        // Also write the document's settings to the user defaults.
        bool applySettings = false;
        // The document becomes the whole snippet library: the rest moves to the Trash.
        bool replace = false;
        // Work out the result on the same path, then discard every change.
        bool dryRun = false;
    };

    struct ImportResult {
        std::int64_t snippets = 0;
        std::int64_t createdSnippets = 0;
        std::int64_t restoredSnippets = 0;
        std::int64_t snippetsInDocument = 0;
        std::int64_t trashedSnippets = 0;
        std::int64_t groups = 0;
        std::int64_t tags = 0;
        std::int64_t pinboards = 0;
        std::int64_t profileVars = 0;
        std::vector<std::string> settingsApplied;
        // Settings the document carries that would have been applied, left alone because
        // `applySettings` was not asked for.
        std::vector<std::string> settingsNotApplied;
        std::vector<std::string> settingsRequiringRelaunch;
        bool changedShortcut = false;
        bool dryRun = false;
        // Keywords that, after the import, belong to two or more live snippets (as typed,
        // prefix included), in order.
        std::vector<std::string> duplicateKeywords;
        // Keywords that could never be typed, left out (the snippet imported without one):
        // a sentence each, naming the snippet.
        std::vector<std::string> refusedKeywords;
        // Snippets left out because their body is over the size limit: a sentence each,
        // naming the snippet and the limit.
        std::vector<std::string> skippedSnippets;

        // The one sentence about the keyword clashes, or nothing when there are none.
        std::optional<std::string> keywordClashMessage() const;
        // The same clash, one keyword at a time (the command line's warnings).
        static std::string keywordClashMessage(const std::string& keyword);

        friend bool operator==(const ImportResult&, const ImportResult&) = default;
    };

    class Error : public std::runtime_error {
    public:
        enum class Kind { invalidDocument, replaceNeedsSnippets };
        explicit Error(Kind kind);
        Kind kind() const { return kind_; }

    private:
        Kind kind_;
    };

    LibraryPortability(ModelContext& context, Settings& settings)
        : context_(context), settings_(settings) {}

    DataDocumentDTO exportDocument(Parts parts, Date now);
    DataDocumentDTO exportDocument(Scope scope, Date now) {
        return exportDocument(Parts::of(scope), now);
    }

    // UTF-8 JSON, pretty-printed, keys sorted, forward slashes as they are.
    static std::string encode(const DataDocumentDTO& document);
    // Throws Error(invalidDocument) for text that isn't JSON or isn't this document.
    static DataDocumentDTO decode(std::string_view text);

    // Applies a decoded document. Throws Error before any write when the document can't be
    // used; store failures leave the library as it was.
    ImportResult apply(const DataDocumentDTO& document, ApplyOptions options, Date now);
    ImportResult importText(std::string_view text, ApplyOptions options, Date now) {
        return apply(decode(text), options, now);
    }

    // The command line's record of a result.
    static DataImportResultDTO resultDTO(const ImportResult& result);

private:
    ModelContext& context_;
    Settings& settings_;
};

} // namespace marlune
