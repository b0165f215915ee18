#include "MarluneCLIProtocol/CLIBase64.h"
#include "MarluneCLIProtocol/CLIDateFormat.h"
#include "MarluneCLIProtocol/CLIEndpoint.h"
#include "MarluneCLIProtocol/CLIErrorCode.h"
#include "MarluneCLIProtocol/CLIJSONValue.h"
#include "MarluneCLIProtocol/CLIToken.h"
#include "MarluneCLIProtocol/Paging.h"

#include <gtest/gtest.h>
#include <map>
#include <set>

namespace marlune {
namespace {

TEST(CLIJSONValue, DecodesInOrderNullBooleanIntegerStringAndRefusesTheRest) {
    struct Case {
        const char* json;
        std::optional<CLIJSONValue> expected;
    };
    const Case cases[] = {
        {"null", CLIJSONValue::null()},
        {"true", CLIJSONValue::boolean(true)},
        {"false", CLIJSONValue::boolean(false)},
        {"1", CLIJSONValue::integer(1)},
        {"0", CLIJSONValue::integer(0)},
        {"-9223372036854775808", CLIJSONValue::integer(INT64_MIN)},
        {"9223372036854775807", CLIJSONValue::integer(INT64_MAX)},
        {"9223372036854775808", std::nullopt},
        {"\"1\"", CLIJSONValue::string("1")},
        {"\"true\"", CLIJSONValue::string("true")},
        {"\"\"", CLIJSONValue::string("")},
        {"1.5", std::nullopt},
        {"1.0", std::nullopt},
        {"1e3", std::nullopt},
        {"[]", std::nullopt},
        {"{}", std::nullopt},
    };
    for (const auto& c : cases) {
        const auto json = nlohmann::json::parse(c.json);
        EXPECT_EQ(CLIJSONValue::fromJSON(json), c.expected) << c.json;
        if (c.expected) {
            EXPECT_EQ(c.expected->toJSON().dump(), c.json) << "bare scalar on the wire";
        }
    }
}

TEST(CLIErrorCode, ExitStatusTable) {
    const std::map<std::string_view, int> table = {
        {"E_RUNTIME", 1},         {"E_USAGE", 2},          {"E_NOT_FOUND", 3},
        {"E_APP_UNAVAILABLE", 4}, {"E_AMBIGUOUS", 5},      {"E_VALIDATION", 6},
        {"E_CAPABILITY", 7},      {"E_CONFLICT", 8},       {"E_UNAUTHORIZED", 9},
        {"E_BUSY", 10},           {"E_LIKELY_SECRET", 11}, {"E_TIMEOUT", 124},
        {"E_SOMETHING_NEW", 1},   {"e_usage", 1},          {"", 1},
    };
    for (const auto& [code, status] : table) {
        EXPECT_EQ(CLIErrorCode::exitStatus(code), status) << code;
    }
    EXPECT_EQ(CLIErrorCode::all.front(), "E_RUNTIME");
    EXPECT_EQ(CLIErrorCode::all.back(), "E_TIMEOUT");
}

TEST(CLIDateFormat, FormatsInUTCWithoutFractionsAndParsesOnlyInternetDateTimes) {
    using namespace std::chrono;
    const CLIDate base = sys_days{year{2026} / 3 / 4} + hours{5} + minutes{6} + seconds{7};
    EXPECT_EQ(CLIDateFormat::format(base), "2026-03-04T05:06:07Z");
    EXPECT_EQ(CLIDateFormat::format(base + microseconds{999'999}), "2026-03-04T05:06:07Z");
    EXPECT_EQ(CLIDateFormat::format(CLIDate{} - microseconds{1}), "1969-12-31T23:59:59Z");
    EXPECT_EQ(CLIDateFormat::format(CLIDate{}), "1970-01-01T00:00:00Z");
    EXPECT_EQ(CLIDateFormat::format(sys_days{year{7} / 12 / 31} + hours{23} + minutes{59}),
              "0007-12-31T23:59:00Z");
    EXPECT_EQ(CLIDateFormat::format(sys_days{year{9999} / 12 / 31}), "9999-12-31T00:00:00Z");
    EXPECT_EQ(CLIDateFormat::format(sys_days{year{10000} / 1 / 2}), "10000-01-02T00:00:00Z");

    struct Case {
        const char* text;
        std::optional<CLIDate> expected;
    };
    const Case cases[] = {
        {"2026-03-04T05:06:07Z", base},
        {"2026-03-04T07:06:07+02:00", base},
        {"2026-03-03T23:36:07-05:30", base},
        {"2024-02-29T00:00:00Z", sys_days{year{2024} / 2 / 29}},
        {"2025-02-29T00:00:00Z", std::nullopt},
        {"2026-13-01T00:00:00Z", std::nullopt},
        {"2026-00-01T00:00:00Z", std::nullopt},
        {"2026-03-04T24:00:00Z", std::nullopt},
        {"2026-03-04T23:60:00Z", std::nullopt},
        {"2026-03-04T23:59:60Z", std::nullopt},
        {"2026-03-04T05:06:07.5Z", std::nullopt},
        {"2026-03-04t05:06:07z", std::nullopt},
        {"2026-03-04 05:06:07Z", std::nullopt},
        {"2026-03-04T05:06:07", std::nullopt},
        {"2026-03-04T05:06:07+0200", std::nullopt},
        {"2026-03-04T05:06:07+24:00", std::nullopt},
        {"2026-3-04T05:06:07Z", std::nullopt},
        {"+026-03-04T05:06:07Z", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(CLIDateFormat::parse(c.text), c.expected) << c.text;
    }
}

TEST(CLIToken, TokensAreLowerHexOfThirtyTwoRandomBytes) {
    std::array<std::uint8_t, 32> bytes{};
    bytes[0] = 0xAB;
    bytes[31] = 0x0F;
    const auto token = CLIToken::fromBytes(bytes);
    EXPECT_EQ(token, "ab" + std::string(60, '0') + "0f");

    std::set<std::string> seen;
    for (int i = 0; i < 4; ++i) {
        const auto fresh = CLIToken::generate();
        ASSERT_TRUE(fresh);
        EXPECT_EQ(fresh->size(), 64u);
        EXPECT_EQ(fresh->find_first_not_of("0123456789abcdef"), std::string::npos);
        seen.insert(*fresh);
    }
    EXPECT_EQ(seen.size(), 4u);
}

TEST(CLIToken, FileContentsAreTrimmedAndEmptyOrUnreadableMeansNoToken) {
    struct Case {
        std::optional<std::string> contents;
        std::optional<std::string> expected;
    };
    const Case cases[] = {
        {std::nullopt, std::nullopt},
        {"", std::nullopt},
        {" \n\t\r\n", std::nullopt},
        {"\xc2\xa0\xe3\x80\x80", std::nullopt}, // no-break and ideographic spaces only
        {"abc\n", "abc"},
        {"\xe2\x80\xa8 abc \xc2\x85", "abc"},
        {"a b\n", "a b"},
        {"abc\xff", std::nullopt}, // not UTF-8
    };
    for (const auto& c : cases) {
        EXPECT_EQ(CLIToken::fromFileContents(c.contents), c.expected);
    }
    EXPECT_EQ(std::get<CLIErrorPayload>(CLIToken::forClient(std::string("\n"))),
              (CLIErrorPayload{"E_APP_UNAVAILABLE", "Marlune isn't running (no CLI token).",
                               "Start Marlune, or run without --no-launch."}));
    EXPECT_EQ(std::get<std::string>(CLIToken::forClient(std::string("t\n"))), "t");
}

TEST(CLIToken, ComparisonRefusesAnyDifferenceIncludingLength) {
    const std::string token(64, 'c');
    EXPECT_TRUE(CLIToken::equal(token, token));
    EXPECT_FALSE(CLIToken::equal(token.substr(1), token));
    EXPECT_FALSE(CLIToken::equal(token + "c", token));
    EXPECT_FALSE(CLIToken::equal(token.substr(0, 63) + "d", token));
    EXPECT_FALSE(CLIToken::equal("d" + token.substr(1), token));
    EXPECT_FALSE(CLIToken::equal("", token));
    EXPECT_TRUE(CLIToken::equal("", ""));
}

TEST(CLIEndpoint, DirectoryFollowsMarluneHomeThenXDGThenHome) {
    using Env = std::map<std::string, std::string>;
    struct Case {
        Env env;
        std::string directory;
    };
    const Case cases[] = {
        {{{"MARLUNE_HOME", "/m"}, {"XDG_DATA_HOME", "/x"}, {"HOME", "/h"}}, "/m"},
        {{{"MARLUNE_HOME", ""}, {"XDG_DATA_HOME", "/x"}, {"HOME", "/h"}}, "/x/Marlune"},
        {{{"XDG_DATA_HOME", "relative"}, {"HOME", "/h"}}, "/h/.local/share/Marlune"},
        {{{"HOME", "/h"}}, "/h/.local/share/Marlune"},
    };
    for (const auto& c : cases) {
        const auto endpoint = CLIEndpoint::resolve([&](std::string_view name) {
            const auto found = c.env.find(std::string(name));
            return found == c.env.end() ? std::nullopt : std::optional(found->second);
        });
        EXPECT_EQ(endpoint.directory, c.directory);
        EXPECT_EQ(endpoint.socketPath(), c.directory + "/marlune.sock");
        EXPECT_EQ(endpoint.tokenPath(), c.directory + "/cli-token");
    }
    EXPECT_THROW(CLIEndpoint::resolve([](std::string_view) { return std::nullopt; }), CLIError);
}

TEST(CLIEndpoint, SocketPathMustLeaveRoomForTheTerminatingNul) {
    const std::string dir107 = "/" + std::string(106 - 13, 'd'); // + "/marlune.sock" = 107
    const CLIEndpoint fits{dir107};
    EXPECT_EQ(fits.clientSocketPath().size(), 107u);
    const CLIEndpoint tooLong{dir107 + "x"};
    try {
        (void)tooLong.clientSocketPath();
        FAIL() << "a 108-byte path has no room for the NUL";
    } catch (const CLIError& error) {
        EXPECT_EQ(error.payload().message, "Socket path too long for a Unix-domain socket: " +
                                               tooLong.socketPath().string());
    }
    EXPECT_EQ(CLIEndpoint::serverPathTooLongMessage(), "Socket path too long.");
}

TEST(Paging, PageInfoAndSlicing) {
    struct Case {
        std::int64_t total, limit, offset;
        std::vector<int> items;
        std::optional<std::int64_t> nextOffset;
    };
    const Case cases[] = {
        {5, 2, 0, {0, 1}, 2},
        {5, 2, 2, {2, 3}, 4},
        {5, 2, 4, {4}, std::nullopt},
        {4, 2, 2, {2, 3}, std::nullopt},
        {5, 2, 9, {}, std::nullopt},
        {5, 0, 0, {}, std::nullopt},
        {5, -3, 0, {}, std::nullopt},
        {5, 2, -7, {0, 1}, 2},
        {5, INT64_MAX, 1, {1, 2, 3, 4}, std::nullopt},
        {0, 10, 0, {}, std::nullopt},
    };
    for (const auto& c : cases) {
        std::vector<int> all(static_cast<std::size_t>(c.total));
        for (std::size_t i = 0; i < all.size(); ++i) {
            all[i] = static_cast<int>(i);
        }
        const auto page = Page<int>::slice(all, c.limit, c.offset);
        EXPECT_EQ(page.items, c.items) << c.limit << "@" << c.offset;
        EXPECT_EQ(page.page.total, c.total);
        EXPECT_EQ(page.page.nextOffset, c.nextOffset) << c.limit << "@" << c.offset;
    }
}

TEST(CLIBase64, StrictDecodingRefusesAnythingButOneCanonicalText) {
    const std::pair<std::string, std::string> good[] = {{"", ""},
                                                        {"f", "Zg=="},
                                                        {"fo", "Zm8="},
                                                        {"foo", "Zm9v"},
                                                        {"foobar", "Zm9vYmFy"},
                                                        {"foob", "Zm9vYg=="},
                                                        {std::string("\0\xff", 2), "AP8="}};
    for (const auto& [bytes, text] : good) {
        EXPECT_EQ(CLIBase64::encode(bytes), text);
        EXPECT_EQ(CLIBase64::decode(text), bytes);
    }
    for (const char* bad : {"Zg", "Zg=", "Zh==", "Zm9=", "Zg==Zg==", "Z===", "====", "Zm9v\n",
                            " Zm9v", "Zm-v", "Zm_v", "Zg=a", "Zm=vYg==", "Zm9vY==="}) {
        EXPECT_FALSE(CLIBase64::decode(bad)) << bad;
    }
}

} // namespace
} // namespace marlune
