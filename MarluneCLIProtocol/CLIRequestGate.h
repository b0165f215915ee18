#pragma once

#include "MarluneCLIProtocol/CLIRequest.h"
#include "MarluneCLIProtocol/CLIResponse.h"
#include "MarluneCLIProtocol/CLIWire.h"

#include <span>
#include <string>
#include <string_view>
#include <variant>

namespace marlune {

// What the server decides between reading a frame and calling a handler: either the request
// goes on, or this is the exact response to send back. The peer check comes before and is
// the server's own.
struct CLIRequestGate {
    using Outcome = std::variant<CLIRequest, CLIResponse>;

    // A frame that could not be read or decoded: E_USAGE "Malformed request.".
    static CLIResponse malformedRequest();
    // The peer is another user or not our tool: E_UNAUTHORIZED "Rejected peer.".
    static CLIResponse rejectedPeer();
    // The handler bridge found nothing to send: E_RUNTIME "No response produced.".
    static CLIResponse noResponseProduced();
    // The listener went away while the request waited: E_RUNTIME "Listener gone.".
    static CLIResponse listenerGone();

    // Decodes the payload, then checks the version, then the token (in constant time).
    static Outcome admitPayload(std::string_view payload, std::string_view expectedToken);

    // The same for what CLIWire::readFrame returned; any framing failure is malformed.
    static Outcome admitRead(const std::variant<std::string, CLIWireError>& frame,
                             std::string_view expectedToken);

    // The same for a buffer holding the whole frame.
    static Outcome admitFrame(std::span<const std::uint8_t> frame, std::string_view expectedToken);

    // An unknown command: E_USAGE "Unknown command '<name>'.". Names are compared exactly.
    static CLIResponse unknownCommand(std::string_view command);
};

} // namespace marlune
