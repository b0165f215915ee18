#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace marlune {

// Writing and reading JSON text directly, without building a document in between: a listing
// of thousands of records is encoded and decoded at the speed of a pass over its bytes. The
// text written is byte for byte what the document library's compact dump writes (invalid
// UTF-8 replaced), and what the reader accepts is exactly what that library's parser accepts.
namespace cliJSONText {

// Appends `text` as a JSON string: quotes, the two-character escapes, \u00XX for the other
// control characters, everything else as it is; invalid UTF-8 becomes U+FFFD.
void appendString(std::string& out, std::string_view text);
void appendInteger(std::string& out, std::int64_t value);
// Shortest text that reads back as the same double ("1.0" for one, "null" if not finite).
void appendDouble(std::string& out, double value);

} // namespace cliJSONText

class CLIJSONReader;

namespace cliJSONText {

// `text` laid out with `indent` spaces per level, keys in their order, as the document
// library's indented dump of it writes it. Nothing when the text is not one JSON document or
// an object repeats a key (which the document would fold into one): the caller then goes
// through the document.
std::optional<std::string> indented(std::string_view text, std::size_t maxDepth, int indent);

} // namespace cliJSONText

// A syntax error in the text being read; the reader's callers turn it into "not a JSON
// document".
class CLIJSONSyntaxError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A pull reader over one JSON text. Each read consumes one value (or one structural token)
// and throws CLIJSONSyntaxError at the first byte that does not fit; whitespace before a
// token is skipped by the call that reads it.
class CLIJSONReader {
public:
    enum class Kind { object, array, string, number, boolean, null };

    struct Number {
        bool isInteger = false;  // an integer literal that fits 64 bits
        bool isNegative = false; // for integers: read `signedValue`, else `unsignedValue`
        std::int64_t signedValue = 0;
        std::uint64_t unsignedValue = 0;
        double realValue = 0; // always set
    };

    explicit CLIJSONReader(std::string_view text, std::size_t maxDepth);

    // The kind of the next value, without consuming it.
    Kind peek();

    // Objects: beginObject, then while nextKey(key) { read the value }. The key stays valid
    // until the next read.
    void beginObject();
    bool nextKey(std::string_view& key);
    // Arrays: beginArray, then while nextElement() { read the element }.
    void beginArray();
    bool nextElement();

    void readString(std::string& out);
    // The same without a copy when the string has no escapes: a view into the text, else
    // into `scratch`.
    std::string_view readStringView(std::string& scratch);
    Number readNumber();
    bool readBoolean();
    void readNull();
    // Consumes the next value whatever it is, checking its syntax.
    void skipValue();

    // Where the reader stands, to come back to: a value that was read only in part (its
    // record did not fit) is then skipped whole.
    struct Mark {
        std::size_t at;
        std::size_t depth;
    };
    Mark mark() const { return {at_, depth_}; }
    std::size_t remaining() const { return text_.size() - at_; }
    void rewind(const Mark& mark);

    // After the last value: only whitespace may follow.
    void finish();

private:
    void skipWhitespace();
    char next();
    void expect(char c);
    void expectWord(std::string_view word);
    void enter();
    bool nextMember(char close);
    void readStringInto(std::string& out);
    unsigned readHex4();

    std::string_view text_;
    std::size_t at_ = 0;
    std::size_t depth_ = 0;
    std::size_t maxDepth_;
    // Per open container: whether its first member has been read.
    std::string started_;
    std::string key_;
};

} // namespace marlune
