#include "MarluneCLIProtocol/CLIErrorCode.h"

#include <utility>

namespace marlune::CLIErrorCode {

int exitStatus(std::string_view code) {
    static constexpr std::array<std::pair<std::string_view, int>, 12> table = {{
        {runtime, 1},
        {usage, 2},
        {notFound, 3},
        {appUnavailable, 4},
        {ambiguous, 5},
        {validation, 6},
        {capability, 7},
        {conflict, 8},
        {unauthorized, 9},
        {busy, 10},
        {likelySecret, 11},
        {timeout, 124},
    }};
    for (const auto& [name, status] : table) {
        if (name == code) {
            return status;
        }
    }
    return 1;
}

} // namespace marlune::CLIErrorCode
