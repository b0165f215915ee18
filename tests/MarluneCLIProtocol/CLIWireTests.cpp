#include "MarluneCLIProtocol/CLIWire.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace marlune {
namespace {

std::vector<std::uint8_t> bytes(std::string_view text) {
    return {text.begin(), text.end()};
}

std::string header(std::uint32_t length) {
    const auto h = CLIWire::encodeHeader(length);
    return {h.begin(), h.end()};
}

// A stream that hands out its bytes at most `step` at a time, with scripted interruptions,
// and remembers how much the frame reader took.
struct ScriptedStream {
    std::string data;
    std::size_t step = 1 << 20;
    std::deque<CLIWireIO::Status> before; // statuses returned before any data
    CLIWireIO::Status atEnd = CLIWireIO::Status::closed;
    std::size_t consumed = 0;

    CLIWire::ReadSome reader() {
        return [this](std::span<std::uint8_t> buffer) {
            if (!before.empty()) {
                const auto status = before.front();
                before.pop_front();
                return CLIWireIO{status, 0};
            }
            if (consumed == data.size()) {
                return CLIWireIO{atEnd, 0};
            }
            const std::size_t n = std::min({step, buffer.size(), data.size() - consumed});
            std::memcpy(buffer.data(), data.data() + consumed, n);
            consumed += n;
            return CLIWireIO{CLIWireIO::Status::transferred, n};
        };
    }
};

TEST(CLIWire, HeaderDecodingRefusesShortAndOversizedAndAcceptsTheLimit) {
    struct Case {
        std::vector<std::uint8_t> header;
        std::variant<std::uint32_t, CLIWireError> expected;
    };
    const Case cases[] = {
        {{}, CLIWireError{"Short frame header."}},
        {{0, 0, 1}, CLIWireError{"Short frame header."}},
        {{0, 0, 0, 0}, 0u},
        {{0x01, 0x00, 0x00, 0x00}, 16'777'216u},
        {{0x01, 0x00, 0x00, 0x01}, CLIWireError{"Frame exceeds 16777216 bytes."}},
        {{0xFF, 0xFF, 0xFF, 0xFF}, CLIWireError{"Frame exceeds 16777216 bytes."}},
        {{0x00, 0x01, 0x02, 0x03, 0xFF}, 0x010203u}, // big-endian; trailing bytes unread
    };
    for (const auto& c : cases) {
        EXPECT_EQ(CLIWire::decodeHeader(c.header), c.expected);
    }
    const auto encoded = CLIWire::encodeHeader(0x0A0B0C0D);
    EXPECT_EQ(std::vector<std::uint8_t>(encoded.begin(), encoded.end()),
              (std::vector<std::uint8_t>{0x0A, 0x0B, 0x0C, 0x0D}));
}

TEST(CLIWire, BufferDecodingReportsTruncatedPayloadAsPeerClosed) {
    EXPECT_EQ(CLIWire::decodeFrame(bytes(header(5) + "abcde!")),
              (std::variant<std::string_view, CLIWireError>{std::string_view("abcde")}));
    EXPECT_EQ(CLIWire::decodeFrame(bytes(header(5) + "abcd")),
              (std::variant<std::string_view, CLIWireError>{CLIWireError{"peer closed"}}));
    EXPECT_EQ(CLIWire::decodeFrame(bytes(header(0))),
              (std::variant<std::string_view, CLIWireError>{std::string_view()}));
}

TEST(CLIWire, OversizedHeaderIsRefusedBeforeAnyPayloadByteIsRead) {
    ScriptedStream stream;
    stream.data = header(16'777'217) + std::string(64, 'x');
    const auto result = CLIWire::readFrame(stream.reader());
    EXPECT_EQ(std::get<CLIWireError>(result).message, "Frame exceeds 16777216 bytes.");
    EXPECT_EQ(stream.consumed, 4u);
}

TEST(CLIWire, StreamReadingOutcomes) {
    struct Case {
        const char* name;
        std::string data;
        std::size_t step;
        std::deque<CLIWireIO::Status> before;
        CLIWireIO::Status atEnd;
        std::variant<std::string, CLIWireError> expected;
    };
    using S = CLIWireIO::Status;
    const Case cases[] = {
        {"whole", header(3) + "abc", 1 << 20, {}, S::closed, std::string("abc")},
        {"byte by byte", header(3) + "abc", 1, {}, S::closed, std::string("abc")},
        {"interrupted then whole",
         header(2) + "ok",
         1 << 20,
         {S::interrupted, S::interrupted},
         S::closed,
         std::string("ok")},
        {"empty payload reads nothing more", header(0), 1, {}, S::failed, std::string()},
        {"eof inside header",
         std::string("\0\0", 2),
         1,
         {},
         S::closed,
         CLIWireError{"peer closed"}},
        {"eof inside payload", header(4) + "ab", 1, {}, S::closed, CLIWireError{"peer closed"}},
        {"error inside payload", header(4) + "ab", 1, {}, S::failed, CLIWireError{"read failed"}},
        {"error at once", "", 1, {S::failed}, S::closed, CLIWireError{"read failed"}},
    };
    for (const auto& c : cases) {
        ScriptedStream stream{c.data, c.step, c.before, c.atEnd};
        EXPECT_EQ(CLIWire::readFrame(stream.reader()), c.expected) << c.name;
    }
}

TEST(CLIWire, ReaderClaimingMoreThanItWasGivenIsAFailureNotAnOverrun) {
    const auto liar = [](std::span<std::uint8_t> buffer) {
        return CLIWireIO{CLIWireIO::Status::transferred, buffer.size() + 1};
    };
    EXPECT_EQ(std::get<CLIWireError>(CLIWire::readFrame(liar)).message, "read failed");
}

TEST(CLIWire, LargestPayloadCrossesTheStreamIntact) {
    std::string payload(CLIWire::maxPayloadBytes, 'a');
    payload.back() = 'z';
    ScriptedStream stream;
    stream.data = std::get<std::string>(CLIWire::encodeFrame(payload));
    stream.step = 100'000;
    EXPECT_EQ(std::get<std::string>(CLIWire::readFrame(stream.reader())), payload);

    payload.push_back('!');
    EXPECT_EQ(std::get<CLIWireError>(CLIWire::encodeFrame(payload)).message,
              "Frame exceeds 16777216 bytes.");
}

TEST(CLIWire, WritingLoopsOverPartialWritesAndReportsFailures) {
    std::string written;
    int calls = 0;
    const auto partial = [&](std::span<const std::uint8_t> data) {
        if (++calls % 3 == 0) {
            return CLIWireIO{CLIWireIO::Status::interrupted, 0};
        }
        const std::size_t n = std::min<std::size_t>(2, data.size());
        written.append(reinterpret_cast<const char*>(data.data()), n);
        return CLIWireIO{CLIWireIO::Status::transferred, n};
    };
    EXPECT_FALSE(CLIWire::writeFrame(partial, "hello"));
    EXPECT_EQ(written, header(5) + "hello");

    const auto gone = [](std::span<const std::uint8_t>) {
        return CLIWireIO{CLIWireIO::Status::closed, 0};
    };
    const auto broken = [](std::span<const std::uint8_t>) {
        return CLIWireIO{CLIWireIO::Status::failed, 0};
    };
    EXPECT_EQ(CLIWire::writeFrame(gone, "x"), CLIWireError{"peer closed"});
    EXPECT_EQ(CLIWire::writeFrame(broken, "x"), CLIWireError{"write failed"});
}

} // namespace
} // namespace marlune
