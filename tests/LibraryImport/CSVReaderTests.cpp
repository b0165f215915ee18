#include "LibraryImport/CSVReader.h"

#include <gtest/gtest.h>

namespace marlune {
namespace {

using Fields = std::vector<std::string>;

TEST(CSVReader, RecordsAndFieldsComeOutAsWritten) {
    struct Case {
        const char* fault;
        std::string_view input;
        std::vector<CSVRow> rows;
    };
    const Case cases[] = {
        {"empty file", "", {}},
        {"no final line break", "a,b,c", {{1, {"a", "b", "c"}}}},
        {"final line break makes no empty record", "a,b\n", {{1, {"a", "b"}}}},
        {"CRLF records", "a,b\r\nc,d\r\n", {{1, {"a", "b"}}, {2, {"c", "d"}}}},
        {"lone CR records", "a\rb\r", {{1, {"a"}}, {2, {"b"}}}},
        {"empty fields kept", ",x,\n", {{1, {"", "x", ""}}}},
        {"empty lines skipped but counted", "\n\na\n\r\n\nb", {{3, {"a"}}, {6, {"b"}}}},
        {"quoted empty field is a record", "\"\"\n", {{1, {""}}}},
        {"comma inside quotes", "\"a,b\",c", {{1, {"a,b", "c"}}}},
        {"doubled quotes", "\"say \"\"hi\"\"\",\"\"\"\"", {{1, {"say \"hi\"", "\""}}}},
        {"quoted field across LF lines",
         "k,\"one\ntwo\",z\nnext",
         {{1, {"k", "one\ntwo", "z"}}, {3, {"next"}}}},
        {"CRLF inside quotes kept as written", "\"a\r\nb\"\r\nc", {{1, {"a\r\nb"}}, {3, {"c"}}}},
        {"byte order mark dropped", "\xEF\xBB\xBFsig,text\n", {{1, {"sig", "text"}}}},
        {"byte order mark only at the start", "a,\xEF\xBB\xBF", {{1, {"a", "\xEF\xBB\xBF"}}}},
        {"stray quote inside an unquoted field", "5\" ruler,x", {{1, {"5\" ruler", "x"}}}},
        {"text after a closing quote", "\"ab\"cd,e", {{1, {"abcd", "e"}}}},
        {"spaces are data", " a , b ", {{1, {" a ", " b "}}}},
        {"UTF-8 passes through", "ç,“q”\n", {{1, {"ç", "“q”"}}}},
        {"NUL bytes pass through",
         std::string_view("a\0b,c", 5),
         {{1, {std::string("a\0b", 3), "c"}}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fault);
        auto read = CSVReader::read(c.input);
        ASSERT_TRUE(std::holds_alternative<std::vector<CSVRow>>(read))
            << std::get<CSVError>(read).reason();
        EXPECT_EQ(std::get<std::vector<CSVRow>>(read), c.rows);
    }
}

TEST(CSVReader, UnterminatedQuoteNamesTheLineItStartsOn) {
    struct Case {
        std::string_view input;
        std::int64_t line;
    };
    const Case cases[] = {
        {"\"", 1},
        {"a,\"never closed", 1},
        {"a,b\n\"fine\nfield\",c\nd,\"open\r\nstill\nopen", 4},
        {"x\r\r\n\"q\"\"", 3},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.input);
        auto read = CSVReader::read(c.input);
        ASSERT_TRUE(std::holds_alternative<CSVError>(read));
        const auto& error = std::get<CSVError>(read);
        EXPECT_EQ(error.kind, CSVError{CSVError::UnterminatedQuote{c.line}}.kind);
        EXPECT_EQ(error.reason(), "a quoted field that starts on line " + std::to_string(c.line));
    }
}

TEST(CSVReader, FieldLimitStopsCommaFloods) {
    const std::string atLimit(CSVReader::kMaxFields - 1, ',');
    EXPECT_TRUE(std::holds_alternative<std::vector<CSVRow>>(CSVReader::read(atLimit)));
    auto read = CSVReader::read(atLimit + ",");
    ASSERT_TRUE(std::holds_alternative<CSVError>(read));
    EXPECT_EQ(std::get<CSVError>(read).reason(), "it has more fields than Marlune will read.");
}

} // namespace
} // namespace marlune
