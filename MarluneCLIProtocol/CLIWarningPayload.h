#pragma once

#include "MarluneCLIProtocol/CLIRecordCodec.h"

#include <string>

namespace marlune {

// A note beside a successful result, such as "W_DUPLICATE_KEYWORD".
struct CLIWarningPayload {
    std::string code;
    std::string message;

    static constexpr auto fields() {
        return std::tuple{cliField("code", &CLIWarningPayload::code),
                          cliField("message", &CLIWarningPayload::message)};
    }
    friend bool operator==(const CLIWarningPayload&, const CLIWarningPayload&) = default;
};

} // namespace marlune
