#include "MarluneCLIProtocol/CLIWire.h"

#include <algorithm>

namespace marlune {

namespace {

const std::string kShortHeader = "Short frame header.";
const std::string kPeerClosed = "peer closed";
const std::string kReadFailed = "read failed";
const std::string kWriteFailed = "write failed";

std::string oversizedMessage() {
    return "Frame exceeds " + std::to_string(CLIWire::maxPayloadBytes) + " bytes.";
}

// Moves all of `bytes` through `transfer` (a read or a write of at most the span given),
// retrying interrupted calls; nothing on success. `failure` names a broken transfer.
template <class Span, class Transfer>
std::optional<CLIWireError> transferAll(const Transfer& transfer, Span bytes,
                                        const std::string& failure) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const auto io = transfer(bytes.subspan(done));
        switch (io.status) {
        case CLIWireIO::Status::transferred:
            // A transport that claims more than it was given, or nothing at all, would loop or
            // overrun; both are broken.
            if (io.count == 0 || io.count > bytes.size() - done) {
                return CLIWireError{failure};
            }
            done += io.count;
            break;
        case CLIWireIO::Status::interrupted:
            break;
        case CLIWireIO::Status::closed:
            return CLIWireError{kPeerClosed};
        case CLIWireIO::Status::failed:
            return CLIWireError{failure};
        }
    }
    return std::nullopt;
}

// Fills `buffer` completely; nothing on success.
std::optional<CLIWireError> readExactly(const CLIWire::ReadSome& read,
                                        std::span<std::uint8_t> buffer) {
    return transferAll(read, buffer, kReadFailed);
}

} // namespace

CLIWire::Header CLIWire::encodeHeader(std::uint32_t payloadLength) {
    return {static_cast<std::uint8_t>(payloadLength >> 24),
            static_cast<std::uint8_t>(payloadLength >> 16),
            static_cast<std::uint8_t>(payloadLength >> 8),
            static_cast<std::uint8_t>(payloadLength)};
}

std::variant<std::uint32_t, CLIWireError>
CLIWire::decodeHeader(std::span<const std::uint8_t> bytes) {
    if (bytes.size() < headerBytes) {
        return CLIWireError{kShortHeader};
    }
    const std::uint32_t length = (std::uint32_t{bytes[0]} << 24) | (std::uint32_t{bytes[1]} << 16) |
                                 (std::uint32_t{bytes[2]} << 8) | std::uint32_t{bytes[3]};
    if (length > maxPayloadBytes) {
        return CLIWireError{oversizedMessage()};
    }
    return length;
}

std::variant<std::string, CLIWireError> CLIWire::encodeFrame(std::string_view payload) {
    if (payload.size() > maxPayloadBytes) {
        return CLIWireError{oversizedMessage()};
    }
    const auto header = encodeHeader(static_cast<std::uint32_t>(payload.size()));
    std::string frame;
    frame.reserve(headerBytes + payload.size());
    frame.append(reinterpret_cast<const char*>(header.data()), header.size());
    frame.append(payload);
    return frame;
}

std::variant<std::string_view, CLIWireError>
CLIWire::decodeFrame(std::span<const std::uint8_t> bytes) {
    const auto header = decodeHeader(bytes);
    if (const auto* error = std::get_if<CLIWireError>(&header)) {
        return *error;
    }
    const std::uint32_t length = std::get<std::uint32_t>(header);
    if (bytes.size() - headerBytes < length) {
        return CLIWireError{kPeerClosed};
    }
    return std::string_view(reinterpret_cast<const char*>(bytes.data() + headerBytes), length);
}

std::variant<std::string, CLIWireError> CLIWire::readFrame(const ReadSome& read) {
    Header header{};
    if (auto error = readExactly(read, header)) {
        return *error;
    }
    const auto decoded = decodeHeader(header);
    if (const auto* error = std::get_if<CLIWireError>(&decoded)) {
        return *error;
    }
    const std::size_t length = std::get<std::uint32_t>(decoded);

    constexpr std::size_t chunk = 64 * 1024;
    // Reserving the announced length costs address space only: pages are touched as the
    // chunks arrive, and growing by copies would touch the large payloads twice over.
    std::string payload;
    payload.reserve(length);
    while (payload.size() < length) {
        const std::size_t start = payload.size();
        payload.resize(start + std::min(chunk, length - start));
        const std::span<std::uint8_t> window(
            reinterpret_cast<std::uint8_t*>(payload.data()) + start, payload.size() - start);
        if (auto error = readExactly(read, window)) {
            return *error;
        }
    }
    return payload;
}

std::optional<CLIWireError> CLIWire::writeFrame(const WriteSome& write, std::string_view payload) {
    if (payload.size() > 64 * 1024 && payload.size() <= maxPayloadBytes) {
        // A large payload goes out after its header as it is, not copied behind it first.
        const auto header = encodeHeader(static_cast<std::uint32_t>(payload.size()));
        if (auto error = transferAll(write, std::span<const std::uint8_t>(header), kWriteFailed)) {
            return error;
        }
        return transferAll(write,
                           std::span<const std::uint8_t>(
                               reinterpret_cast<const std::uint8_t*>(payload.data()), payload.size()),
                           kWriteFailed);
    }
    auto frame = encodeFrame(payload);
    if (const auto* error = std::get_if<CLIWireError>(&frame)) {
        return *error;
    }
    const auto& bytes = std::get<std::string>(frame);
    const std::span<const std::uint8_t> all(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                            bytes.size());
    return transferAll(write, all, kWriteFailed);
}

} // namespace marlune
