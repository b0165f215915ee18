#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace marlune {

// The one protocol version both sides speak.
inline constexpr std::int64_t cliProtocolVersion = 1;

// What the tool sends: one command and its argument record.
struct CLIRequest {
    std::int64_t v = cliProtocolVersion;
    std::string token;
    std::string command;
    // The argument record's JSON text itself; only the wire carries it as Base64.
    std::string argsJSON;
    std::optional<std::string> id;
    std::optional<std::int32_t> clientPID;
    std::optional<std::string> clientBundleID;

    // The payload of a request frame.
    std::string encode() const;

    // Nothing when the payload is not JSON, not a request object, or `argsJSON` is not Base64.
    // Any `v` decodes: judging the version is the server's business, with its own message.
    static std::optional<CLIRequest> decode(std::string_view payload);

    friend bool operator==(const CLIRequest&, const CLIRequest&) = default;
};

} // namespace marlune
