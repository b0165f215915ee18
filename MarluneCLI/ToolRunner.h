#pragma once

#include "MarluneCLI/OutputFormatter.h"
#include "MarluneCLIProtocol/CLIEndpoint.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace marlune {

// Everything the tool takes from the process it runs in, so that a test can run it whole.
struct ToolEnvironment {
    CLIEndpoint::Environment variables;
    std::filesystem::path appExecutable;
    bool stdoutIsTerminal = false;
    // All of standard input, for --content-file -; nothing when it cannot be read.
    std::function<std::optional<std::string>()> readStandardInput;
    std::chrono::milliseconds launchWait{5000};
};

// One run of `marlune`: parse, ask the application, format. Writes nothing itself.
struct ToolRunner {
    static ToolOutput run(const std::vector<std::string>& arguments,
                          const ToolEnvironment& environment);
};

} // namespace marlune
