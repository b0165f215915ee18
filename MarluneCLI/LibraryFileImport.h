#pragma once

#include "MarluneCLI/CommandLine.h"
#include "MarluneCLIProtocol/CLIErrorPayload.h"

#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace marlune {

// The tool's half of "data import FILE": it reads the file itself, and converts another tool's
// library into the document it sends, so that formats only the command line understands
// (espanso's YAML) need nothing in the application. The converter's notes are returned for the
// summary.
struct LibraryFileImport {
    struct Prepared {
        std::vector<std::string> notes;
        std::int64_t skipped = 0;
    };

    // `readStandardInput` serves the file "-"; `keywordPrefix` asks the application for the
    // user's prefix, and is only called for other tools' files.
    static std::variant<Prepared, CLIErrorPayload>
    prepare(CLIInvocation& invocation,
            const std::function<std::optional<std::string>()>& readStandardInput,
            const std::function<std::variant<std::string, CLIErrorPayload>()>& keywordPrefix);
};

} // namespace marlune
