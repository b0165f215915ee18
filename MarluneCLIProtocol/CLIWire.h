#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>

namespace marlune {

// A framing failure, with the text the server logs or the tool reports.
struct CLIWireError {
    std::string message;
    friend bool operator==(const CLIWireError&, const CLIWireError&) = default;
};

// One transfer attempted by the caller's socket code. `interrupted` (EINTR) is retried;
// `closed` is the end of the stream on reads and a peer that went away on writes.
struct CLIWireIO {
    enum class Status { transferred, interrupted, closed, failed };
    Status status = Status::failed;
    std::size_t count = 0;
};

// Every message in either direction: a 4-byte big-endian payload length, then the payload.
// The I/O itself belongs to the callers; this only frames, checks and loops.
struct CLIWire {
    static constexpr std::size_t headerBytes = 4;
    static constexpr std::uint32_t maxPayloadBytes = 16'777'216;

    using Header = std::array<std::uint8_t, headerBytes>;

    // Reads at most buffer.size() bytes into buffer.
    using ReadSome = std::function<CLIWireIO(std::span<std::uint8_t> buffer)>;
    // Writes at most bytes.size() bytes.
    using WriteSome = std::function<CLIWireIO(std::span<const std::uint8_t> bytes)>;

    static Header encodeHeader(std::uint32_t payloadLength);

    // The announced payload length; "Short frame header." below four bytes and
    // "Frame exceeds 16777216 bytes." above the limit. Bytes past the header are not looked at.
    static std::variant<std::uint32_t, CLIWireError>
    decodeHeader(std::span<const std::uint8_t> bytes);

    // Header and payload; refuses a payload above the limit, which no peer would accept.
    static std::variant<std::string, CLIWireError> encodeFrame(std::string_view payload);

    // The payload of the frame that starts `bytes`. Ending before the announced length is
    // "peer closed", as it is on a stream; bytes past the frame are ignored.
    static std::variant<std::string_view, CLIWireError>
    decodeFrame(std::span<const std::uint8_t> bytes);

    // Reads exactly one frame. An oversized header is refused before any payload byte is
    // read, and memory grows with the bytes that actually arrive, not with the announcement.
    static std::variant<std::string, CLIWireError> readFrame(const ReadSome& read);

    // Writes the whole frame, looping over partial writes: "write failed" or "peer closed".
    static std::optional<CLIWireError> writeFrame(const WriteSome& write, std::string_view payload);
};

} // namespace marlune
