#include "Marlune/CLIClipSupport.h"
#include "Marlune/CLIListener.h"
#include "MarluneCLIProtocol/CLICommandName.h"
#include "MarluneCLIProtocol/CLIErrorCode.h"
#include "MarluneCLIProtocol/CommonRecords.h"
#include "MarluneCLIProtocol/SystemRecords.h"
#include "MarluneCore/UsageStats.h"

#include <unistd.h>

namespace marlune {

namespace {

// The version of the command set: the minor number grows when commands or fields are added,
// the major one when a change would break a script written against the old set.
constexpr std::string_view apiVersion = "1.0";

PingResult ping(const PingArgs&, CLICall& call) {
    PingResult result;
    result.version = call.environment().appVersion;
    result.pid = static_cast<std::int32_t>(::getpid());
    result.protocolVersion = cliProtocolVersion;
    result.apiVersion = std::string(apiVersion);
    // The application lives in the tray (or without any window when headless), never as a
    // window of its own in the task bar.
    result.menuBarOnly = true;
    return result;
}

StatsDTO showStats(const EmptyArgs&, CLICall& call) {
    const auto summary = CLIClipSupport::usageStats(call).summary(call.now());
    StatsDTO stats;
    stats.totalExpansions = summary.totalExpansions;
    stats.totalKeystrokesSaved = summary.totalKeystrokesSaved;
    stats.expansionsThisWeek = summary.expansionsThisWeek;
    stats.keystrokesSavedThisWeek = summary.keystrokesSavedThisWeek;
    stats.minutesSavedThisWeek = summary.minutesSavedThisWeek;
    return stats;
}

constexpr std::string_view syncUnavailable =
    "Sync across devices is not available in this release; the library stays on this device.";

// Whether the store file carries the bookkeeping tables a cloud mirror leaves behind (names
// beginning with ANSCK). The file is opened read-only; a library in memory has none.
bool wasMirrored(CLICall& call) {
    const auto& file = call.environment().container->storeURL();
    return file && std::filesystem::exists(*file) && MarluneStore::wasMirroredToCloud(*file);
}

SyncStatusDTO syncStatus(const EmptyArgs&, CLICall& call) {
    SyncStatusDTO status;
    status.state = "disabled";
    // Asking for sync cannot change anything on this platform, so it needs no attention and
    // no relaunch; the doctor says why.
    status.needsAttention = false;
    status.enabledThisLaunch = call.environment().container->choices().cloudKit;
    status.relaunchRequired = false;
    return status;
}

SyncDoctorReportDTO syncDoctor(const EmptyArgs&, CLICall& call) {
    SyncDoctorReportDTO report;
    report.generatedAt = call.now();
    report.mirror = "none";
    report.mirrorDetail = std::string(syncUnavailable);
    report.containerID = "org.marlune.Marlune";
    report.accountStatus = "unavailable";
    report.zoneExists = false;
    auto& db = call.context().db();
    for (const auto& [entity, where] :
         {std::pair{"Snippet", "deletedAt IS NULL"}, std::pair{"SnippetGroup", "1"},
          std::pair{"Tag", "1"}, std::pair{"Clip", "deletedAt IS NULL"}, std::pair{"Pinboard", "1"},
          std::pair{"CaptureRule", "1"}}) {
        auto count = db.prepare("SELECT count(*) FROM " + std::string(entity) + " WHERE " + where);
        const std::int64_t local = count.step() ? count.int64(0) : 0;
        report.entities.push_back({entity, entity, local, 0, local, 0});
    }
    report.notes.emplace_back(syncUnavailable);
    report.notes.emplace_back(
        wasMirrored(call)
            ? "The store holds bookkeeping tables (ANSCK) of an earlier cloud mirror; they are "
              "left as they are and not used."
            : "The store has never been mirrored to the cloud (no ANSCK tables).");
    if (call.environment().headless) {
        report.notes.emplace_back("Marlune is running without a display: keyboard and clipboard "
                                  "services are off. They need an X11 session or XWayland "
                                  "applications.");
    }
    return report;
}

// The windows these open do not exist in this release.
AppActionResultDTO missingWindow(std::string_view action, std::string_view window) {
    throw CLIError(CLIErrorCode::capability,
                   "Marlune has no " + std::string(window) + " in this release, so `app " +
                       std::string(action) + "` can't open it.",
                   "Use the command line or the tray menu instead.");
}

AppActionResultDTO quitApp(const EmptyArgs&, CLICall& call) {
    if (!call.environment().quit) {
        throw CLIError(CLIErrorCode::capability,
                       "This Marlune can't be quit from the command line.");
    }
    // Queued: the answer goes out before the event loop ends.
    call.environment().quit();
    return {"quit", true};
}

} // namespace

void registerSystemCommands(CLIListener& listener) {
    listener.addTyped<PingArgs>(std::string(CLICommandName::ping), ping);
    namespace N = CLICommandName;
    listener.addTyped<EmptyArgs>(std::string(N::statsShow), showStats);
    listener.addTyped<EmptyArgs>(std::string(N::syncStatus), syncStatus);
    listener.addTyped<EmptyArgs>(std::string(N::syncDoctor), syncDoctor);
    for (const auto& [name, action, window] :
         {std::tuple{N::appOpen, "open", "main window"},
          std::tuple{N::appQuickPaste, "quickPaste", "quick paste panel"},
          std::tuple{N::appPalette, "palette", "snippet palette"},
          std::tuple{N::appCheatSheet, "cheatSheet", "cheat sheet"}}) {
        listener.addTyped<EmptyArgs>(
            std::string(name),
            [action, window](const EmptyArgs&, CLICall&) { return missingWindow(action, window); });
    }
    listener.addTyped<EmptyArgs>(std::string(N::appQuit), quitApp);
}

} // namespace marlune
