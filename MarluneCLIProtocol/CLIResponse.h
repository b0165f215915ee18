#pragma once

#include "MarluneCLIProtocol/CLIErrorPayload.h"
#include "MarluneCLIProtocol/CLIRequest.h"
#include "MarluneCLIProtocol/CLIWarningPayload.h"

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace marlune {

// What the application answers: a result record or an error, never both.
struct CLIResponse {
    std::int64_t v = cliProtocolVersion;
    bool ok = false;
    // The result record's JSON text itself; only the wire carries it as Base64.
    std::optional<std::string> resultJSON;
    std::optional<CLIErrorPayload> error;
    std::vector<CLIWarningPayload> warnings;

    static CLIResponse success(std::string resultJSON,
                               std::vector<CLIWarningPayload> warnings = {});
    static CLIResponse failure(CLIErrorPayload error);
    static CLIResponse failure(std::string_view code, std::string message,
                               std::optional<std::string> hint = std::nullopt);

    // The payload of a response frame.
    std::string encode() const;
    // Nothing when the payload is not a response or `resultJSON` is not Base64.
    static std::optional<CLIResponse> decode(std::string_view payload);

    // For the tool: the result's JSON text (valid while the response lives), or the error to
    // report. A success without a result is "Response had no result payload.".
    std::variant<std::string_view, CLIErrorPayload> result() const;

    friend bool operator==(const CLIResponse&, const CLIResponse&) = default;
};

} // namespace marlune
