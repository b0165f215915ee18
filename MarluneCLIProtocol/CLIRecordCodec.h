#pragma once

#include "MarluneCLIProtocol/CLIDateFormat.h"
#include "MarluneCLIProtocol/CLIJSONText.h"
#include "MarluneCLIProtocol/CLIJSONValue.h"

#include <algorithm>
#include <array>
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
#include <variant>
#include <vector>

namespace marlune {

// Records are written with their keys in declaration order. Outside text is read into the
// map-backed document instead: the insertion-ordered one looks keys up linearly, which a
// request with a million keys would turn into a quadratic parse.
using CLIJSON = nlohmann::ordered_json;
using CLIJSONInput = nlohmann::json;

// Deeper nesting than any record needs is refused before parsing.
inline constexpr std::size_t cliMaxJSONDepth = 512;

// The most room a long array's text reserves ahead of its elements: a frame's worth (more
// could never be sent); past it the text grows as it is written.
inline constexpr std::size_t cliMaxWriteAhead = std::size_t{16} << 20;

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
// absent when missing or null. Keys a record does not list are ignored on reading. Keys are
// ASCII identifiers, written as they stand.
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

class CLIJSONReader;

// A value that writes and reads its own JSON text (only through the streaming codec), for
// payloads too large to go through an intermediate copy.
template <class T>
concept CLIWireText = requires(std::string& out, const T& value, CLIJSONReader& in, T& into) {
    T::writeWireJSON(out, value);
    T::readWireJSON(in, into);
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

inline std::int32_t narrowTo32Bits(std::int64_t wide) {
    if (wide < std::numeric_limits<std::int32_t>::min() ||
        wide > std::numeric_limits<std::int32_t>::max()) {
        throw CLIRecordError({}, "must be a 32-bit integer");
    }
    return static_cast<std::int32_t>(wide);
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
        out = narrowTo32Bits(decodeInteger(json));
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

namespace cliwire_detail {

// Streaming: records are written straight to text and read straight from it, with the same
// output and the same answers (values, errors and their paths) as going through a document.

template <class T> void writeWire(std::string& out, const T& value);

template <class Record, class Member>
void writeField(std::string& out, bool& first, const Record& record,
                const CLIField<Record, Member>& field) {
    const Member& member = record.*(field.member);
    if constexpr (IsOptional<Member>::value) {
        if (!member) {
            return;
        }
    }
    if (!first) {
        out += ',';
    }
    first = false;
    // Keys are our own plain ASCII identifiers: nothing in them needs escaping.
    out += '"';
    out += field.key;
    out += "\":";
    if constexpr (IsOptional<Member>::value) {
        writeWire(out, *member);
    } else {
        writeWire(out, member);
    }
}

template <class T> void writeWire(std::string& out, const T& value) {
    if constexpr (CLIWireText<T>) {
        T::writeWireJSON(out, value);
    } else if constexpr (CLIRecord<T>) {
        out += '{';
        bool first = true;
        std::apply([&](const auto&... field) { (writeField(out, first, value, field), ...); },
                   T::fields());
        out += '}';
    } else if constexpr (std::is_same_v<T, CLIDate>) {
        // Digits and "-:TZ" only.
        out += '"';
        out += CLIDateFormat::format(value);
        out += '"';
    } else if constexpr (std::is_same_v<T, CLIJSONValue>) {
        std::visit(
            [&](const auto& v) {
                using V = std::decay_t<decltype(v)>;
                if constexpr (std::is_same_v<V, std::nullptr_t>) {
                    out += "null";
                } else {
                    writeWire(out, v);
                }
            },
            value.value);
    } else if constexpr (IsVector<T>::value) {
        out += '[';
        const std::size_t start = out.size();
        for (std::size_t i = 0; i < value.size(); ++i) {
            if (i > 0) {
                out += ',';
            }
            writeWire(out, value[i]);
            if (i == 0 && value.size() > 64) {
                // Room for the rest at the first element's size, rather than regrowing (and
                // copying) a long listing's text again and again. A first element far larger
                // than the rest would make that a guess of gigabytes, hence the cap.
                const std::size_t ahead = (out.size() - start + 1) * (value.size() - 1) / 4 * 5;
                out.reserve(out.size() + std::min(ahead, cliMaxWriteAhead));
            }
        }
        out += ']';
    } else if constexpr (IsStringMap<T>::value) {
        out += '{';
        bool first = true;
        for (const auto& [key, element] : value) {
            if (!first) {
                out += ',';
            }
            first = false;
            cliJSONText::appendString(out, key);
            out += ':';
            writeWire(out, element);
        }
        out += '}';
    } else if constexpr (std::is_same_v<T, std::string>) {
        cliJSONText::appendString(out, value);
    } else if constexpr (std::is_same_v<T, bool>) {
        out += value ? "true" : "false";
    } else if constexpr (std::is_same_v<T, std::int64_t> || std::is_same_v<T, std::int32_t>) {
        cliJSONText::appendInteger(out, value);
    } else {
        static_assert(std::is_same_v<T, double>, "not a wire type");
        cliJSONText::appendDouble(out, value);
    }
}

// Reading. A value of the wrong shape throws CLIRecordError; the container holding it then
// skips the value whole (a syntax error further on still wins) and reports the failure the
// way the document decoder would: a record its first failing key in declaration order, an
// array its first failing element, a map its failing key that sorts first. A repeated key
// counts with its last value, as in a parsed document.

template <class T> void readWire(CLIJSONReader& in, T& out);

inline std::int64_t readInteger(CLIJSONReader& in) {
    if (in.peek() != CLIJSONReader::Kind::number) {
        throw CLIRecordError({}, "must be an integer");
    }
    const auto number = in.readNumber();
    if (number.isInteger) {
        if (number.isNegative) {
            return number.signedValue;
        }
        if (number.unsignedValue <=
            static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
            return static_cast<std::int64_t>(number.unsignedValue);
        }
    }
    throw CLIRecordError({}, "must be an integer");
}

// Reads one value into `out` with `read`; a shape failure leaves the reader after the value
// and is returned instead of thrown.
template <class Read>
std::optional<CLIRecordError> readGuarded(CLIJSONReader& in, const Read& read) {
    const auto mark = in.mark();
    try {
        read();
        return std::nullopt;
    } catch (const CLIRecordError& error) {
        in.rewind(mark);
        in.skipValue();
        return error;
    }
}

template <class Record, class Member>
void readField(CLIJSONReader& in, Record& record, const CLIField<Record, Member>& field) {
    Member& member = record.*(field.member);
    if constexpr (IsOptional<Member>::value) {
        if (in.peek() == CLIJSONReader::Kind::null) {
            in.readNull();
            member.reset();
            return;
        }
        typename Member::value_type value{};
        readWire(in, value);
        member = std::move(value);
    } else {
        readWire(in, member);
    }
}

template <class Record, std::size_t... I>
void readFieldAt(CLIJSONReader& in, Record& record, std::size_t index, std::index_sequence<I...>) {
    [[maybe_unused]] constexpr auto fields = Record::fields();
    (void)((index == I ? (readField(in, record, std::get<I>(fields)), true) : false) || ...);
}

// After the record's last key: its first failure in declaration order, else absent optionals
// cleared.
template <class Record, class Member>
void checkField(Record& record, const CLIField<Record, Member>& field, bool seen,
                const std::optional<CLIRecordError>& error) {
    if (error) {
        throw error->within(field.key);
    }
    if (!seen) {
        if constexpr (IsOptional<Member>::value) {
            (record.*(field.member)).reset();
        } else {
            throw CLIRecordError(field.key, "is missing");
        }
    }
}

template <class Record, std::size_t N, std::size_t... I>
void checkFields(Record& record, const std::array<bool, N>& seen,
                 const std::array<std::optional<CLIRecordError>, N>& errors,
                 std::index_sequence<I...>) {
    [[maybe_unused]] constexpr auto fields = Record::fields();
    (checkField(record, std::get<I>(fields), seen[I], errors[I]), ...);
}

template <class Record> void readRecord(CLIJSONReader& in, Record& record) {
    constexpr auto fields = Record::fields();
    constexpr std::size_t count = std::tuple_size_v<decltype(fields)>;
    static constexpr auto keys = std::apply(
        [](const auto&... field) { return std::array<std::string_view, count>{field.key...}; },
        fields);
    if (in.peek() != CLIJSONReader::Kind::object) {
        throw CLIRecordError({}, "must be an object");
    }
    std::array<bool, count> seen{};
    std::array<std::optional<CLIRecordError>, count> errors;
    in.beginObject();
    std::string_view key;
    std::size_t hint = 0;
    while (in.nextKey(key)) {
        // Keys mostly come in declaration order: look at the expected one first.
        std::size_t index = count;
        for (std::size_t n = 0; n < count; ++n) {
            const std::size_t candidate = (hint + n) % count;
            if (keys[candidate] == key) {
                index = candidate;
                break;
            }
        }
        if (index == count) {
            in.skipValue();
            continue;
        }
        hint = index + 1;
        seen[index] = true;
        errors[index] = readGuarded(
            in, [&] { readFieldAt(in, record, index, std::make_index_sequence<count>()); });
    }
    checkFields(record, seen, errors, std::make_index_sequence<count>());
}

template <class T> void readWire(CLIJSONReader& in, T& out) {
    using Kind = CLIJSONReader::Kind;
    if constexpr (CLIWireText<T>) {
        T::readWireJSON(in, out);
    } else if constexpr (CLIRecord<T>) {
        readRecord(in, out);
    } else if constexpr (std::is_same_v<T, CLIDate>) {
        std::optional<CLIDate> date;
        if (in.peek() == Kind::string) {
            std::string text;
            in.readString(text);
            date = CLIDateFormat::parse(text);
        }
        if (!date) {
            throw CLIRecordError({}, "must be a date such as 2026-03-04T05:06:07Z");
        }
        out = *date;
    } else if constexpr (std::is_same_v<T, CLIJSONValue>) {
        switch (in.peek()) {
        case Kind::null:
            in.readNull();
            out = CLIJSONValue::null();
            return;
        case Kind::boolean:
            out = CLIJSONValue::boolean(in.readBoolean());
            return;
        case Kind::string: {
            std::string text;
            in.readString(text);
            out = CLIJSONValue::string(std::move(text));
            return;
        }
        case Kind::number: {
            const auto number = in.readNumber();
            if (number.isInteger && number.isNegative) {
                out = CLIJSONValue::integer(number.signedValue);
                return;
            }
            if (number.isInteger &&
                number.unsignedValue <=
                    static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
                out = CLIJSONValue::integer(static_cast<std::int64_t>(number.unsignedValue));
                return;
            }
            break;
        }
        default:
            break;
        }
        throw CLIRecordError({}, "must be null, a Boolean, an integer or a string");
    } else if constexpr (IsVector<T>::value) {
        if (in.peek() != Kind::array) {
            throw CLIRecordError({}, "must be an array");
        }
        out.clear();
        std::optional<CLIRecordError> failure;
        // The vector grows from the elements actually read, never from a guess at the text
        // ahead: the rest of the text is not this array's, and a guess made for each of ten
        // thousand short arrays inside a long one adds up to gigabytes. Growing by doubling
        // moves each element about twice, which costs less than a pass to count them.
        in.beginArray();
        for (std::size_t i = 0; in.nextElement(); ++i) {
            if (failure) {
                in.skipValue();
                continue;
            }
            typename T::value_type element{};
            failure = readGuarded(in, [&] { readWire(in, element); });
            if (failure) {
                failure = failure->within("[" + std::to_string(i) + "]");
                continue;
            }
            out.push_back(std::move(element));
        }
        if (failure) {
            throw *failure;
        }
    } else if constexpr (IsStringMap<T>::value) {
        if (in.peek() != Kind::object) {
            throw CLIRecordError({}, "must be an object");
        }
        out.clear();
        std::map<std::string, CLIRecordError> failures;
        in.beginObject();
        std::string_view keyView;
        while (in.nextKey(keyView)) {
            std::string key(keyView);
            typename T::mapped_type element{};
            failures.erase(key);
            if (auto failure = readGuarded(in, [&] { readWire(in, element); })) {
                failures.emplace(key, failure->within(key));
            } else {
                out.insert_or_assign(std::move(key), std::move(element));
            }
        }
        if (!failures.empty()) {
            throw failures.begin()->second;
        }
    } else if constexpr (std::is_same_v<T, std::string>) {
        if (in.peek() != Kind::string) {
            throw CLIRecordError({}, "must be a string");
        }
        in.readString(out);
    } else if constexpr (std::is_same_v<T, bool>) {
        if (in.peek() != Kind::boolean) {
            throw CLIRecordError({}, "must be a Boolean");
        }
        out = in.readBoolean();
    } else if constexpr (std::is_same_v<T, std::int64_t>) {
        out = readInteger(in);
    } else if constexpr (std::is_same_v<T, std::int32_t>) {
        out = narrowTo32Bits(readInteger(in));
    } else {
        static_assert(std::is_same_v<T, double>, "not a wire type");
        if (in.peek() != Kind::number) {
            throw CLIRecordError({}, "must be a number");
        }
        out = in.readNumber().realValue;
    }
}

} // namespace cliwire_detail

// Compact JSON text of a wire value; invalid UTF-8 in a string is replaced, never thrown.
// `expectedSize` is room to reserve when the caller knows the text will be long.
template <class T> std::string encodeWireText(const T& value, std::size_t expectedSize = 0) {
    std::string out;
    out.reserve(expectedSize);
    cliwire_detail::writeWire(out, value);
    return out;
}

namespace cliwire_detail {

// Runs `read` over a reader on `text`; a syntax error anywhere in the text becomes "must be a
// JSON document", which wins over a failure of shape.
template <class Read> void readDocument(std::string_view text, const Read& read) {
    const CLIRecordError notADocument({}, "must be a JSON document");
    try {
        CLIJSONReader in(text, cliMaxJSONDepth);
        read(in);
        in.finish();
    } catch (const CLIJSONSyntaxError&) {
        throw notADocument;
    } catch (const CLIRecordError&) {
        try {
            CLIJSONReader check(text, cliMaxJSONDepth);
            check.skipValue();
            check.finish();
        } catch (const CLIJSONSyntaxError&) {
            throw notADocument;
        }
        throw;
    }
}

} // namespace cliwire_detail

// Throws CLIRecordError ("must be a JSON document" for text that does not parse, which wins
// over any other failure; nesting deeper than cliMaxJSONDepth does not parse).
template <class T> T decodeWireText(std::string_view text) {
    T value{};
    cliwire_detail::readDocument(text,
                                 [&](CLIJSONReader& in) { cliwire_detail::readWire(in, value); });
    return value;
}

// A JSON array of T handed to `each` one element at a time, as it is read: a long listing is
// never held whole. Fails as decodeWireText<std::vector<T>> does; elements handed over before
// a failure are then to be disregarded.
template <class T, class Each> void decodeWireTextEach(std::string_view text, const Each& each) {
    cliwire_detail::readDocument(text, [&](CLIJSONReader& in) {
        if (in.peek() != CLIJSONReader::Kind::array) {
            throw CLIRecordError({}, "must be an array");
        }
        in.beginArray();
        // One element is read over the last: a record's every member is read, reset when
        // absent, or a failure, and its strings keep their room.
        T element{};
        for (std::size_t i = 0; in.nextElement(); ++i) {
            if (auto failure = cliwire_detail::readGuarded(
                    in, [&] { cliwire_detail::readWire(in, element); })) {
                throw failure->within("[" + std::to_string(i) + "]");
            }
            each(std::as_const(element));
        }
    });
}

} // namespace marlune
