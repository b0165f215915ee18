#include "MarluneCLIProtocol/CLIRequestGate.h"

#include "MarluneCLIProtocol/CLIErrorCode.h"
#include "MarluneCLIProtocol/CLIToken.h"

namespace marlune {

CLIResponse CLIRequestGate::malformedRequest() {
    return CLIResponse::failure(CLIErrorCode::usage, "Malformed request.");
}

CLIResponse CLIRequestGate::rejectedPeer() {
    return CLIResponse::failure(CLIErrorCode::unauthorized, "Rejected peer.");
}

CLIResponse CLIRequestGate::noResponseProduced() {
    return CLIResponse::failure(CLIErrorCode::runtime, "No response produced.");
}

CLIResponse CLIRequestGate::listenerGone() {
    return CLIResponse::failure(CLIErrorCode::runtime, "Listener gone.");
}

CLIRequestGate::Outcome CLIRequestGate::admitPayload(std::string_view payload,
                                                     std::string_view expectedToken) {
    auto request = CLIRequest::decode(payload);
    if (!request) {
        return malformedRequest();
    }
    if (request->v != cliProtocolVersion) {
        return CLIResponse::failure(CLIErrorCode::usage,
                                    "Protocol version mismatch (app " +
                                        std::to_string(cliProtocolVersion) + ", client " +
                                        std::to_string(request->v) + "). Reinstall the CLI.");
    }
    if (!CLIToken::equal(request->token, expectedToken)) {
        return CLIResponse::failure(CLIErrorCode::unauthorized, "Bad token.");
    }
    return std::move(*request);
}

CLIRequestGate::Outcome
CLIRequestGate::admitRead(const std::variant<std::string, CLIWireError>& frame,
                          std::string_view expectedToken) {
    if (const auto* payload = std::get_if<std::string>(&frame)) {
        return admitPayload(*payload, expectedToken);
    }
    return malformedRequest();
}

CLIRequestGate::Outcome CLIRequestGate::admitFrame(std::span<const std::uint8_t> frame,
                                                   std::string_view expectedToken) {
    const auto payload = CLIWire::decodeFrame(frame);
    if (const auto* bytes = std::get_if<std::string_view>(&payload)) {
        return admitPayload(*bytes, expectedToken);
    }
    return malformedRequest();
}

CLIResponse CLIRequestGate::unknownCommand(std::string_view command) {
    return CLIResponse::failure(CLIErrorCode::usage,
                                "Unknown command '" + std::string(command) + "'.");
}

} // namespace marlune
