#include "Marlune/CLIListener.h"
#include "MarluneCLIProtocol/CLICommandName.h"
#include "MarluneCLIProtocol/CommonRecords.h"

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

} // namespace

void registerSystemCommands(CLIListener& listener) {
    listener.addTyped<PingArgs>(std::string(CLICommandName::ping), ping);
}

} // namespace marlune
