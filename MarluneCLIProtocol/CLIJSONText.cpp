#include "MarluneCLIProtocol/CLIJSONText.h"

#include <algorithm>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstring>
#include <locale.h>
#include <nlohmann/json.hpp>
#include <vector>

namespace marlune {

namespace {

// The length of the well-formed UTF-8 sequence starting at `p` (lead byte 0x80 or above), or 0
// when it is not one: overlong forms, surrogates and code points past U+10FFFF are refused.
std::size_t utf8SequenceLength(const unsigned char* p, const unsigned char* end) {
    const unsigned char lead = p[0];
    std::size_t length = 0;
    unsigned char low = 0x80;
    unsigned char high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        if (lead == 0xE0) {
            low = 0xA0;
        } else if (lead == 0xED) {
            high = 0x9F;
        }
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        if (lead == 0xF0) {
            low = 0x90;
        } else if (lead == 0xF4) {
            high = 0x8F;
        }
    } else {
        return 0;
    }
    if (static_cast<std::size_t>(end - p) < length || p[1] < low || p[1] > high) {
        return 0;
    }
    for (std::size_t i = 2; i < length; ++i) {
        if (p[i] < 0x80 || p[i] > 0xBF) {
            return 0;
        }
    }
    return length;
}

// Bytes that end the plain run inside a string: the quote, the backslash and control
// characters. Bytes from 0x80 up are checked as UTF-8 separately.
constexpr bool plainByte(unsigned char c) {
    return c >= 0x20 && c != '"' && c != '\\';
}

// Whether the eight bytes at `p` are all plain ASCII, tested at once: most of a long text is,
// and a Base64 payload is nothing else.
bool plainASCIIWord(const char* p) {
    constexpr std::uint64_t ones = 0x0101010101010101ULL;
    constexpr std::uint64_t highs = 0x8080808080808080ULL;
    std::uint64_t word;
    std::memcpy(&word, p, sizeof word);
    const auto anyZeroByte = [&](std::uint64_t v) { return ((v - ones) & ~v & highs) != 0; };
    if ((word & highs) != 0 || ((word - 0x20 * ones) & ~word & highs) != 0) {
        return false;
    }
    return !anyZeroByte(word ^ ('"' * ones)) && !anyZeroByte(word ^ ('\\' * ones));
}

// The length of the run of plain ASCII bytes at the start of `text`.
std::size_t plainASCIIRun(std::string_view text) {
    std::size_t i = 0;
    while (i + 8 <= text.size() && plainASCIIWord(text.data() + i)) {
        i += 8;
    }
    while (i < text.size() && static_cast<unsigned char>(text[i]) < 0x80 &&
           plainByte(static_cast<unsigned char>(text[i]))) {
        ++i;
    }
    return i;
}

// Decimal point of the C locale whatever the process's locale is (the application runs with
// the user's, where the point may be a comma).
locale_t cLocale() {
    static const locale_t locale = ::newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    return locale;
}

} // namespace

namespace cliJSONText {

void appendString(std::string& out, std::string_view text) {
    const std::size_t rollback = out.size();
    out.reserve(out.size() + text.size() + 2);
    out += '"';
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    std::size_t i = 0;
    while (i < text.size()) {
        const std::size_t run = plainASCIIRun(text.substr(i));
        out.append(text, i, run);
        i += run;
        if (i == text.size()) {
            break;
        }
        const unsigned char c = bytes[i];
        if (c >= 0x80) {
            const std::size_t length = utf8SequenceLength(bytes + i, bytes + text.size());
            if (length == 0) {
                // Rare: leave the replacement of broken sequences to the library's own rules.
                out.resize(rollback);
                out += nlohmann::ordered_json(std::string(text))
                           .dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
                return;
            }
            out.append(text, i, length);
            i += length;
            continue;
        }
        ++i;
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\b':
            out += "\\b";
            break;
        case '\f':
            out += "\\f";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default: {
            static constexpr char hex[] = "0123456789abcdef";
            const char escape[] = {'\\', 'u', '0', '0', hex[c >> 4], hex[c & 0xF]};
            out.append(escape, sizeof escape);
        }
        }
    }
    out += '"';
}

void appendInteger(std::string& out, std::int64_t value) {
    char buffer[24];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    out.append(buffer, result.ptr);
}

void appendDouble(std::string& out, double value) {
    out += nlohmann::ordered_json(value).dump();
}

} // namespace cliJSONText

CLIJSONReader::CLIJSONReader(std::string_view text, std::size_t maxDepth)
    : text_(text), maxDepth_(maxDepth) {
    // A byte-order mark is allowed before the text, as the document parser allows it.
    if (text_.starts_with("\xEF\xBB\xBF")) {
        at_ = 3;
    }
}

void CLIJSONReader::skipWhitespace() {
    while (at_ < text_.size()) {
        const char c = text_[at_];
        if (c != ' ' && c != '\t' && c != '\n' && c != '\r') {
            return;
        }
        ++at_;
    }
}

char CLIJSONReader::next() {
    skipWhitespace();
    if (at_ >= text_.size()) {
        throw CLIJSONSyntaxError("unexpected end of text");
    }
    return text_[at_];
}

void CLIJSONReader::expect(char c) {
    if (next() != c) {
        throw CLIJSONSyntaxError(std::string("expected '") + c + "'");
    }
    ++at_;
}

void CLIJSONReader::expectWord(std::string_view word) {
    if (text_.substr(at_, word.size()) != word) {
        throw CLIJSONSyntaxError("unknown literal");
    }
    at_ += word.size();
}

void CLIJSONReader::enter() {
    if (++depth_ > maxDepth_) {
        throw CLIJSONSyntaxError("nested too deeply");
    }
    started_.resize(depth_, '\0');
    started_[depth_ - 1] = '\0';
}

void CLIJSONReader::rewind(const Mark& mark) {
    at_ = mark.at;
    depth_ = mark.depth;
    started_.resize(depth_);
}

CLIJSONReader::Kind CLIJSONReader::peek() {
    switch (next()) {
    case '{':
        return Kind::object;
    case '[':
        return Kind::array;
    case '"':
        return Kind::string;
    case 't':
    case 'f':
        return Kind::boolean;
    case 'n':
        return Kind::null;
    default:
        return Kind::number;
    }
}

void CLIJSONReader::beginObject() {
    expect('{');
    enter();
}

// Before a container's next member: false (and the container closed) at `close`, else past
// the comma that must separate it from the previous member.
bool CLIJSONReader::nextMember(char close) {
    const char c = next();
    if (c == close) {
        ++at_;
        --depth_;
        started_.resize(depth_);
        return false;
    }
    if (started_[depth_ - 1]) {
        if (c != ',') {
            throw CLIJSONSyntaxError(std::string("expected ',' or '") + close + "'");
        }
        ++at_;
    }
    started_[depth_ - 1] = 1;
    return true;
}

bool CLIJSONReader::nextKey(std::string_view& key) {
    if (!nextMember('}')) {
        return false;
    }
    if (next() != '"') {
        throw CLIJSONSyntaxError("expected a key");
    }
    // A key without escapes is read in place.
    const std::size_t start = at_ + 1;
    std::size_t end = start;
    while (end < text_.size() && static_cast<unsigned char>(text_[end]) < 0x80 &&
           plainByte(static_cast<unsigned char>(text_[end]))) {
        ++end;
    }
    if (end < text_.size() && text_[end] == '"') {
        key = text_.substr(start, end - start);
        at_ = end + 1;
    } else {
        key_.clear();
        readStringInto(key_);
        key = key_;
    }
    expect(':');
    return true;
}

void CLIJSONReader::beginArray() {
    expect('[');
    enter();
}

bool CLIJSONReader::nextElement() { return nextMember(']'); }

void CLIJSONReader::readString(std::string& out) {
    if (next() != '"') {
        throw CLIJSONSyntaxError("expected a string");
    }
    out.clear();
    readStringInto(out);
}

std::string_view CLIJSONReader::readStringView(std::string& scratch) {
    if (next() != '"') {
        throw CLIJSONSyntaxError("expected a string");
    }
    // Plain ASCII up to the closing quote is the common case for long payloads.
    const std::size_t start = at_ + 1;
    const std::size_t run = plainASCIIRun(text_.substr(start));
    if (start + run < text_.size() && text_[start + run] == '"') {
        at_ = start + run + 1;
        return text_.substr(start, run);
    }
    scratch.clear();
    readStringInto(scratch);
    return scratch;
}

unsigned CLIJSONReader::readHex4() {
    if (text_.size() - at_ < 4) {
        throw CLIJSONSyntaxError("short \\u escape");
    }
    unsigned value = 0;
    for (int i = 0; i < 4; ++i) {
        const char c = text_[at_++];
        value <<= 4;
        if (c >= '0' && c <= '9') {
            value |= static_cast<unsigned>(c - '0');
        } else if (c >= 'a' && c <= 'f') {
            value |= static_cast<unsigned>(c - 'a' + 10);
        } else if (c >= 'A' && c <= 'F') {
            value |= static_cast<unsigned>(c - 'A' + 10);
        } else {
            throw CLIJSONSyntaxError("bad \\u escape");
        }
    }
    return value;
}

// At the opening quote; appends the string's value to `out` and consumes the closing quote.
void CLIJSONReader::readStringInto(std::string& out) {
    ++at_;
    const auto* bytes = reinterpret_cast<const unsigned char*>(text_.data());
    const auto* end = bytes + text_.size();
    std::size_t runStart = at_;
    for (;;) {
        // The plain run: printable ASCII and well-formed UTF-8.
        while (at_ < text_.size()) {
            at_ += plainASCIIRun(text_.substr(at_));
            if (at_ >= text_.size() || bytes[at_] < 0x80) {
                break;
            }
            const std::size_t length = utf8SequenceLength(bytes + at_, end);
            if (length == 0) {
                throw CLIJSONSyntaxError("invalid UTF-8 in a string");
            }
            at_ += length;
        }
        out.append(text_, runStart, at_ - runStart);
        if (at_ >= text_.size()) {
            throw CLIJSONSyntaxError("unterminated string");
        }
        const char c = text_[at_++];
        if (c == '"') {
            return;
        }
        if (c != '\\') {
            throw CLIJSONSyntaxError("control character in a string");
        }
        if (at_ >= text_.size()) {
            throw CLIJSONSyntaxError("unterminated string");
        }
        switch (text_[at_++]) {
        case '"':
            out += '"';
            break;
        case '\\':
            out += '\\';
            break;
        case '/':
            out += '/';
            break;
        case 'b':
            out += '\b';
            break;
        case 'f':
            out += '\f';
            break;
        case 'n':
            out += '\n';
            break;
        case 'r':
            out += '\r';
            break;
        case 't':
            out += '\t';
            break;
        case 'u': {
            std::uint32_t code = readHex4();
            if (code >= 0xDC00 && code <= 0xDFFF) {
                throw CLIJSONSyntaxError("lone low surrogate");
            }
            if (code >= 0xD800 && code <= 0xDBFF) {
                if (text_.substr(at_, 2) != "\\u") {
                    throw CLIJSONSyntaxError("lone high surrogate");
                }
                at_ += 2;
                const std::uint32_t low = readHex4();
                if (low < 0xDC00 || low > 0xDFFF) {
                    throw CLIJSONSyntaxError("lone high surrogate");
                }
                code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
            }
            if (code < 0x80) {
                out += static_cast<char>(code);
            } else if (code < 0x800) {
                out += static_cast<char>(0xC0 | (code >> 6));
                out += static_cast<char>(0x80 | (code & 0x3F));
            } else if (code < 0x10000) {
                out += static_cast<char>(0xE0 | (code >> 12));
                out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
                out += static_cast<char>(0x80 | (code & 0x3F));
            } else {
                out += static_cast<char>(0xF0 | (code >> 18));
                out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
                out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
                out += static_cast<char>(0x80 | (code & 0x3F));
            }
            break;
        }
        default:
            throw CLIJSONSyntaxError("unknown escape");
        }
        runStart = at_;
    }
}

CLIJSONReader::Number CLIJSONReader::readNumber() {
    skipWhitespace();
    const std::size_t start = at_;
    const auto digitAt = [&](std::size_t i) {
        return i < text_.size() && text_[i] >= '0' && text_[i] <= '9';
    };
    Number number;
    if (at_ < text_.size() && text_[at_] == '-') {
        number.isNegative = true;
        ++at_;
    }
    if (!digitAt(at_)) {
        throw CLIJSONSyntaxError("expected a value");
    }
    // No leading zeros: "01" is a zero followed by a stray digit.
    if (text_[at_] == '0') {
        ++at_;
    } else {
        while (digitAt(at_)) {
            ++at_;
        }
    }
    bool integral = true;
    if (at_ < text_.size() && text_[at_] == '.') {
        integral = false;
        ++at_;
        if (!digitAt(at_)) {
            throw CLIJSONSyntaxError("expected a digit after the point");
        }
        while (digitAt(at_)) {
            ++at_;
        }
    }
    if (at_ < text_.size() && (text_[at_] == 'e' || text_[at_] == 'E')) {
        integral = false;
        ++at_;
        if (at_ < text_.size() && (text_[at_] == '+' || text_[at_] == '-')) {
            ++at_;
        }
        if (!digitAt(at_)) {
            throw CLIJSONSyntaxError("expected a digit in the exponent");
        }
        while (digitAt(at_)) {
            ++at_;
        }
    }
    const char* first = text_.data() + start;
    const char* last = text_.data() + at_;
    if (integral) {
        if (number.isNegative) {
            const auto r = std::from_chars(first, last, number.signedValue);
            number.isInteger = r.ec == std::errc() && r.ptr == last;
            number.realValue = static_cast<double>(number.signedValue);
        } else {
            const auto r = std::from_chars(first, last, number.unsignedValue);
            number.isInteger = r.ec == std::errc() && r.ptr == last;
            number.realValue = static_cast<double>(number.unsignedValue);
        }
        if (number.isInteger) {
            return number;
        }
    }
    // Fractions, exponents and integers past 64 bits are doubles; one too large for a double
    // is refused, as the document parser refuses it.
    const std::string literal(first, last);
    number.realValue = ::strtod_l(literal.c_str(), nullptr, cLocale());
    if (!std::isfinite(number.realValue)) {
        throw CLIJSONSyntaxError("number out of range");
    }
    return number;
}

bool CLIJSONReader::readBoolean() {
    const char c = next();
    if (c == 't') {
        expectWord("true");
        return true;
    }
    if (c == 'f') {
        expectWord("false");
        return false;
    }
    throw CLIJSONSyntaxError("expected a Boolean");
}

void CLIJSONReader::readNull() {
    if (next() != 'n') {
        throw CLIJSONSyntaxError("expected null");
    }
    expectWord("null");
}

void CLIJSONReader::skipValue() {
    switch (peek()) {
    case Kind::object: {
        beginObject();
        std::string_view key;
        while (nextKey(key)) {
            skipValue();
        }
        break;
    }
    case Kind::array:
        beginArray();
        while (nextElement()) {
            skipValue();
        }
        break;
    case Kind::string:
        key_.clear();
        readStringInto(key_);
        break;
    case Kind::number:
        readNumber();
        break;
    case Kind::boolean:
        readBoolean();
        break;
    case Kind::null:
        readNull();
        break;
    }
}

void CLIJSONReader::finish() {
    skipWhitespace();
    // A NUL byte ends the text, as it ends text read from a C string.
    if (at_ != text_.size() && text_[at_] != '\0') {
        throw CLIJSONSyntaxError("text after the document");
    }
}

namespace {

struct RepeatedKey {};

void writeIndented(CLIJSONReader& in, std::string& out, int indent, int level) {
    const auto newLine = [&](int depth) {
        out += '\n';
        out.append(static_cast<std::size_t>(indent * depth), ' ');
    };
    std::string text;
    switch (in.peek()) {
    case CLIJSONReader::Kind::object: {
        in.beginObject();
        std::vector<std::string> keys;
        std::string_view key;
        while (in.nextKey(key)) {
            if (std::find(keys.begin(), keys.end(), key) != keys.end()) {
                throw RepeatedKey();
            }
            keys.emplace_back(key);
            out += keys.size() == 1 ? "{" : ",";
            newLine(level + 1);
            cliJSONText::appendString(out, keys.back());
            out += ": ";
            writeIndented(in, out, indent, level + 1);
        }
        if (keys.empty()) {
            out += "{}";
        } else {
            newLine(level);
            out += '}';
        }
        break;
    }
    case CLIJSONReader::Kind::array: {
        in.beginArray();
        bool any = false;
        while (in.nextElement()) {
            out += any ? "," : "[";
            any = true;
            newLine(level + 1);
            writeIndented(in, out, indent, level + 1);
        }
        if (!any) {
            out += "[]";
        } else {
            newLine(level);
            out += ']';
        }
        break;
    }
    case CLIJSONReader::Kind::string:
        in.readString(text);
        cliJSONText::appendString(out, text);
        break;
    case CLIJSONReader::Kind::number: {
        const auto number = in.readNumber();
        if (!number.isInteger) {
            cliJSONText::appendDouble(out, number.realValue);
        } else if (number.isNegative) {
            cliJSONText::appendInteger(out, number.signedValue);
        } else {
            char buffer[24];
            const auto result = std::to_chars(buffer, buffer + sizeof buffer, number.unsignedValue);
            out.append(buffer, result.ptr);
        }
        break;
    }
    case CLIJSONReader::Kind::boolean:
        out += in.readBoolean() ? "true" : "false";
        break;
    case CLIJSONReader::Kind::null:
        in.readNull();
        out += "null";
        break;
    }
}

} // namespace

std::optional<std::string> cliJSONText::indented(std::string_view text, std::size_t maxDepth,
                                                 int indent) {
    std::string out;
    out.reserve(text.size() * 2);
    try {
        CLIJSONReader in(text, maxDepth);
        writeIndented(in, out, indent, 0);
        in.finish();
    } catch (const CLIJSONSyntaxError&) {
        return std::nullopt;
    } catch (const RepeatedKey&) {
        return std::nullopt;
    }
    return out;
}

} // namespace marlune
