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

    static constexpr auto fields() {
        return std::tuple{cliField("schemaVersion", &DataDocumentDTO::schemaVersion),
                          cliField("exportedAt", &DataDocumentDTO::exportedAt),
                          cliField("snippets", &DataDocumentDTO::snippets),
                          cliField("groups", &DataDocumentDTO::groups),
                          cliField("tags", &DataDocumentDTO::tags),
                          cliField("pinboards", &DataDocumentDTO::pinboards),
                          cliField("profile", &DataDocumentDTO::profile),
                          cliField("settings", &DataDocumentDTO::settings)};
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

    static constexpr auto fields() {
        return std::tuple{cliField("snippets", &DataExportArgs::snippets),
                          cliField("groups", &DataExportArgs::groups),
                          cliField("tags", &DataExportArgs::tags),
                          cliField("pinboards", &DataExportArgs::pinboards),
                          cliField("profile", &DataExportArgs::profile),
                          cliField("settings", &DataExportArgs::settings)};
    }
    friend bool operator==(const DataExportArgs&, const DataExportArgs&) = default;
};

// `document` is the document's JSON text.
struct DataImportArgs {
    std::string document;
    bool merge = false;
    bool replace = false;
    bool dryRun = false;

    static constexpr auto fields() {
        return std::tuple{cliField("document", &DataImportArgs::document),
                          cliField("merge", &DataImportArgs::merge),
                          cliField("replace", &DataImportArgs::replace),
                          cliField("dryRun", &DataImportArgs::dryRun)};
    }
    friend bool operator==(const DataImportArgs&, const DataImportArgs&) = default;
};

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
            cliField("trashedSnippets", &DataImportResultDTO::trashedSnippets)};
    }
    friend bool operator==(const DataImportResultDTO&, const DataImportResultDTO&) = default;
};

} // namespace marlune
