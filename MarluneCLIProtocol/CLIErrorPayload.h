#pragma once

#include "MarluneCLIProtocol/CLIRecordCodec.h"

#include <optional>
#include <stdexcept>
#include <string>

namespace marlune {

// A failed command as the user sees it: the code picks the tool's exit status, the message is
// shown as it stands, the hint names the next command to run.
struct CLIErrorPayload {
    std::string code;
    std::string message;
    std::optional<std::string> hint;

    static constexpr auto fields() {
        return std::tuple{cliField("code", &CLIErrorPayload::code),
                          cliField("message", &CLIErrorPayload::message),
                          cliField("hint", &CLIErrorPayload::hint)};
    }
    friend bool operator==(const CLIErrorPayload&, const CLIErrorPayload&) = default;
};

// Handlers and client helpers throw this; whoever answers the request sends the payload as is.
class CLIError : public std::runtime_error {
public:
    explicit CLIError(CLIErrorPayload payload)
        : std::runtime_error(payload.message), payload_(std::move(payload)) {}
    CLIError(std::string_view code, std::string message,
             std::optional<std::string> hint = std::nullopt)
        : CLIError(CLIErrorPayload{std::string(code), std::move(message), std::move(hint)}) {}

    const CLIErrorPayload& payload() const { return payload_; }

private:
    CLIErrorPayload payload_;
};

} // namespace marlune
