#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace marlune {

// The rendezvous of the application and the tool: one private directory holding the socket
// and the token file.
struct CLIEndpoint {
    // Reads one environment variable; set-but-empty counts as unset.
    using Environment = std::function<std::optional<std::string>(std::string_view name)>;

    // sizeof(sockaddr_un::sun_path) on Linux. This module may not include the socket headers;
    // the server checks the constant against the real structure at compile time.
    static constexpr std::size_t socketPathCapacity = 108;

    static constexpr std::string_view socketFileName = "marlune.sock";
    static constexpr std::string_view tokenFileName = "cli-token";

    std::filesystem::path directory;

    // $MARLUNE_HOME, else ${XDG_DATA_HOME:-$HOME/.local/share}/Marlune (a relative
    // XDG_DATA_HOME is ignored). Throws CLIError (E_RUNTIME) when neither says where to go.
    static CLIEndpoint resolve(const Environment& environment);

    std::filesystem::path socketPath() const { return directory / socketFileName; }
    std::filesystem::path tokenPath() const { return directory / tokenFileName; }

    // Whether the path and its terminating NUL fit a Unix-domain socket address.
    static bool socketPathFits(std::string_view path);

    // The server's refusal: "Socket path too long.".
    static const std::string& serverPathTooLongMessage();

    // For the tool: the socket path, or a CLIError (E_RUNTIME) "Socket path too long for a
    // Unix-domain socket: " followed by the path.
    std::string clientSocketPath() const;
};

} // namespace marlune
