#pragma once

#include "MarluneCLIProtocol/CLIRecordCodec.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace marlune {

// Profile variables, configuration, sync, statistics and on-device AI.

struct ProfileSetArgs {
    std::string key;
    std::string value;

    static constexpr auto fields() {
        return std::tuple{cliField("key", &ProfileSetArgs::key),
                          cliField("value", &ProfileSetArgs::value)};
    }
    friend bool operator==(const ProfileSetArgs&, const ProfileSetArgs&) = default;
};

struct ProfileVarDTO {
    std::string key;
    std::string value;

    static constexpr auto fields() {
        return std::tuple{cliField("key", &ProfileVarDTO::key),
                          cliField("value", &ProfileVarDTO::value)};
    }
    friend bool operator==(const ProfileVarDTO&, const ProfileVarDTO&) = default;
};

struct ConfigGetArgs {
    std::optional<std::string> key;
    bool includeInternal = false;

    static constexpr auto fields() {
        return std::tuple{cliField("key", &ConfigGetArgs::key),
                          cliField("includeInternal", &ConfigGetArgs::includeInternal)};
    }
    friend bool operator==(const ConfigGetArgs&, const ConfigGetArgs&) = default;
};

struct ConfigEntryDTO {
    std::string key;
    CLIJSONValue value;
    std::string type;
    bool requiresRelaunch = false;

    static constexpr auto fields() {
        return std::tuple{cliField("key", &ConfigEntryDTO::key),
                          cliField("value", &ConfigEntryDTO::value),
                          cliField("type", &ConfigEntryDTO::type),
                          cliField("requiresRelaunch", &ConfigEntryDTO::requiresRelaunch)};
    }
    friend bool operator==(const ConfigEntryDTO&, const ConfigEntryDTO&) = default;
};

// The value as typed; the application converts it to the setting's type.
struct ConfigSetArgs {
    std::string key;
    std::string value;

    static constexpr auto fields() {
        return std::tuple{cliField("key", &ConfigSetArgs::key),
                          cliField("value", &ConfigSetArgs::value)};
    }
    friend bool operator==(const ConfigSetArgs&, const ConfigSetArgs&) = default;
};

struct ConfigSetResultDTO {
    std::string key;
    CLIJSONValue value;
    CLIJSONValue previous;
    std::string type;
    bool requiresRelaunch = false;

    static constexpr auto fields() {
        return std::tuple{cliField("key", &ConfigSetResultDTO::key),
                          cliField("value", &ConfigSetResultDTO::value),
                          cliField("previous", &ConfigSetResultDTO::previous),
                          cliField("type", &ConfigSetResultDTO::type),
                          cliField("requiresRelaunch", &ConfigSetResultDTO::requiresRelaunch)};
    }
    friend bool operator==(const ConfigSetResultDTO&, const ConfigSetResultDTO&) = default;
};

struct SyncStatusDTO {
    std::string state;
    bool needsAttention = false;
    bool enabledThisLaunch = false;
    bool relaunchRequired = false;
    std::optional<CLIDate> lastImportAt;
    std::optional<CLIDate> lastExportAt;

    static constexpr auto fields() {
        return std::tuple{cliField("state", &SyncStatusDTO::state),
                          cliField("needsAttention", &SyncStatusDTO::needsAttention),
                          cliField("enabledThisLaunch", &SyncStatusDTO::enabledThisLaunch),
                          cliField("relaunchRequired", &SyncStatusDTO::relaunchRequired),
                          cliField("lastImportAt", &SyncStatusDTO::lastImportAt),
                          cliField("lastExportAt", &SyncStatusDTO::lastExportAt)};
    }
    friend bool operator==(const SyncStatusDTO&, const SyncStatusDTO&) = default;
};

struct SyncDoctorEntityDTO {
    std::string entity;
    std::string recordType;
    std::int64_t localCount = 0;
    std::int64_t serverCount = 0;
    std::int64_t onlyLocal = 0;
    std::int64_t onlyServer = 0;

    static constexpr auto fields() {
        return std::tuple{cliField("entity", &SyncDoctorEntityDTO::entity),
                          cliField("recordType", &SyncDoctorEntityDTO::recordType),
                          cliField("localCount", &SyncDoctorEntityDTO::localCount),
                          cliField("serverCount", &SyncDoctorEntityDTO::serverCount),
                          cliField("onlyLocal", &SyncDoctorEntityDTO::onlyLocal),
                          cliField("onlyServer", &SyncDoctorEntityDTO::onlyServer)};
    }
    friend bool operator==(const SyncDoctorEntityDTO&, const SyncDoctorEntityDTO&) = default;
};

struct SyncDoctorReportDTO {
    CLIDate generatedAt;
    std::optional<std::string> mirror;
    std::optional<std::string> mirrorDetail;
    std::string containerID;
    std::optional<std::string> environment;
    std::string accountStatus;
    bool zoneExists = false;
    std::vector<SyncDoctorEntityDTO> entities;
    std::vector<std::string> notes;

    static constexpr auto fields() {
        return std::tuple{cliField("generatedAt", &SyncDoctorReportDTO::generatedAt),
                          cliField("mirror", &SyncDoctorReportDTO::mirror),
                          cliField("mirrorDetail", &SyncDoctorReportDTO::mirrorDetail),
                          cliField("containerID", &SyncDoctorReportDTO::containerID),
                          cliField("environment", &SyncDoctorReportDTO::environment),
                          cliField("accountStatus", &SyncDoctorReportDTO::accountStatus),
                          cliField("zoneExists", &SyncDoctorReportDTO::zoneExists),
                          cliField("entities", &SyncDoctorReportDTO::entities),
                          cliField("notes", &SyncDoctorReportDTO::notes)};
    }
    friend bool operator==(const SyncDoctorReportDTO&, const SyncDoctorReportDTO&) = default;
};

struct StatsDTO {
    std::int64_t totalExpansions = 0;
    std::int64_t totalKeystrokesSaved = 0;
    std::int64_t expansionsThisWeek = 0;
    std::optional<std::int64_t> keystrokesSavedThisWeek;
    std::optional<std::int64_t> minutesSavedThisWeek;

    static constexpr auto fields() {
        return std::tuple{cliField("totalExpansions", &StatsDTO::totalExpansions),
                          cliField("totalKeystrokesSaved", &StatsDTO::totalKeystrokesSaved),
                          cliField("expansionsThisWeek", &StatsDTO::expansionsThisWeek),
                          cliField("keystrokesSavedThisWeek", &StatsDTO::keystrokesSavedThisWeek),
                          cliField("minutesSavedThisWeek", &StatsDTO::minutesSavedThisWeek)};
    }
    friend bool operator==(const StatsDTO&, const StatsDTO&) = default;
};

struct AIStatusDTO {
    bool available = false;
    std::optional<std::string> reason;
    std::string message;

    static constexpr auto fields() {
        return std::tuple{cliField("available", &AIStatusDTO::available),
                          cliField("reason", &AIStatusDTO::reason),
                          cliField("message", &AIStatusDTO::message)};
    }
    friend bool operator==(const AIStatusDTO&, const AIStatusDTO&) = default;
};

struct DraftDTO {
    std::string title;
    std::string keyword;
    std::string content;
    bool isMarkdown = false;
    std::int64_t fillInCount = 0;

    static constexpr auto fields() {
        return std::tuple{
            cliField("title", &DraftDTO::title), cliField("keyword", &DraftDTO::keyword),
            cliField("content", &DraftDTO::content), cliField("isMarkdown", &DraftDTO::isMarkdown),
            cliField("fillInCount", &DraftDTO::fillInCount)};
    }
    friend bool operator==(const DraftDTO&, const DraftDTO&) = default;
};

struct AIDescribeArgs {
    std::string prompt;
    bool create = false;
    std::optional<std::string> groupRef;

    static constexpr auto fields() {
        return std::tuple{cliField("prompt", &AIDescribeArgs::prompt),
                          cliField("create", &AIDescribeArgs::create),
                          cliField("groupRef", &AIDescribeArgs::groupRef)};
    }
    friend bool operator==(const AIDescribeArgs&, const AIDescribeArgs&) = default;
};

struct AIDescribeResultDTO {
    DraftDTO draft;
    bool created = false;
    std::optional<std::string> snippetId;
    bool modelAvailable = false;

    static constexpr auto fields() {
        return std::tuple{cliField("draft", &AIDescribeResultDTO::draft),
                          cliField("created", &AIDescribeResultDTO::created),
                          cliField("snippetId", &AIDescribeResultDTO::snippetId),
                          cliField("modelAvailable", &AIDescribeResultDTO::modelAvailable)};
    }
    friend bool operator==(const AIDescribeResultDTO&, const AIDescribeResultDTO&) = default;
};

struct AISourceDTO {
    std::string clipId;
    std::string previewText;

    static constexpr auto fields() {
        return std::tuple{cliField("clipId", &AISourceDTO::clipId),
                          cliField("previewText", &AISourceDTO::previewText)};
    }
    friend bool operator==(const AISourceDTO&, const AISourceDTO&) = default;
};

struct AIAskArgs {
    std::string question;
    std::int64_t topK = 0;

    static constexpr auto fields() {
        return std::tuple{cliField("question", &AIAskArgs::question),
                          cliField("topK", &AIAskArgs::topK)};
    }
    friend bool operator==(const AIAskArgs&, const AIAskArgs&) = default;
};

struct AIAskResultDTO {
    std::string answer;
    std::vector<AISourceDTO> sources;

    static constexpr auto fields() {
        return std::tuple{cliField("answer", &AIAskResultDTO::answer),
                          cliField("sources", &AIAskResultDTO::sources)};
    }
    friend bool operator==(const AIAskResultDTO&, const AIAskResultDTO&) = default;
};

struct AgentSkills {
    struct InstallResult {
        std::string target;
        std::string path;

        static constexpr auto fields() {
            return std::tuple{cliField("target", &InstallResult::target),
                              cliField("path", &InstallResult::path)};
        }
        friend bool operator==(const InstallResult&, const InstallResult&) = default;
    };
};

} // namespace marlune
