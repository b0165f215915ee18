#include "MarluneCLIProtocol/CLIResponse.h"

#include "MarluneCLIProtocol/CLIBase64.h"
#include "MarluneCLIProtocol/CLIErrorCode.h"

namespace marlune {

namespace {

// The response as it travels, with the result still in Base64.
struct ResponseWire {
    std::int64_t v = 0;
    bool ok = false;
    std::optional<std::string> resultJSON;
    std::optional<CLIErrorPayload> error;
    std::vector<CLIWarningPayload> warnings;

    static constexpr auto fields() {
        return std::tuple{cliField("v", &ResponseWire::v), cliField("ok", &ResponseWire::ok),
                          cliField("resultJSON", &ResponseWire::resultJSON),
                          cliField("error", &ResponseWire::error),
                          cliField("warnings", &ResponseWire::warnings)};
    }
};

} // namespace

CLIResponse CLIResponse::success(std::string resultJSON, std::vector<CLIWarningPayload> warnings) {
    return {cliProtocolVersion, true, std::move(resultJSON), std::nullopt, std::move(warnings)};
}

CLIResponse CLIResponse::failure(CLIErrorPayload error) {
    return {cliProtocolVersion, false, std::nullopt, std::move(error), {}};
}

CLIResponse CLIResponse::failure(std::string_view code, std::string message,
                                 std::optional<std::string> hint) {
    return failure(CLIErrorPayload{std::string(code), std::move(message), std::move(hint)});
}

std::string CLIResponse::encode() const {
    std::optional<std::string> result;
    if (resultJSON) {
        result = CLIBase64::encode(*resultJSON);
    }
    return encodeWireText(ResponseWire{v, ok, std::move(result), error, warnings});
}

std::optional<CLIResponse> CLIResponse::decode(std::string_view payload) {
    const auto json = parseWireJSON(payload);
    if (!json) {
        return std::nullopt;
    }
    ResponseWire wire;
    try {
        decodeWire(*json, wire);
    } catch (const CLIRecordError&) {
        return std::nullopt;
    }
    std::optional<std::string> result;
    if (wire.resultJSON) {
        result = CLIBase64::decode(*wire.resultJSON);
        if (!result) {
            return std::nullopt;
        }
    }
    return CLIResponse{wire.v, wire.ok, std::move(result), std::move(wire.error),
                       std::move(wire.warnings)};
}

std::variant<std::string, CLIErrorPayload> CLIResponse::result() const {
    if (!ok) {
        if (error) {
            return *error;
        }
        return CLIErrorPayload{std::string(CLIErrorCode::runtime),
                               "The command failed without saying why.", std::nullopt};
    }
    if (!resultJSON) {
        return CLIErrorPayload{std::string(CLIErrorCode::runtime),
                               "Response had no result payload.", std::nullopt};
    }
    return *resultJSON;
}

} // namespace marlune
