#include "MarluneCLI/LibraryFileImport.h"

#include "LibraryImport/LibraryImporter.h"
#include "MarluneCLIProtocol/CLIErrorCode.h"
#include "MarluneCLIProtocol/CLIRecordCodec.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <span>
#include <sstream>

namespace marlune {

namespace {

CLIErrorPayload failure(std::string_view code, std::string message,
                        std::optional<std::string> hint = std::nullopt) {
    return {std::string(code), std::move(message), std::move(hint)};
}

std::optional<std::string> readFile(const std::string& path, std::string& problem) {
    std::error_code error;
    const auto size = std::filesystem::file_size(path, error);
    if (error) {
        problem = "Cannot read " + path + ".";
        return std::nullopt;
    }
    if (size > LibraryImporter::kMaxFileBytes) {
        problem = path + " is larger than Marlune will read.";
        return std::nullopt;
    }
    std::ifstream file(path, std::ios::binary);
    std::ostringstream contents;
    contents << file.rdbuf();
    if (!file || file.bad()) {
        problem = "Cannot read " + path + ".";
        return std::nullopt;
    }
    return contents.str();
}

} // namespace

std::variant<LibraryFileImport::Prepared, CLIErrorPayload> LibraryFileImport::prepare(
    CLIInvocation& invocation, const std::function<std::optional<std::string>()>& readStandardInput,
    const std::function<std::variant<std::string, CLIErrorPayload>()>& keywordPrefix) {
    const std::string& path = *invocation.importFile;
    std::optional<std::string> text;
    std::string problem = "Cannot read standard input.";
    if (path == "-") {
        text = readStandardInput ? readStandardInput() : std::nullopt;
    } else {
        text = readFile(path, problem);
    }
    if (!text) {
        return failure(CLIErrorCode::usage, problem);
    }
    const std::span<const std::uint8_t> bytes(reinterpret_cast<const std::uint8_t*>(text->data()),
                                              text->size());

    std::optional<ImportFormat> format;
    if (invocation.importFormat) {
        format = importFormatFromRaw(*invocation.importFormat);
    } else {
        auto detected = LibraryImporter::detect(path, bytes, true);
        if (auto* error = std::get_if<ImportError>(&detected)) {
            return failure(CLIErrorCode::validation, error->message(),
                           "Name its format with --format espanso, textexpander, raycast, "
                           "alfred or marlune.");
        }
        format = std::get<ImportFormat>(detected);
    }

    auto args = CLIJSON::parse(invocation.request.argsJSON);
    Prepared prepared;
    if (format == ImportFormat::marlune) {
        // The application reads its own document, and says why when it can't.
        args["document"] = std::move(*text);
    } else {
        auto prefix = keywordPrefix();
        if (auto* error = std::get_if<CLIErrorPayload>(&prefix)) {
            return std::move(*error);
        }
        ImportOptions options;
        options.keywordPrefix = std::get<std::string>(prefix);
        options.sourceName = std::filesystem::path(path).filename().string();
        options.now = std::chrono::time_point_cast<std::chrono::microseconds>(
            std::chrono::system_clock::now());
        auto converted = LibraryImporter::convert(path, bytes, options, format, true);
        if (auto* error = std::get_if<ImportError>(&converted)) {
            return failure(CLIErrorCode::validation, error->message());
        }
        auto& conversion = std::get<ImportConversion>(converted);
        args["document"] = encodeWireText(conversion.document);
        prepared.notes = std::move(conversion.warnings);
        prepared.skipped = conversion.skippedCount;
    }
    invocation.request.argsJSON = args.dump(-1, ' ', false, CLIJSON::error_handler_t::replace);
    return prepared;
}

} // namespace marlune
