#pragma once

#include "MarluneCLIProtocol/CLIErrorPayload.h"
#include "MarluneCLIProtocol/CLIResponse.h"

#include <string>
#include <string_view>

namespace marlune {

// What the tool writes for one answer, and the status it exits with.
struct ToolOutput {
    std::string out;
    std::string err;
    int exitStatus = 0;

    friend bool operator==(const ToolOutput&, const ToolOutput&) = default;
};

// Turns the application's answer into what a person (or, with --json, a script) reads:
// aligned tables for pages, "key: value" lines for single records, the rendered text alone
// for an expansion. Errors go to standard error and choose the exit status.
class OutputFormatter {
public:
    struct Options {
        bool json = false;
        // Standard output is a terminal: an expansion without a final newline gets one, so
        // that the prompt does not run on after it. Pipes receive the text exactly.
        bool terminal = false;
    };

    static ToolOutput format(std::string_view command, const CLIResponse& response,
                             Options options);

    // "marlune: <message>" and, when there is one, "hint: <hint>", with the code's status.
    static ToolOutput error(const CLIErrorPayload& error);
};

} // namespace marlune
