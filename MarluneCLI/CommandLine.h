#pragma once

#include "MarluneCLIProtocol/CLIErrorPayload.h"
#include "MarluneCLIProtocol/CLIRequest.h"

#include <chrono>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace marlune {

// What the tool was asked to send: the request (token still empty) and how to treat it.
struct CLIInvocation {
    CLIRequest request;
    bool json = false;
    bool noLaunch = false;
    std::chrono::seconds replyTimeout{60};
    // The snippet content is to be read from this file ("-" is standard input) and put into
    // the arguments' `content` before sending; parsing stays free of input.
    std::optional<std::string> contentFile;
    // "clip import": the file whose clips go into the request.
    std::optional<std::string> clipsFile;
    // A library file for "data.import" ("-" is standard input), converted from `importFormat`
    // (detected when absent) into the document the request carries.
    std::optional<std::string> importFile;
    std::optional<std::string> importFormat;
    // "clip get --output": where the bytes of one flavour go ("-" is standard output), and
    // which flavour (by type; the first when absent).
    std::optional<std::string> flavourOutput;
    std::optional<std::string> flavourType;

    friend bool operator==(const CLIInvocation&, const CLIInvocation&) = default;
};

// Something the tool answers without the application: help, version, completion scripts.
struct LocalOutput {
    std::string text;
    int exitStatus = 0;

    friend bool operator==(const LocalOutput&, const LocalOutput&) = default;
};

// One node of the command tree, as the completion scripts need it.
struct CommandNode {
    struct Option {
        std::vector<std::string> names; // "--fill", "-h"
        bool takesValue = false;
        std::vector<std::string> choices;
        std::string description;
    };
    std::string name;
    std::string description;
    std::vector<Option> options;
    // Values the positional argument may take, when it is a closed set.
    std::vector<std::string> argumentChoices;
    std::vector<CommandNode> children;
};

// The tool's grammar: `marlune <noun> <verb> [refs] [--options]`. Parsing is pure; usage
// errors come back as E_USAGE payloads, never printed or thrown.
class CommandLine {
public:
    using Outcome = std::variant<CLIInvocation, LocalOutput, CLIErrorPayload>;

    // `arguments` excludes the program name.
    static Outcome parse(const std::vector<std::string>& arguments);

    static CommandNode tree();
};

} // namespace marlune
