#pragma once

// A record with one member of every wire shape, and the document-based decoder the streaming
// one must agree with: the same value, or the same failure with the same path.

#include "MarluneCLIProtocol/CLIRecordCodec.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <variant>
#include <vector>

namespace marlune::testing {

struct WireProbeInner {
    std::string name;
    std::optional<std::int64_t> count;

    static constexpr auto fields() {
        return std::tuple{cliField("name", &WireProbeInner::name),
                          cliField("count", &WireProbeInner::count)};
    }
    friend bool operator==(const WireProbeInner&, const WireProbeInner&) = default;
};

struct WireProbe {
    std::string text;
    bool flag = false;
    std::int64_t wide = 0;
    std::optional<std::int32_t> narrow;
    std::optional<double> real;
    std::optional<std::string> note;
    std::vector<std::string> tags;
    std::map<std::string, std::int64_t> counts;
    std::optional<WireProbeInner> inner;
    std::vector<WireProbeInner> list;
    std::optional<CLIJSONValue> setting;
    std::optional<CLIDate> when;

    static constexpr auto fields() {
        return std::tuple{
            cliField("text", &WireProbe::text),       cliField("flag", &WireProbe::flag),
            cliField("wide", &WireProbe::wide),       cliField("narrow", &WireProbe::narrow),
            cliField("real", &WireProbe::real),       cliField("note", &WireProbe::note),
            cliField("tags", &WireProbe::tags),       cliField("counts", &WireProbe::counts),
            cliField("inner", &WireProbe::inner),     cliField("list", &WireProbe::list),
            cliField("setting", &WireProbe::setting), cliField("when", &WireProbe::when)};
    }
    friend bool operator==(const WireProbe&, const WireProbe&) = default;
};

// The value, or the failure's text.
template <class T> using WireOutcome = std::variant<T, std::string>;

template <class T> WireOutcome<T> decodeThroughDocument(std::string_view text) {
    const auto json = parseWireJSON(text);
    if (!json) {
        return std::string("must be a JSON document");
    }
    T value{};
    try {
        decodeWire(*json, value);
    } catch (const CLIRecordError& error) {
        return std::string(error.what());
    }
    return value;
}

template <class T> WireOutcome<T> decodeStreaming(std::string_view text) {
    try {
        return decodeWireText<T>(text);
    } catch (const CLIRecordError& error) {
        return std::string(error.what());
    }
}

template <class T> std::string encodeThroughDocument(const T& value) {
    return encodeWire<CLIJSON>(value).dump(-1, ' ', false, CLIJSON::error_handler_t::replace);
}

// The text indented through the ordered document, or nothing when it does not parse.
inline std::optional<std::string> indentThroughDocument(std::string_view text) {
    if (!parseWireJSON(text)) {
        return std::nullopt;
    }
    const auto ordered = CLIJSON::parse(text, nullptr, false);
    return ordered.dump(2, ' ', false, CLIJSON::error_handler_t::replace);
}

} // namespace marlune::testing
