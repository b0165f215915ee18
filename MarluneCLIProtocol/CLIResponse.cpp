#include "MarluneCLIProtocol/CLIResponse.h"

#include "MarluneCLIProtocol/CLIBase64.h"
#include "MarluneCLIProtocol/CLIErrorCode.h"

namespace marlune {

namespace {

// The result record's JSON text as it travels, in Base64, encoded straight into the response
// text and decoded straight from it: a large listing is not copied once more on either side.
struct Base64Out {
    std::string_view bytes;
    static void writeWireJSON(std::string& out, const Base64Out& value) {
        out += '"';
        CLIBase64::appendEncoded(out, value.bytes);
        out += '"';
    }
    static void readWireJSON(CLIJSONReader&, Base64Out&) {}
};

struct Base64In {
    std::string bytes;
    static void writeWireJSON(std::string&, const Base64In&) {}
    static void readWireJSON(CLIJSONReader& in, Base64In& value) {
        if (in.peek() != CLIJSONReader::Kind::string) {
            throw CLIRecordError({}, "must be a string");
        }
        std::string scratch;
        auto decoded = CLIBase64::decode(in.readStringView(scratch));
        if (!decoded) {
            throw CLIRecordError({}, "must be Base64 text");
        }
        value.bytes = std::move(*decoded);
    }
};

// The response as it travels.
template <class Payload> struct ResponseWire {
    std::int64_t v = 0;
    bool ok = false;
    std::optional<Payload> resultJSON;
    std::optional<CLIErrorPayload> error;
    std::vector<CLIWarningPayload> warnings;

    static constexpr auto fields() {
        return std::tuple{cliField("v", &ResponseWire::v), cliField("ok", &ResponseWire::ok),
                          cliField("resultJSON", &ResponseWire::resultJSON),
                          cliField("error", &ResponseWire::error),
                          cliField("warnings", &ResponseWire::warnings)};
    }
};

} // namespace

CLIResponse CLIResponse::success(std::string resultJSON, std::vector<CLIWarningPayload> warnings) {
    return {cliProtocolVersion, true, std::move(resultJSON), std::nullopt, std::move(warnings)};
}

CLIResponse CLIResponse::failure(CLIErrorPayload error) {
    return {cliProtocolVersion, false, std::nullopt, std::move(error), {}};
}

CLIResponse CLIResponse::failure(std::string_view code, std::string message,
                                 std::optional<std::string> hint) {
    return failure(CLIErrorPayload{std::string(code), std::move(message), std::move(hint)});
}

std::string CLIResponse::encode() const {
    ResponseWire<Base64Out> wire{v, ok, std::nullopt, error, warnings};
    std::size_t expectedSize = 1024;
    if (resultJSON) {
        wire.resultJSON = Base64Out{*resultJSON};
        expectedSize += (resultJSON->size() + 2) / 3 * 4;
    }
    return encodeWireText(wire, expectedSize);
}

std::optional<CLIResponse> CLIResponse::decode(std::string_view payload) {
    ResponseWire<Base64In> wire;
    try {
        wire = decodeWireText<ResponseWire<Base64In>>(payload);
    } catch (const CLIRecordError&) {
        return std::nullopt;
    }
    std::optional<std::string> result;
    if (wire.resultJSON) {
        result = std::move(wire.resultJSON->bytes);
    }
    return CLIResponse{wire.v, wire.ok, std::move(result), std::move(wire.error),
                       std::move(wire.warnings)};
}

std::variant<std::string_view, CLIErrorPayload> CLIResponse::result() const {
    if (!ok) {
        if (error) {
            return *error;
        }
        return CLIErrorPayload{std::string(CLIErrorCode::runtime),
                               "The command failed without saying why.", std::nullopt};
    }
    if (!resultJSON) {
        return CLIErrorPayload{std::string(CLIErrorCode::runtime),
                               "Response had no result payload.", std::nullopt};
    }
    return *resultJSON;
}

} // namespace marlune
