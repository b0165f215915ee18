#pragma once

#include "MarluneCLIProtocol/CLIErrorPayload.h"

#include <filesystem>
#include <optional>
#include <sys/types.h>
#include <variant>

namespace marlune {

// Starts marlune-app for a tool that found nobody serving the socket. The application is
// detached from the tool (its own session, standard streams on /dev/null) so that it outlives
// the tool and never writes into the tool's terminal.
struct AppLauncher {
    static constexpr const char* appName = "marlune-app";

    // marlune-app in the directory of the running tool's own executable, which is how an
    // installed pair and the build tree are laid out.
    static std::filesystem::path besideTool();

    // `headless` adds --headless, for sessions without a display.
    static std::variant<pid_t, CLIErrorPayload> start(const std::filesystem::path& app,
                                                      bool headless);

    // The exit status once the process has ended (and is reaped), nothing while it runs.
    static std::optional<int> endedStatus(pid_t pid);
};

} // namespace marlune
