#pragma once

#include "MarluneCLIProtocol/CLIDateFormat.h"
#include "MarluneCLIProtocol/DataRecords.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace marlune {

// Where a library file came from.
enum class ImportFormat { marlune, espanso, textexpander, raycast, alfred };

// "marlune", "textexpander", ... as `--format` takes them.
std::string_view rawValue(ImportFormat format);
std::optional<ImportFormat> importFormatFromRaw(std::string_view raw);
// The name people know the tool by, as messages use it.
std::string_view displayName(ImportFormat format);

struct ImportOptions {
    // The user's keyword prefix: keywords are stored without it.
    std::string keywordPrefix = ";";
    // The file's name, for the collection's group name where the file has no other.
    std::string sourceName;
    // Every created and updated date of the converted records.
    CLIDate now{};
};

// A foreign library as the application's own document, with the notes on everything that
// did not come across exactly.
struct ImportConversion {
    ImportFormat format = ImportFormat::marlune;
    DataDocumentDTO document;
    std::vector<std::string> warnings;
    std::int64_t skippedCount = 0;
};

// Why a file can't be imported at all. `message()` is the sentence shown to the user.
struct ImportError {
    enum class Kind { invalidFile, noSnippets, needsCLI, unrecognized, notText };

    Kind kind = Kind::unrecognized;
    ImportFormat format = ImportFormat::marlune;
    // For invalidFile: the reason, as it follows "That isn't a valid <format> file: ".
    std::string reason;

    static ImportError invalidFile(ImportFormat format, std::string reason) {
        return {Kind::invalidFile, format, std::move(reason)};
    }
    static ImportError noSnippets(ImportFormat format) { return {Kind::noSnippets, format, {}}; }
    static ImportError needsCLI(ImportFormat format) { return {Kind::needsCLI, format, {}}; }
    static ImportError unrecognized() { return {Kind::unrecognized, ImportFormat::marlune, {}}; }
    static ImportError notText(ImportFormat format) { return {Kind::notText, format, {}}; }

    std::string message() const;

    friend bool operator==(const ImportError&, const ImportError&) = default;
};

using ImportOutcome = std::variant<ImportConversion, ImportError>;

} // namespace marlune
