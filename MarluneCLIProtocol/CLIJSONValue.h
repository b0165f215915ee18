#pragma once

#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <variant>

namespace marlune {

// A scalar carried where the wire has to hold a setting of any of the four kinds. It travels
// as the bare JSON scalar, never wrapped in an object naming its case.
struct CLIJSONValue {
    std::variant<std::nullptr_t, bool, std::int64_t, std::string> value;

    static CLIJSONValue null() { return {}; }
    static CLIJSONValue boolean(bool b) { return {b}; }
    static CLIJSONValue integer(std::int64_t i) { return {i}; }
    static CLIJSONValue string(std::string s) { return {std::move(s)}; }

    // Tries null, Boolean, integer, string in that order; a fractional number, an integer
    // outside the signed 64-bit range, an array or an object is refused.
    template <class Json> static std::optional<CLIJSONValue> fromJSON(const Json& json);

    template <class Json = nlohmann::ordered_json> Json toJSON() const {
        return std::visit([](const auto& v) { return Json(v); }, value);
    }

    bool isNull() const { return std::holds_alternative<std::nullptr_t>(value); }

    friend bool operator==(const CLIJSONValue&, const CLIJSONValue&) = default;
};

template <class Json> std::optional<CLIJSONValue> CLIJSONValue::fromJSON(const Json& json) {
    if (json.is_null()) {
        return null();
    }
    if (json.is_boolean()) {
        return boolean(json.template get<bool>());
    }
    if (json.is_number_unsigned()) {
        const auto u = json.template get<std::uint64_t>();
        if (u > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
            return std::nullopt;
        }
        return integer(static_cast<std::int64_t>(u));
    }
    if (json.is_number_integer()) {
        return integer(json.template get<std::int64_t>());
    }
    if (json.is_string()) {
        return string(json.template get<std::string>());
    }
    return std::nullopt;
}

} // namespace marlune
