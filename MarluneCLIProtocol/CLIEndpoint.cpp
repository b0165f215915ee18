#include "MarluneCLIProtocol/CLIEndpoint.h"

#include "MarluneCLIProtocol/CLIErrorCode.h"
#include "MarluneCLIProtocol/CLIErrorPayload.h"

namespace marlune {

namespace {

std::optional<std::string> variable(const CLIEndpoint::Environment& environment,
                                    std::string_view name) {
    auto value = environment(name);
    if (!value || value->empty()) {
        return std::nullopt;
    }
    return value;
}

} // namespace

CLIEndpoint CLIEndpoint::resolve(const Environment& environment) {
    if (auto home = variable(environment, "MARLUNE_HOME")) {
        return {std::filesystem::path(*home)};
    }
    // The base directory rules ask to ignore a relative XDG path.
    if (auto data = variable(environment, "XDG_DATA_HOME"); data && data->front() == '/') {
        return {std::filesystem::path(*data) / "Marlune"};
    }
    if (auto home = variable(environment, "HOME")) {
        return {std::filesystem::path(*home) / ".local/share" / "Marlune"};
    }
    throw CLIError(CLIErrorCode::runtime,
                   "Cannot find the library: neither XDG_DATA_HOME nor HOME is set.");
}

bool CLIEndpoint::socketPathFits(std::string_view path) {
    return path.size() + 1 <= socketPathCapacity;
}

const std::string& CLIEndpoint::serverPathTooLongMessage() {
    static const std::string message = "Socket path too long.";
    return message;
}

std::string CLIEndpoint::clientSocketPath() const {
    std::string path = socketPath().string();
    if (!socketPathFits(path)) {
        throw CLIError(CLIErrorCode::runtime,
                       "Socket path too long for a Unix-domain socket: " + path);
    }
    return path;
}

} // namespace marlune
