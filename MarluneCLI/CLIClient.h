#pragma once

#include "MarluneCLIProtocol/CLIEndpoint.h"
#include "MarluneCLIProtocol/CLIErrorPayload.h"
#include "MarluneCLIProtocol/CLIRequest.h"
#include "MarluneCLIProtocol/CLIResponse.h"

#include <chrono>
#include <filesystem>
#include <variant>

namespace marlune {

// How the tool reaches the application.
struct CLIClientSettings {
    CLIEndpoint endpoint;
    // Fail at once when nobody serves the socket instead of starting the application.
    bool noLaunch = false;
    std::filesystem::path appExecutable;
    bool headless = false;
    // A local connect either succeeds at once or the listen queue is full; two seconds of a
    // full queue means the application is stuck behind other requests.
    std::chrono::milliseconds connectTimeout{2000};
    // Expansions may wait on a local model, so the answer gets far longer than the connect.
    std::chrono::milliseconds replyTimeout{60'000};
    std::chrono::milliseconds launchWait{5000};
};

// Sends one request over one connection and returns the application's response, or the
// client-side failure (application unavailable, busy, timed out, unreadable answer).
class CLIClient {
public:
    explicit CLIClient(CLIClientSettings settings) : settings_(std::move(settings)) {}

    // Fills in the token and the tool's process id.
    std::variant<CLIResponse, CLIErrorPayload> send(CLIRequest request) const;

private:
    CLIClientSettings settings_;
};

} // namespace marlune
