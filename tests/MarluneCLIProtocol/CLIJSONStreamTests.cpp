// The streaming codec against the document one: every text written must be the same bytes,
// and every text read must give the same record or the same failure.

#include "MarluneCLIProtocol/BoardRecords.h"
#include "MarluneCLIProtocol/CLIJSONText.h"
#include "tests/support/WireProbe.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <vector>

namespace marlune {
namespace {

using testing::WireOutcome;
using testing::WireProbe;
using testing::WireProbeInner;

std::string describe(const WireOutcome<WireProbe>& outcome) {
    if (const auto* failure = std::get_if<std::string>(&outcome)) {
        return "failure: " + *failure;
    }
    return "record: " + testing::encodeThroughDocument(std::get<WireProbe>(outcome));
}

constexpr std::string_view kMinimal =
    R"("text":"a","flag":true,"wide":1,"tags":[],"counts":{},"list":[])";

std::string withMinimal(std::string_view extra) {
    return "{" + std::string(kMinimal) + (extra.empty() ? "" : ",") + std::string(extra) + "}";
}

TEST(CLIJSONStreamTest, ReadsLikeTheDocumentDecoder) {
    const std::string deep513 =
        "[" + withMinimal(R"("tags":)" + std::string(511, '[') + std::string(511, ']')) + "]";
    const std::string deep512 =
        withMinimal(R"("x":)" + std::string(511, '[') + std::string(511, ']'));
    const struct {
        const char* name;
        std::string text;
    } cases[] = {
        {"minimal", withMinimal("")},
        {"every member", withMinimal(R"("narrow":-7,"real":2.5e3,"note":"n","tags":["x","y"],)"
                                     R"("counts":{"b":2,"a":1},"inner":{"name":"i","count":3},)"
                                     R"("list":[{"name":"p"},{"name":"q","count":null}],)"
                                     R"("setting":"s","when":"2026-03-04T05:06:07Z")")},
        {"whitespace everywhere",
         " \t\n{ \"text\" : \"a\" ,\r\n\"flag\":false , \"wide\" : 0, \"tags\" : [ ] ,"
         "\"counts\":{ },\"list\":[\n] } \n"},
        {"byte-order mark", "\xEF\xBB\xBF" + withMinimal("")},
        {"broken byte-order mark", "\xEF\xBB" + withMinimal("")},
        {"empty text", ""},
        {"only whitespace", "  \n"},
        {"not an object", "[1,2]"},
        {"a bare string", "\"text\""},
        {"missing member", R"({"text":"a","flag":true})"},
        {"missing first member", R"({"flag":true,"wide":1})"},
        {"wrong type, then missing", R"({"text":1,"flag":true})"},
        {"order of failures is declaration order", R"({"wide":"x","text":2,"flag":true})"},
        {"unknown keys of any shape", withMinimal(R"("zz":{"a":[1,{"b":null}]},"yy":[true])")},
        {"duplicate key, last wins",
         R"({"tags":[],"counts":{},"list":[],"text":"a","flag":true,"wide":1,"wide":2})"},
        {"duplicate key, bad then good",
         R"({"tags":[],"counts":{},"list":[],"text":"a","flag":true,"wide":"x","wide":3})"},
        {"duplicate key, good then bad",
         R"({"tags":[],"counts":{},"list":[],"text":"a","flag":true,"wide":3,"wide":"x"})"},
        {"optional then null", withMinimal(R"("note":"n","note":null)")},
        {"escaped key",
         R"({"t\u0065xt":"a","flag":true,"wide":1,"tags":[],"counts":{},"list":[]})"},
        {"trailing comma in object",
         R"({"tags":[],"counts":{},"list":[],"text":"a","flag":true,"wide":1,})"},
        {"trailing comma in array", withMinimal(R"("tags":["a",])")},
        {"missing comma", R"({"text":"a" "flag":true,"wide":1})"},
        {"text after the document", withMinimal("") + " x"},
        {"two documents", withMinimal("") + withMinimal("")},
        {"type error then syntax error", R"({"text":1,"flag":true,"wide":1,)"},
        {"type error then bad literal", R"({"text":1,"flag":true,"wide":1,"x":nul})"},
        {"leading zero", withMinimal(R"("narrow":01)")},
        {"negative zero", withMinimal(R"("narrow":-0)")},
        {"lone minus", withMinimal(R"("narrow":-)")},
        {"point without digits", withMinimal(R"("real":1.)")},
        {"exponent without digits", withMinimal(R"("real":1e)")},
        {"fraction for an integer",
         R"({"tags":[],"counts":{},"list":[],"text":"a","flag":true,"wide":1.0})"},
        {"exponent for an integer",
         R"({"tags":[],"counts":{},"list":[],"text":"a","flag":true,"wide":1e2})"},
        {"largest signed",
         R"({"tags":[],"counts":{},"list":[],"text":"a","flag":true,"wide":9223372036854775807})"},
        {"one past signed",
         R"({"tags":[],"counts":{},"list":[],"text":"a","flag":true,"wide":9223372036854775808})"},
        {"smallest signed",
         R"({"tags":[],"counts":{},"list":[],"text":"a","flag":true,"wide":-9223372036854775808})"},
        {"below signed",
         R"({"tags":[],"counts":{},"list":[],"text":"a","flag":true,"wide":-9223372036854775809})"},
        {"past unsigned",
         R"({"tags":[],"counts":{},"list":[],"text":"a","flag":true,"wide":18446744073709551616})"},
        {"32-bit edge", withMinimal(R"("narrow":2147483647)")},
        {"past 32 bits", withMinimal(R"("narrow":2147483648)")},
        {"below 32 bits", withMinimal(R"("narrow":-2147483649)")},
        {"real from an integer", withMinimal(R"("real":18446744073709551615)")},
        {"real from a huge integer", withMinimal(R"("real":123456789012345678901234567890)")},
        {"real too large", withMinimal(R"("real":1e400)")},
        {"real too small is zero", withMinimal(R"("real":1e-400)")},
        {"real subnormal", withMinimal(R"("real":4.9e-324)")},
        {"real from a string", withMinimal(R"("real":"1")")},
        {"setting integer", withMinimal(R"("setting":-5)")},
        {"setting fraction", withMinimal(R"("setting":1.5)")},
        {"setting past signed", withMinimal(R"("setting":9223372036854775808)")},
        {"setting null", withMinimal(R"("setting":null)")},
        {"setting Boolean", withMinimal(R"("setting":false)")},
        {"setting array", withMinimal(R"("setting":[1])")},
        {"date", withMinimal(R"("when":"2026-13-04T05:06:07Z")")},
        {"date not a string", withMinimal(R"("when":5)")},
        {"array element fails", withMinimal(R"("tags":["a",2,3])")},
        {"array not an array", withMinimal(R"("tags":"a")")},
        {"nested record fails", withMinimal(R"("list":[{"name":"p"},{"count":1}])")},
        {"nested record wrong count", withMinimal(R"("inner":{"name":"p","count":true})")},
        {"map failures, first key in order wins", withMinimal(R"("counts":{"z":"x","b":"y"})")},
        {"map duplicate, last wins", withMinimal(R"("counts":{"a":"x","a":2})")},
        {"map duplicate, bad last", withMinimal(R"("counts":{"a":2,"a":"x"})")},
        {"map not an object", withMinimal(R"("counts":[])")},
        {"escapes",
         R"({"text":"\"\\\/\b\f\n\r\t\u0000\u00e9\uD83D\uDE00","flag":true,"wide":1,"tags":[],"counts":{},"list":[]})"},
        {"upper-case hex escape",
         R"({"text":"\u00C9","flag":true,"wide":1,"tags":[],"counts":{},"list":[]})"},
        {"lone high surrogate", R"({"text":"\uD83D","flag":true,"wide":1})"},
        {"high surrogate then letter", R"({"text":"\uD83Dx","flag":true,"wide":1})"},
        {"high then high surrogate", R"({"text":"\uD83D\uD83D","flag":true,"wide":1})"},
        {"lone low surrogate", R"({"text":"\uDE00","flag":true,"wide":1})"},
        {"short escape", R"({"text":"\u12","flag":true,"wide":1})"},
        {"unknown escape", R"({"text":"\x41","flag":true,"wide":1})"},
        {"raw control character",
         "{\"tags\":[],\"counts\":{},\"list\":[],\"text\":\"a\tb\",\"flag\":true,\"wide\":1}"},
        {"raw DEL",
         "{\"tags\":[],\"counts\":{},\"list\":[],\"text\":\"a\x7f\",\"flag\":true,\"wide\":1}"},
        {"UTF-8 text", "{\"tags\":[],\"counts\":{},\"list\":[],\"text\":"
                       "\"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\",\"flag\":true,\"wide\":1}"},
        {"invalid UTF-8",
         "{\"tags\":[],\"counts\":{},\"list\":[],\"text\":\"\xC3\x28\",\"flag\":true,\"wide\":1}"},
        {"overlong UTF-8",
         "{\"tags\":[],\"counts\":{},\"list\":[],\"text\":\"\xC0\xAF\",\"flag\":true,\"wide\":1}"},
        {"UTF-8 surrogate", "{\"tags\":[],\"counts\":{},\"list\":[],\"text\":\"\xED\xA0\x80\","
                            "\"flag\":true,\"wide\":1}"},
        {"past U+10FFFF", "{\"tags\":[],\"counts\":{},\"list\":[],\"text\":\"\xF4\x90\x80\x80\","
                          "\"flag\":true,\"wide\":1}"},
        {"truncated UTF-8 at the end",
         "{\"tags\":[],\"counts\":{},\"list\":[],\"text\":\"\xE2\x82"},
        {"invalid UTF-8 in a key", "{\"te\xFFxt\":\"a\",\"flag\":true,\"wide\":1}"},
        {"invalid UTF-8 outside strings", withMinimal("") + "\xC3\xA9"},
        {"NUL ends the text", withMinimal("") + std::string(1, '\0') + "junk"},
        {"NUL inside the document", withMinimal("").insert(5, 1, '\0')},
        {"unterminated string", R"({"text":"a)"},
        {"bad literal", R"({"text":"a","flag":tru,"wide":1})"},
        {"literal with a tail", R"({"text":"a","flag":truex,"wide":1})"},
        {"nested 512 deep", deep512},
        {"nested 513 deep", deep513},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto expected = testing::decodeThroughDocument<WireProbe>(c.text);
        const auto actual = testing::decodeStreaming<WireProbe>(c.text);
        EXPECT_EQ(describe(actual), describe(expected));
    }
}

TEST(CLIJSONStreamTest, WritesTheSameBytesAsTheDocument) {
    WireProbe full;
    full.text = std::string("quote\" backslash\\ slash/ \b\f\n\r\t \x01\x1f\x7f ") +
                "\xC3\xA9 \xF0\x9F\x98\x80 nul:" + std::string(1, '\0');
    full.flag = true;
    full.wide = std::numeric_limits<std::int64_t>::min();
    full.narrow = std::numeric_limits<std::int32_t>::max();
    full.note = "invalid \xC3\x28 and \xFF\xFE tail \xE2\x82";
    full.tags = {"", "b", "\xED\xA0\x80"};
    full.counts = {{"z", 1}, {"a", -2}, {"\"k\"", 3}};
    full.inner = WireProbeInner{"i", std::nullopt};
    full.list = {{"p", 4}, {"q", std::nullopt}};
    full.setting = CLIJSONValue::null();
    full.when = CLIDate{} + std::chrono::milliseconds(1'234'567);

    WireProbe empty;
    const double reals[] = {0.0,
                            -0.0,
                            1.0,
                            10.5,
                            0.1,
                            1e15,
                            1e16,
                            1e21,
                            1e-5,
                            1e-7,
                            -2.5,
                            4.9e-324,
                            1.7976931348623157e308,
                            std::numeric_limits<double>::quiet_NaN(),
                            std::numeric_limits<double>::infinity()};
    const CLIJSONValue settings[] = {CLIJSONValue::null(), CLIJSONValue::boolean(false),
                                     CLIJSONValue::integer(-9), CLIJSONValue::string("s\n")};

    EXPECT_EQ(encodeWireText(full), testing::encodeThroughDocument(full));
    EXPECT_EQ(encodeWireText(empty), testing::encodeThroughDocument(empty));
    for (const double real : reals) {
        WireProbe probe;
        probe.real = real;
        EXPECT_EQ(encodeWireText(probe), testing::encodeThroughDocument(probe)) << real;
    }
    for (const auto& setting : settings) {
        WireProbe probe;
        probe.setting = setting;
        EXPECT_EQ(encodeWireText(probe), testing::encodeThroughDocument(probe));
    }
    // Every single byte, alone in a string.
    for (int byte = 0; byte < 256; ++byte) {
        WireProbe probe;
        probe.text = std::string(1, static_cast<char>(byte));
        EXPECT_EQ(encodeWireText(probe), testing::encodeThroughDocument(probe)) << byte;
    }
}

TEST(CLIJSONStreamTest, IndentsLikeTheOrderedDocument) {
    const char* texts[] = {
        "{}",
        "[]",
        " {\"b\":1,\"a\":[1,-2,3.5,1e2,-0,-0.0,18446744073709551615,1e999999]} ",
        "{\"b\":1,\"a\":[1,-2,3.5,1E2,-0,-0.0,18446744073709551615,123456789012345678901]}",
        "[{},[],{\"x\":{\"y\":[null,true,false]}},\"\\u00e9\\/\\u0001\"]",
        "\"top-level string\"",
        "42",
        "[1,]",
        "{\"a\":1,\"a\":2}",
        "",
    };
    for (const char* text : texts) {
        SCOPED_TRACE(text);
        const auto direct = cliJSONText::indented(text, cliMaxJSONDepth, 2);
        const auto document = testing::indentThroughDocument(text);
        if (direct) {
            EXPECT_EQ(direct, document);
        } else if (document) {
            // Only a repeated key sends the text through the document.
            EXPECT_NE(std::string_view(text).find("\"a\":1,\"a\""), std::string_view::npos);
        }
    }
}

// What decoding one element at a time gives: the elements seen, or the failure.
WireOutcome<std::vector<WireProbe>> decodeEach(std::string_view text) {
    std::vector<WireProbe> seen;
    try {
        decodeWireTextEach<WireProbe>(text, [&](const WireProbe& probe) { seen.push_back(probe); });
    } catch (const CLIRecordError& error) {
        return std::string(error.what());
    }
    return seen;
}

std::string describeList(const WireOutcome<std::vector<WireProbe>>& outcome) {
    if (const auto* failure = std::get_if<std::string>(&outcome)) {
        return "failure: " + *failure;
    }
    return "records: " + testing::encodeThroughDocument(std::get<std::vector<WireProbe>>(outcome));
}

TEST(CLIJSONStreamTest, ElementsOneAtATimeReadLikeTheWholeArray) {
    const std::string ok = withMinimal("");
    const std::string full = withMinimal(R"("note":"n","inner":{"name":"i"})");
    const std::string bad = R"({"text":1,"flag":true})";
    const struct {
        const char* name;
        std::string text;
    } cases[] = {
        {"three elements", "[" + ok + "," + full + "," + ok + "]"},
        {"an element's optional members do not leak into the next", "[" + full + "," + ok + "]"},
        {"empty array", " [ ] "},
        {"not an array", ok},
        {"the second element fails", "[" + ok + "," + bad + "," + ok + "]"},
        {"a later syntax error wins over a failing element", "[" + bad + "," + ok + ",tru]"},
        {"unterminated after good elements", "[" + ok + "," + ok},
        {"text after the array", "[" + ok + "] x"},
        {"not JSON", "nope"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(describeList(decodeEach(c.text)),
                  describeList(testing::decodeStreaming<std::vector<WireProbe>>(c.text)));
    }
}

// `count` probes, each holding `inner` tags and `inner` list entries.
std::vector<WireProbe> nestedProbes(std::size_t count, std::size_t inner) {
    std::vector<WireProbe> probes(count);
    for (std::size_t i = 0; i < count; ++i) {
        probes[i].text = "p" + std::to_string(i);
        for (std::size_t j = 0; j < inner; ++j) {
            probes[i].tags.push_back("t" + std::to_string(j));
            probes[i].list.push_back({"n" + std::to_string(j), static_cast<std::int64_t>(j)});
        }
    }
    return probes;
}

TEST(CLIJSONStreamTest, NestedArraysOfEveryLengthReadLikeTheDocument) {
    const std::string manyShort = testing::encodeThroughDocument(nestedProbes(200, 1));
    const std::string longInLong = testing::encodeThroughDocument(nestedProbes(70, 70));
    std::string lateFailure = longInLong;
    lateFailure.replace(lateFailure.rfind("\"t69\""), 5, "69");
    const struct {
        const char* name;
        std::string text;
    } cases[] = {
        {"empty", "[]"},
        {"empty inner arrays", testing::encodeThroughDocument(nestedProbes(3, 0))},
        {"many short arrays in a long one", manyShort},
        {"long arrays in a long one", longInLong},
        {"a failure in the last inner array", lateFailure},
        {"a syntax error after long arrays", longInLong.substr(0, longInLong.size() - 1) + ",]"},
        {"cut short inside a long inner array", longInLong.substr(0, longInLong.size() / 2)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(describeList(testing::decodeStreaming<std::vector<WireProbe>>(c.text)),
                  describeList(testing::decodeThroughDocument<std::vector<WireProbe>>(c.text)));
    }
}

// Room taken ahead of the elements must come from the array itself, not from the text after
// it: ten thousand one-element arrays once reserved room for the whole rest of the request
// each, gigabytes in all.
TEST(CLIJSONStreamTest, ShortArraysInsideALongOneReserveOnlyWhatTheyHold) {
    const auto probes = nestedProbes(10'000, 1);
    const auto decoded = decodeWireText<std::vector<WireProbe>>(encodeWireText(probes));
    ASSERT_EQ(decoded, probes);
    EXPECT_LE(decoded.capacity(), 2 * decoded.size());
    std::size_t reserved = 0;
    for (const auto& probe : decoded) {
        reserved += probe.tags.capacity() + probe.list.capacity();
    }
    EXPECT_LE(reserved, 4 * decoded.size());
}

TEST(CLIJSONStreamTest, ALargeFirstElementDoesNotReserveForEveryOther) {
    std::vector<std::string> texts(1'000, "short");
    texts.front() = std::string(std::size_t{1} << 20, 'x');
    const std::string text = encodeWireText(texts);
    EXPECT_EQ(text, testing::encodeThroughDocument(texts));
    EXPECT_LE(text.capacity(), 2 * text.size() + cliMaxWriteAhead);
}

TEST(CLIJSONStreamTest, ABoardListingSurvivesTheRoundTrip) {
    std::vector<BoardItemDTO> items(300);
    for (std::size_t i = 0; i < items.size(); ++i) {
        auto& item = items[i];
        item.id = "ID-" + std::to_string(i);
        item.text = "item \"" + std::to_string(i) + "\"\n\xE2\x9C\x93";
        item.kind = "text";
        item.isDone = i % 3 == 0;
        if (item.isDone) {
            item.completedAt = "2026-03-04T05:06:07Z";
        }
        item.tags = {"t" + std::to_string(i % 5)};
        if (i % 7 == 0) {
            item.pinned = true;
        }
    }
    const std::string text = encodeWireText(items);
    EXPECT_EQ(text, testing::encodeThroughDocument(items));
    EXPECT_EQ(decodeWireText<std::vector<BoardItemDTO>>(text), items);
    std::vector<BoardItemDTO> oneByOne;
    decodeWireTextEach<BoardItemDTO>(text,
                                     [&](const BoardItemDTO& item) { oneByOne.push_back(item); });
    EXPECT_EQ(oneByOne, items);
    EXPECT_EQ(cliJSONText::indented(text, cliMaxJSONDepth, 2),
              testing::indentThroughDocument(text));
}

} // namespace
} // namespace marlune
