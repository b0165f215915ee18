#include "MarluneCLI/ToolRunner.h"

#include "MarluneCLI/CLIClient.h"
#include "MarluneCLI/CommandLine.h"
#include "MarluneCLI/LibraryFileImport.h"
#include "MarluneCLI/PiecedFetch.h"
#include "MarluneCLIProtocol/CLIArgs.h"
#include "MarluneCLIProtocol/CLICommandName.h"
#include "MarluneCLIProtocol/CLIErrorCode.h"
#include "MarluneCLIProtocol/CLIRecordCodec.h"
#include "MarluneCLIProtocol/SystemRecords.h"
#include "MarluneCore/ContentLimits.h"

#include <array>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <variant>

namespace marlune {

namespace {

// The whole of `path` ('-' for standard input), or the usage error that says why not.
std::variant<std::string, CLIErrorPayload> readInput(const std::string& path,
                                                     const ToolEnvironment& environment) {
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
    return std::move(*text);
}

void setArgument(CLIInvocation& invocation, const char* name, CLIJSON value) {
    auto args = CLIJSON::parse(invocation.request.argsJSON);
    args[name] = std::move(value);
    invocation.request.argsJSON = args.dump(-1, ' ', false, CLIJSON::error_handler_t::replace);
}

std::optional<CLIErrorPayload> refuseLongBody(std::uint64_t size) {
    auto refusal = ContentLimits::refusal("snippet body", size, ContentLimits::snippetBodyBytes);
    if (!refusal) {
        return std::nullopt;
    }
    return CLIErrorPayload{std::string(CLIErrorCode::validation), std::move(*refusal),
                           std::string("Shorten the body, or split it into several snippets.")};
}

// The bytes of `path` while they fit the snippet body limit; past it only their number, read
// and let go, so that a pipe with no end in sight does not fill the memory. Nothing when the
// file cannot be read.
std::optional<std::pair<std::string, std::uint64_t>> readBoundedBody(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        return std::nullopt;
    }
    std::string kept;
    std::uint64_t size = 0;
    std::array<char, 64 * 1024> buffer{};
    while (file.read(buffer.data(), buffer.size()) || file.gcount() > 0) {
        const auto count = static_cast<std::size_t>(file.gcount());
        size += count;
        if (size <= ContentLimits::snippetBodyBytes) {
            kept.append(buffer.data(), count);
        } else if (!kept.empty()) {
            std::string().swap(kept);
        }
    }
    if (file.bad()) {
        return std::nullopt;
    }
    return std::pair{std::move(kept), size};
}

// --content-file: the snippet body. A file over the body limit is refused from its size before
// any of it is read, rather than after the application has been sent it.
std::variant<std::string, CLIErrorPayload> readBody(const std::string& path,
                                                    const ToolEnvironment& environment) {
    if (path == "-") {
        auto text = readInput(path, environment);
        if (const auto* body = std::get_if<std::string>(&text)) {
            if (auto refusal = refuseLongBody(body->size())) {
                return std::move(*refusal);
            }
        }
        return text;
    }
    std::error_code error;
    if (std::filesystem::is_regular_file(path, error)) {
        const auto size = std::filesystem::file_size(path, error);
        auto refusal = error ? std::nullopt : refuseLongBody(size);
        if (refusal) {
            return std::move(*refusal);
        }
    }
    auto body = readBoundedBody(path);
    if (!body) {
        return CLIErrorPayload{std::string(CLIErrorCode::usage), "Cannot read " + path + ".",
                               std::nullopt};
    }
    if (auto refusal = refuseLongBody(body->second)) {
        return std::move(*refusal);
    }
    return std::move(body->first);
}

std::optional<CLIErrorPayload> insertContent(CLIInvocation& invocation,
                                             const ToolEnvironment& environment) {
    auto text = readBody(*invocation.contentFile, environment);
    if (auto* error = std::get_if<CLIErrorPayload>(&text)) {
        return std::move(*error);
    }
    setArgument(invocation, "content", std::move(std::get<std::string>(text)));
    return std::nullopt;
}

// A list of clips, or an object holding one under "clips" (as an export of clips has it).
std::optional<CLIErrorPayload> insertClips(CLIInvocation& invocation,
                                           const ToolEnvironment& environment) {
    const std::string& path = *invocation.clipsFile;
    auto text = readInput(path, environment);
    if (auto* error = std::get_if<CLIErrorPayload>(&text)) {
        return std::move(*error);
    }
    auto document = CLIJSON::parse(std::get<std::string>(text), nullptr, false);
    if (document.is_object() && document.contains("clips")) {
        document = std::move(document["clips"]);
    }
    if (!document.is_array()) {
        return CLIErrorPayload{std::string(CLIErrorCode::usage),
                               (path == "-" ? std::string("Standard input") : path) +
                                   " is not a list of clips.",
                               std::string("Give a JSON list of clips, as `marlune clip get "
                                           "--json` prints each, or an object with that list "
                                           "under \"clips\".")};
    }
    // A hand-written list may leave out what the application works out itself (the id, the
    // fingerprint, the dates, the counts); a listing from `clip get --json` has them all.
    for (auto& clip : document) {
        if (!clip.is_object()) {
            continue;
        }
        const std::pair<const char*, CLIJSON> defaults[] = {{"id", ""},
                                                            {"previewText", ""},
                                                            {"contentHash", ""},
                                                            {"createdAt", ""},
                                                            {"isPinned", false},
                                                            {"recopyCount", 0},
                                                            {"promotionHandled", false},
                                                            {"pinboards", CLIJSON::array()},
                                                            {"tags", CLIJSON::array()},
                                                            {"representations", CLIJSON::array()}};
        for (const auto& [key, value] : defaults) {
            if (!clip.contains(key)) {
                clip[key] = value;
            }
        }
        for (auto& representation : clip["representations"]) {
            if (representation.is_object() && !representation.contains("hasText")) {
                representation["hasText"] = representation.contains("text");
            }
        }
    }
    setArgument(invocation, "clips", std::move(document));
    return std::nullopt;
}

// "clip get --output": one flavour's bytes, whole, to a file or standard output.
ToolOutput writeFlavour(const PiecedFetch& fetch, const CLIInvocation& invocation) {
    auto bytes = fetch.flavour(invocation.request, invocation.flavourType.value_or(""));
    if (auto* error = std::get_if<CLIErrorPayload>(&bytes)) {
        return OutputFormatter::error(*error);
    }
    auto& data = std::get<std::string>(bytes);
    const std::string& path = *invocation.flavourOutput;
    if (path == "-") {
        return {std::move(data), {}, 0};
    }
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!file.write(data.data(), static_cast<std::streamsize>(data.size())) || !file.flush()) {
        return OutputFormatter::error(CLIErrorPayload{std::string(CLIErrorCode::usage),
                                                      "Cannot write " + path + ".", std::nullopt});
    }
    return {"Wrote " + std::to_string(data.size()) + " bytes to " + path + ".\n", {}, 0};
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
    if (invocation.clipsFile) {
        if (auto error = insertClips(invocation, environment)) {
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

    // --- data begin
    // A data import sends the file's content, converted here when another tool wrote it.
    std::vector<std::string> importNotes;
    if (invocation.importFile) {
        const auto askPrefix = [&settings]() -> std::variant<std::string, CLIErrorPayload> {
            ConfigGetArgs args;
            args.key = "keywordPrefix";
            auto reply = CLIClient(settings).send(makeRequest(CLICommandName::configGet, args, {}));
            if (auto* error = std::get_if<CLIErrorPayload>(&reply)) {
                return std::move(*error);
            }
            auto entry = decodeResult<ConfigEntryDTO>(std::get<CLIResponse>(reply));
            if (auto* error = std::get_if<CLIErrorPayload>(&entry)) {
                return std::move(*error);
            }
            const auto& value = std::get<ConfigEntryDTO>(entry).value.value;
            const auto* prefix = std::get_if<std::string>(&value);
            return prefix ? *prefix : std::string(";");
        };
        auto prepared =
            LibraryFileImport::prepare(invocation, environment.readStandardInput, askPrefix);
        if (auto* error = std::get_if<CLIErrorPayload>(&prepared)) {
            return OutputFormatter::error(*error);
        }
        importNotes = std::move(std::get<LibraryFileImport::Prepared>(prepared).notes);
    }
    // --- data end

    const std::string command = invocation.request.command;
    const PiecedFetch fetch([client = CLIClient(std::move(settings))](CLIRequest request) {
        return client.send(std::move(request));
    });
    if (invocation.flavourOutput) {
        return writeFlavour(fetch, invocation);
    }
    auto answer = command == CLICommandName::dataExport ? fetch.exportDocument(invocation.request)
                  : command == CLICommandName::clipGet  ? fetch.clip(invocation.request)
                                                        : fetch.send(std::move(invocation.request));
    if (auto* error = std::get_if<CLIErrorPayload>(&answer)) {
        return OutputFormatter::error(*error);
    }
    // --- data begin
    if (auto& response = std::get<CLIResponse>(answer); response.ok) {
        for (auto& note : importNotes) {
            response.warnings.push_back({"W_IMPORT_NOTE", std::move(note)});
        }
    }
    // --- data end
    return OutputFormatter::format(command, std::get<CLIResponse>(answer),
                                   {invocation.json, environment.stdoutIsTerminal});
}

} // namespace marlune
