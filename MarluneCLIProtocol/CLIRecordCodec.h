#pragma once

#include "MarluneCLIProtocol/CLIDateFormat.h"
#include "MarluneCLIProtocol/CLIJSONValue.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace marlune {

// Records are written with their keys in declaration order. Outside text is read into the
// map-backed document instead: the insertion-ordered one looks keys up linearly, which a
// request with a million keys would turn into a quadratic parse.
using CLIJSON = nlohmann::ordered_json;
using CLIJSONInput = nlohmann::json;

// Deeper nesting than any record needs is refused before parsing.
inline constexpr std::size_t cliMaxJSONDepth = 512;

// A record that could not be decoded: where (a key path such as "tags[1].name") and what.
class CLIRecordError : public std::runtime_error {
public:
    CLIRecordError(std::string path, std::string problem)
        : std::runtime_error(describe(path, problem)), path_(std::move(path)),
          problem_(std::move(problem)) {}

    const std::string& path() const { return path_; }
    const std::string& problem() const { return problem_; }

    // The same failure seen from the record that holds this one under `key` (or "[index]").
    CLIRecordError within(const std::string& key) const {
        if (path_.empty()) {
            return {key, problem_};
        }
        return {key + (path_.front() == '[' ? "" : ".") + path_, problem_};
    }

private:
    static std::string describe(const std::string& path, const std::string& problem) {
        return path.empty() ? problem : "'" + path + "' " + problem;
    }

    std::string path_;
    std::string problem_;
};

// One key of a record, bound to its member. A record lists its keys, in wire order, in a
// static `fields()` function; `std::optional` members are omitted when absent and read as
// absent when missing or null. Keys a record does not list are ignored on reading.
template <class Record, class Member> struct CLIField {
    const char* key;
    Member Record::*member;
};

template <class Record, class Member>
constexpr CLIField<Record, Member> cliField(const char* key, Member Record::*member) {
    return {key, member};
}

template <class T>
concept CLIRecord = requires {
    T::fields();
};

namespace cliwire_detail {

template <class T> struct IsOptional : std::false_type {};
template <class T> struct IsOptional<std::optional<T>> : std::true_type {};
template <class T> struct IsVector : std::false_type {};
template <class T> struct IsVector<std::vector<T>> : std::true_type {};
template <class T> struct IsStringMap : std::false_type {};
template <class T> struct IsStringMap<std::map<std::string, T>> : std::true_type {};

} // namespace cliwire_detail

template <class Json = CLIJSON, class T> Json encodeWire(const T& value);
template <class Json, class T> void decodeWire(const Json& json, T& out);

namespace cliwire_detail {

template <class Json, class Record, class Member>
void encodeField(Json& object, const Record& record, const CLIField<Record, Member>& field) {
    const Member& member = record.*(field.member);
    if constexpr (IsOptional<Member>::value) {
        if (member) {
            object[field.key] = encodeWire<Json>(*member);
        }
    } else {
        object[field.key] = encodeWire<Json>(member);
    }
}

template <class Json, class T> void decodeAt(const Json& json, T& out, const std::string& key) {
    try {
        decodeWire(json, out);
    } catch (const CLIRecordError& error) {
        throw error.within(key);
    }
}

template <class Json, class Record, class Member>
void decodeField(const Json& object, Record& record, const CLIField<Record, Member>& field) {
    Member& member = record.*(field.member);
    const auto found = object.find(field.key);
    if constexpr (IsOptional<Member>::value) {
        if (found == object.end() || found->is_null()) {
            member.reset();
            return;
        }
        typename Member::value_type value{};
        decodeAt(*found, value, field.key);
        member = std::move(value);
    } else {
        if (found == object.end()) {
            throw CLIRecordError(field.key, "is missing");
        }
        decodeAt(*found, member, field.key);
    }
}

template <class Json> std::int64_t decodeInteger(const Json& json) {
    if (json.is_number_unsigned()) {
        const auto u = json.template get<std::uint64_t>();
        if (u <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
            return static_cast<std::int64_t>(u);
        }
    } else if (json.is_number_integer()) {
        return json.template get<std::int64_t>();
    }
    throw CLIRecordError({}, "must be an integer");
}

} // namespace cliwire_detail

template <class Json, class T> Json encodeWire(const T& value) {
    using namespace cliwire_detail;
    if constexpr (CLIRecord<T>) {
        Json object = Json::object();
        std::apply([&](const auto&... field) { (encodeField(object, value, field), ...); },
                   T::fields());
        return object;
    } else if constexpr (std::is_same_v<T, CLIDate>) {
        return CLIDateFormat::format(value);
    } else if constexpr (std::is_same_v<T, CLIJSONValue>) {
        return value.template toJSON<Json>();
    } else if constexpr (IsVector<T>::value) {
        Json array = Json::array();
        for (const auto& element : value) {
            array.push_back(encodeWire<Json>(element));
        }
        return array;
    } else if constexpr (IsStringMap<T>::value) {
        Json object = Json::object();
        for (const auto& [key, element] : value) {
            object[key] = encodeWire<Json>(element);
        }
        return object;
    } else {
        static_assert(std::is_same_v<T, std::string> || std::is_same_v<T, bool> ||
                          std::is_same_v<T, std::int64_t> || std::is_same_v<T, std::int32_t> ||
                          std::is_same_v<T, double>,
                      "not a wire type");
        return Json(value);
    }
}

template <class Json, class T> void decodeWire(const Json& json, T& out) {
    using namespace cliwire_detail;
    if constexpr (CLIRecord<T>) {
        if (!json.is_object()) {
            throw CLIRecordError({}, "must be an object");
        }
        std::apply([&](const auto&... field) { (decodeField(json, out, field), ...); },
                   T::fields());
    } else if constexpr (std::is_same_v<T, CLIDate>) {
        std::optional<CLIDate> date;
        if (json.is_string()) {
            date = CLIDateFormat::parse(json.template get_ref<const std::string&>());
        }
        if (!date) {
            throw CLIRecordError({}, "must be a date such as 2026-03-04T05:06:07Z");
        }
        out = *date;
    } else if constexpr (std::is_same_v<T, CLIJSONValue>) {
        auto value = CLIJSONValue::fromJSON(json);
        if (!value) {
            throw CLIRecordError({}, "must be null, a Boolean, an integer or a string");
        }
        out = std::move(*value);
    } else if constexpr (IsVector<T>::value) {
        if (!json.is_array()) {
            throw CLIRecordError({}, "must be an array");
        }
        out.clear();
        out.reserve(json.size());
        for (std::size_t i = 0; i < json.size(); ++i) {
            typename T::value_type element{};
            decodeAt(json[i], element, "[" + std::to_string(i) + "]");
            out.push_back(std::move(element));
        }
    } else if constexpr (IsStringMap<T>::value) {
        if (!json.is_object()) {
            throw CLIRecordError({}, "must be an object");
        }
        out.clear();
        for (auto it = json.begin(); it != json.end(); ++it) {
            typename T::mapped_type element{};
            decodeAt(it.value(), element, it.key());
            out.emplace(it.key(), std::move(element));
        }
    } else if constexpr (std::is_same_v<T, std::string>) {
        if (!json.is_string()) {
            throw CLIRecordError({}, "must be a string");
        }
        out = json.template get_ref<const std::string&>();
    } else if constexpr (std::is_same_v<T, bool>) {
        if (!json.is_boolean()) {
            throw CLIRecordError({}, "must be a Boolean");
        }
        out = json.template get<bool>();
    } else if constexpr (std::is_same_v<T, std::int64_t>) {
        out = decodeInteger(json);
    } else if constexpr (std::is_same_v<T, std::int32_t>) {
        const std::int64_t wide = decodeInteger(json);
        if (wide < std::numeric_limits<std::int32_t>::min() ||
            wide > std::numeric_limits<std::int32_t>::max()) {
            throw CLIRecordError({}, "must be a 32-bit integer");
        }
        out = static_cast<std::int32_t>(wide);
    } else {
        static_assert(std::is_same_v<T, double>, "not a wire type");
        // A literal too large for a double parses as infinity, which JSON cannot write back.
        if (!json.is_number() || !std::isfinite(json.template get<double>())) {
            throw CLIRecordError({}, "must be a number");
        }
        out = json.template get<double>();
    }
}

// nlohmann's conversion hooks, so that records also work with `json = record` and
// `json.get<Record>()`.
template <CLIRecord T> void to_json(CLIJSON& json, const T& value) {
    json = encodeWire<CLIJSON>(value);
}
template <CLIRecord T> void to_json(CLIJSONInput& json, const T& value) {
    json = encodeWire<CLIJSONInput>(value);
}
template <CLIRecord T> void from_json(const CLIJSON& json, T& value) {
    decodeWire(json, value);
}
template <CLIRecord T> void from_json(const CLIJSONInput& json, T& value) {
    decodeWire(json, value);
}

// Parses outside text: nesting deeper than cliMaxJSONDepth, invalid UTF-8, trailing bytes and
// anything else that is not one JSON document yield nothing.
std::optional<CLIJSONInput> parseWireJSON(std::string_view text);

// Compact JSON text of a wire value; invalid UTF-8 in a string is replaced, never thrown.
template <class T> std::string encodeWireText(const T& value) {
    return encodeWire<CLIJSON>(value).dump(-1, ' ', false, CLIJSON::error_handler_t::replace);
}

// Throws CLIRecordError ("must be a JSON document" for text that does not parse).
template <class T> T decodeWireText(std::string_view text) {
    const auto json = parseWireJSON(text);
    if (!json) {
        throw CLIRecordError({}, "must be a JSON document");
    }
    T value{};
    decodeWire(*json, value);
    return value;
}

} // namespace marlune
