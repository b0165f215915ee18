#include "MarluneCLIProtocol/CLIRequest.h"

#include "MarluneCLIProtocol/CLIBase64.h"
#include "MarluneCLIProtocol/CLIRecordCodec.h"

namespace marlune {

namespace {

// The request as it travels, with the arguments still in Base64.
struct RequestWire {
    std::int64_t v = 0;
    std::string token;
    std::string command;
    std::string argsJSON;
    std::optional<std::string> id;
    std::optional<std::int32_t> clientPID;
    std::optional<std::string> clientBundleID;

    static constexpr auto fields() {
        return std::tuple{cliField("v", &RequestWire::v),
                          cliField("token", &RequestWire::token),
                          cliField("command", &RequestWire::command),
                          cliField("argsJSON", &RequestWire::argsJSON),
                          cliField("id", &RequestWire::id),
                          cliField("clientPID", &RequestWire::clientPID),
                          cliField("clientBundleID", &RequestWire::clientBundleID)};
    }
};

} // namespace

std::string CLIRequest::encode() const {
    return encodeWireText(
        RequestWire{v, token, command, CLIBase64::encode(argsJSON), id, clientPID, clientBundleID});
}

std::optional<CLIRequest> CLIRequest::decode(std::string_view payload) {
    const auto json = parseWireJSON(payload);
    if (!json) {
        return std::nullopt;
    }
    RequestWire wire;
    try {
        decodeWire(*json, wire);
    } catch (const CLIRecordError&) {
        return std::nullopt;
    }
    auto args = CLIBase64::decode(wire.argsJSON);
    if (!args) {
        return std::nullopt;
    }
    return CLIRequest{wire.v,
                      std::move(wire.token),
                      std::move(wire.command),
                      std::move(*args),
                      std::move(wire.id),
                      wire.clientPID,
                      std::move(wire.clientBundleID)};
}

} // namespace marlune
