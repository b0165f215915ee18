#pragma once

#include "MarluneCLIProtocol/CLIRecordCodec.h"
#include "MarluneCLIProtocol/LibraryRecords.h"
#include "MarluneCLIProtocol/SnippetRecords.h"
#include "MarluneCLIProtocol/SystemRecords.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace marlune {

// The library document and the data commands that carry it.

// One format for export, import and the data commands. An absent array leaves that kind
// untouched on import; an empty one means "none".
struct DataDocumentDTO {
    std::int64_t schemaVersion = 0;
    std::optional<std::string> exportedAt;
    std::optional<std::vector<SnippetDTO>> snippets;
    std::optional<std::vector<GroupDTO>> groups;
    std::optional<std::vector<TagDTO>> tags;
    std::optional<std::vector<PinboardDTO>> pinboards;
    std::optional<std::vector<ProfileVarDTO>> profile;
    std::optional<std::map<std::string, CLIJSONValue>> settings;
    // Set on a piece of an export too large for one reply: where the next piece's snippets
    // begin. The tool joins the pieces; a document written to a file never carries it.
    std::optional<std::int64_t> nextSnippetOffset;

    static constexpr auto fields() {
        return std::tuple{cliField("schemaVersion", &DataDocumentDTO::schemaVersion),
                          cliField("exportedAt", &DataDocumentDTO::exportedAt),
                          cliField("snippets", &DataDocumentDTO::snippets),
                          cliField("groups", &DataDocumentDTO::groups),
                          cliField("tags", &DataDocumentDTO::tags),
                          cliField("pinboards", &DataDocumentDTO::pinboards),
                          cliField("profile", &DataDocumentDTO::profile),
                          cliField("settings", &DataDocumentDTO::settings),
                          cliField("nextSnippetOffset", &DataDocumentDTO::nextSnippetOffset)};
    }
    friend bool operator==(const DataDocumentDTO&, const DataDocumentDTO&) = default;
};

struct DataExportArgs {
    bool snippets = false;
    bool groups = false;
    bool tags = false;
    bool pinboards = false;
    bool profile = false;
    bool settings = false;
    // Asks for the piece of the export whose snippets begin here (only snippets, then).
    std::optional<std::int64_t> snippetOffset;

    static constexpr auto fields() {
        return std::tuple{cliField("snippets", &DataExportArgs::snippets),
                          cliField("groups", &DataExportArgs::groups),
                          cliField("tags", &DataExportArgs::tags),
                          cliField("pinboards", &DataExportArgs::pinboards),
                          cliField("profile", &DataExportArgs::profile),
                          cliField("settings", &DataExportArgs::settings),
                          cliField("snippetOffset", &DataExportArgs::snippetOffset)};
    }
    friend bool operator==(const DataExportArgs&, const DataExportArgs&) = default;
};

// `document` is the document's JSON text. Its settings are written only with
// `applySettings`: a file shared as a backup must not turn protections off unasked.
struct DataImportArgs {
    std::string document;
    bool merge = false;
    bool replace = false;
    bool dryRun = false;
    bool applySettings = false;

    static constexpr auto fields() {
        return std::tuple{cliField("document", &DataImportArgs::document),
                          cliField("merge", &DataImportArgs::merge),
                          cliField("replace", &DataImportArgs::replace),
                          cliField("dryRun", &DataImportArgs::dryRun),
                          cliField("applySettings", &DataImportArgs::applySettings)};
    }
    friend bool operator==(const DataImportArgs&, const DataImportArgs&) = default;
};

// The result of "data.import" and of "clip.import" (which fills in the clip figures only).
struct DataImportResultDTO {
    std::int64_t snippets = 0;
    std::int64_t groups = 0;
    std::int64_t tags = 0;
    std::int64_t pinboards = 0;
    std::int64_t profileVars = 0;
    std::int64_t settingsApplied = 0;
    std::vector<std::string> settingsRequiringRelaunch;
    bool dryRun = false;
    std::optional<std::int64_t> createdSnippets;
    std::optional<std::int64_t> restoredSnippets;
    std::optional<std::int64_t> trashedSnippets;
    // The keys of the settings written, and those the document carried but that were left
    // alone because the import did not ask for settings.
    std::vector<std::string> appliedSettingKeys;
    std::vector<std::string> unappliedSettingKeys;
    // Snippets left out for being larger than the library takes.
    std::optional<std::int64_t> skippedSnippets;
    // Clips added or bumped; clips kept out as likely secrets, by kind ("apiKey": 2); clips
    // left out for a flavour larger than the history takes.
    std::optional<std::int64_t> clips;
    std::optional<std::map<std::string, std::int64_t>> skippedSecrets;
    std::optional<std::int64_t> skippedClips;

    static constexpr auto fields() {
        return std::tuple{
            cliField("snippets", &DataImportResultDTO::snippets),
            cliField("groups", &DataImportResultDTO::groups),
            cliField("tags", &DataImportResultDTO::tags),
            cliField("pinboards", &DataImportResultDTO::pinboards),
            cliField("profileVars", &DataImportResultDTO::profileVars),
            cliField("settingsApplied", &DataImportResultDTO::settingsApplied),
            cliField("settingsRequiringRelaunch", &DataImportResultDTO::settingsRequiringRelaunch),
            cliField("dryRun", &DataImportResultDTO::dryRun),
            cliField("createdSnippets", &DataImportResultDTO::createdSnippets),
            cliField("restoredSnippets", &DataImportResultDTO::restoredSnippets),
            cliField("trashedSnippets", &DataImportResultDTO::trashedSnippets),
            cliField("appliedSettingKeys", &DataImportResultDTO::appliedSettingKeys),
            cliField("unappliedSettingKeys", &DataImportResultDTO::unappliedSettingKeys),
            cliField("skippedSnippets", &DataImportResultDTO::skippedSnippets),
            cliField("clips", &DataImportResultDTO::clips),
            cliField("skippedSecrets", &DataImportResultDTO::skippedSecrets),
            cliField("skippedClips", &DataImportResultDTO::skippedClips)};
    }
    friend bool operator==(const DataImportResultDTO&, const DataImportResultDTO&) = default;
};

} // namespace marlune
