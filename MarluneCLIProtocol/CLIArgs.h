#pragma once

#include "MarluneCLIProtocol/CLIErrorCode.h"
#include "MarluneCLIProtocol/CLIRecordCodec.h"
#include "MarluneCLIProtocol/CLIRequest.h"
#include "MarluneCLIProtocol/CLIResponse.h"

#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace marlune {

namespace cliwire_detail {

inline std::string describeAs(const CLIRecordError& error, std::string_view subject) {
    if (error.path().empty()) {
        return std::string(subject) + " " + error.problem();
    }
    return "'" + error.path() + "' " + error.problem();
}

} // namespace cliwire_detail

// Server side: the request's argument record, or the E_USAGE error to answer with, e.g.
// "Invalid arguments for 'snippet.get': 'ref' is missing.". Unknown keys are ignored.
template <class Args> std::variant<Args, CLIErrorPayload> decodeArgs(const CLIRequest& request) {
    try {
        return decodeWireText<Args>(request.argsJSON);
    } catch (const CLIRecordError& error) {
        return CLIErrorPayload{std::string(CLIErrorCode::usage),
                               "Invalid arguments for '" + request.command +
                                   "': " + cliwire_detail::describeAs(error, "the arguments") + ".",
                               std::nullopt};
    }
}

// Server side: a success carrying the result record.
template <class Result>
CLIResponse successResponse(const Result& result, std::vector<CLIWarningPayload> warnings = {}) {
    return CLIResponse::success(encodeWireText(result), std::move(warnings));
}

// Tool side: a request for `command` with its argument record.
template <class Args>
CLIRequest makeRequest(std::string_view command, const Args& args, std::string token) {
    CLIRequest request;
    request.token = std::move(token);
    request.command = std::string(command);
    request.argsJSON = encodeWireText(args);
    return request;
}

// Tool side: the result record, or the error to report (the response's own, "Response had no
// result payload.", or E_RUNTIME for a result that is not the expected record).
inline CLIErrorPayload unreadableResult(const CLIRecordError& error) {
    return CLIErrorPayload{std::string(CLIErrorCode::runtime),
                           "The application's result could not be read: " +
                               cliwire_detail::describeAs(error, "the result") + ".",
                           std::nullopt};
}

template <class Result>
std::variant<Result, CLIErrorPayload> decodeResult(const CLIResponse& response) {
    auto text = response.result();
    if (auto* error = std::get_if<CLIErrorPayload>(&text)) {
        return std::move(*error);
    }
    try {
        return decodeWireText<Result>(std::get<std::string_view>(text));
    } catch (const CLIRecordError& error) {
        return unreadableResult(error);
    }
}

// The same for a result that is an array of `Element`, handed to `each` one at a time; the
// error, if any, comes back instead (what `each` saw is then to be disregarded).
template <class Element, class Each>
std::optional<CLIErrorPayload> decodeResultEach(const CLIResponse& response, const Each& each) {
    auto text = response.result();
    if (auto* error = std::get_if<CLIErrorPayload>(&text)) {
        return std::move(*error);
    }
    try {
        decodeWireTextEach<Element>(std::get<std::string_view>(text), each);
        return std::nullopt;
    } catch (const CLIRecordError& error) {
        return unreadableResult(error);
    }
}

} // namespace marlune
