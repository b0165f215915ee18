#include "MarluneCLI/ToolRunner.h"

#include "MarluneCLI/CLIClient.h"
#include "MarluneCLI/CommandLine.h"
#include "MarluneCLIProtocol/CLIErrorCode.h"
#include "MarluneCLIProtocol/CLIRecordCodec.h"

#include <fstream>
#include <sstream>

namespace marlune {

namespace {

std::optional<CLIErrorPayload> insertContent(CLIInvocation& invocation,
                                             const ToolEnvironment& environment) {
    const std::string& path = *invocation.contentFile;
    std::optional<std::string> text;
    if (path == "-") {
        if (environment.readStandardInput) {
            text = environment.readStandardInput();
        }
    } else {
        std::ifstream file(path, std::ios::binary);
        if (file) {
            std::ostringstream contents;
            contents << file.rdbuf();
            if (!file.bad()) {
                text = contents.str();
            }
        }
    }
    if (!text) {
        return CLIErrorPayload{std::string(CLIErrorCode::usage),
                               path == "-" ? std::string("Cannot read standard input.")
                                           : "Cannot read " + path + ".",
                               std::nullopt};
    }
    auto args = CLIJSON::parse(invocation.request.argsJSON);
    args["content"] = std::move(*text);
    invocation.request.argsJSON = args.dump(-1, ' ', false, CLIJSON::error_handler_t::replace);
    return std::nullopt;
}

} // namespace

ToolOutput ToolRunner::run(const std::vector<std::string>& arguments,
                           const ToolEnvironment& environment) {
    auto parsed = CommandLine::parse(arguments);
    if (auto* local = std::get_if<LocalOutput>(&parsed)) {
        return {std::move(local->text), {}, local->exitStatus};
    }
    if (auto* error = std::get_if<CLIErrorPayload>(&parsed)) {
        return OutputFormatter::error(*error);
    }
    auto& invocation = std::get<CLIInvocation>(parsed);
    if (invocation.contentFile) {
        if (auto error = insertContent(invocation, environment)) {
            return OutputFormatter::error(*error);
        }
    }

    CLIClientSettings settings;
    try {
        settings.endpoint = CLIEndpoint::resolve(environment.variables);
    } catch (const CLIError& error) {
        return OutputFormatter::error(error.payload());
    }
    settings.noLaunch = invocation.noLaunch;
    settings.appExecutable = environment.appExecutable;
    settings.headless = !environment.variables("DISPLAY");
    settings.replyTimeout = invocation.replyTimeout;
    settings.launchWait = environment.launchWait;

    const std::string command = invocation.request.command;
    auto answer = CLIClient(std::move(settings)).send(std::move(invocation.request));
    if (auto* error = std::get_if<CLIErrorPayload>(&answer)) {
        return OutputFormatter::error(*error);
    }
    return OutputFormatter::format(command, std::get<CLIResponse>(answer),
                                   {invocation.json, environment.stdoutIsTerminal});
}

} // namespace marlune
