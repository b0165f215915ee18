#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace marlune {

// The largest pieces of content the library accepts, checked wherever content enters (the
// command line, imports, capture) so that every record it holds can also be read back, listed
// and exported. Each limit is named in the message that refuses it.
struct ContentLimits {
    // A snippet's body: far beyond any template a person types, small enough that a page of
    // snippets always fits in one reply.
    static constexpr std::uint64_t snippetBodyBytes = std::uint64_t{1} << 20;
    // One representation of a clip (an image, a file list, a rich text): a 4K screenshot as PNG
    // or TIFF fits; the tool fetches large ones in pieces.
    static constexpr std::uint64_t clipFlavourBytes = std::uint64_t{64} << 20;
    // A Board item's note.
    static constexpr std::uint64_t boardNoteBytes = std::uint64_t{256} << 10;

    // "1 MiB", "64 MiB", "256 KiB", or a byte count when it is not a round figure.
    static std::string describe(std::uint64_t bytes) {
        if (bytes >= (std::uint64_t{1} << 20) && bytes % (std::uint64_t{1} << 20) == 0) {
            return std::to_string(bytes >> 20) + " MiB";
        }
        if (bytes >= (std::uint64_t{1} << 10) && bytes % (std::uint64_t{1} << 10) == 0) {
            return std::to_string(bytes >> 10) + " KiB";
        }
        return std::to_string(bytes) + " bytes";
    }

    // "The snippet body is 11.0 MB, over the 1 MiB limit for a snippet body." when `size` is
    // over `limit`; nothing when it fits. `thing` names it without an article ("snippet body").
    static std::optional<std::string> refusal(std::string_view thing, std::uint64_t size,
                                              std::uint64_t limit) {
        if (size <= limit) {
            return std::nullopt;
        }
        const std::string name(thing);
        return "The " + name + " is " + megabytes(size) + ", over the " + describe(limit) +
               " limit for a " + name + ".";
    }

private:
    static std::string megabytes(std::uint64_t bytes) {
        const std::uint64_t tenths = (bytes + 50'000) / 100'000;
        return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " MB";
    }
};

} // namespace marlune
