#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace marlune {

// One record of a CSV file and the line it starts on, for notes that point the user at it.
struct CSVRow {
    std::int64_t line = 0;
    std::vector<std::string> fields;
    friend bool operator==(const CSVRow&, const CSVRow&) = default;
};

struct CSVError {
    // A quote opened and never closed: everything after it would be one field.
    struct UnterminatedQuote {
        std::int64_t line = 0;
        friend bool operator==(const UnterminatedQuote&, const UnterminatedQuote&) = default;
    };
    // More fields than the limit: no snippet library comes near it.
    struct TooLarge {
        friend bool operator==(const TooLarge&, const TooLarge&) = default;
    };

    std::variant<UnterminatedQuote, TooLarge> kind;

    // The reason as the importer shows it after "That isn't a valid <format> file: ".
    std::string reason() const;

    friend bool operator==(const CSVError&, const CSVError&) = default;
};

// Comma-separated records as spreadsheets and snippet tools write them: fields in double
// quotes may hold commas, quotes written twice and line breaks (kept as written, CRLF
// included); records end at CRLF, LF or a lone CR, the line ending of older Mac software.
// Lenient where writers are sloppy: a quote inside an unquoted field is kept as text, and
// text straight after a closing quote is added to the field. A leading UTF-8 byte order mark
// is dropped, since spreadsheets write one and it would otherwise stick to the first field.
// Empty lines are skipped; a final line break does not make an empty record.
struct CSVReader {
    static constexpr std::size_t kMaxFields = 1'000'000;

    static std::variant<std::vector<CSVRow>, CSVError> read(std::string_view text);
};

} // namespace marlune
