#pragma once

// Writes ZIP archives for the reader's tests and benchmarks, with every field open to lies:
// declared sizes, checksums, flags, raw compressed data and large-archive (ZIP64) records.

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>
#include <zlib.h>

namespace marlune::testing {

inline void put16(std::vector<std::uint8_t>& out, std::uint16_t value) {
    out.push_back(static_cast<std::uint8_t>(value));
    out.push_back(static_cast<std::uint8_t>(value >> 8));
}
inline void put32(std::vector<std::uint8_t>& out, std::uint32_t value) {
    put16(out, static_cast<std::uint16_t>(value));
    put16(out, static_cast<std::uint16_t>(value >> 16));
}
inline void put64(std::vector<std::uint8_t>& out, std::uint64_t value) {
    put32(out, static_cast<std::uint32_t>(value));
    put32(out, static_cast<std::uint32_t>(value >> 32));
}
inline void patch16(std::vector<std::uint8_t>& out, std::size_t at, std::uint16_t value) {
    out.at(at) = static_cast<std::uint8_t>(value);
    out.at(at + 1) = static_cast<std::uint8_t>(value >> 8);
}
inline void patch32(std::vector<std::uint8_t>& out, std::size_t at, std::uint32_t value) {
    patch16(out, at, static_cast<std::uint16_t>(value));
    patch16(out, at + 2, static_cast<std::uint16_t>(value >> 16));
}

inline std::uint32_t crcOf(std::string_view data) {
    return static_cast<std::uint32_t>(
        crc32_z(0, reinterpret_cast<const Bytef*>(data.data()), data.size()));
}

// Raw deflate, as ZIP stores it. With `flush` Z_FULL_FLUSH and no finish the output is a
// self-contained, byte-aligned run of blocks that can be repeated.
inline std::vector<std::uint8_t> deflateRaw(std::string_view data, int flush = Z_FINISH) {
    z_stream zs{};
    if (deflateInit2(&zs, 9, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
        throw std::runtime_error("deflateInit2");
    }
    std::vector<std::uint8_t> out(deflateBound(&zs, data.size()) + 64);
    zs.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
    zs.avail_in = static_cast<uInt>(data.size());
    zs.next_out = out.data();
    zs.avail_out = static_cast<uInt>(out.size());
    const int status = deflate(&zs, flush);
    if ((flush == Z_FINISH && status != Z_STREAM_END) || (flush != Z_FINISH && status != Z_OK)) {
        throw std::runtime_error("deflate");
    }
    out.resize(zs.total_out);
    deflateEnd(&zs);
    return out;
}

// A deflate stream that inflates to `mebibytes` MiB of zeros from about 1 KiB per MiB,
// built without compressing them: one flushed block repeated, then an empty final block.
inline std::vector<std::uint8_t> zeroBombStream(std::uint64_t mebibytes) {
    const auto block = deflateRaw(std::string(1 << 20, '\0'), Z_FULL_FLUSH);
    std::vector<std::uint8_t> out;
    out.reserve(block.size() * mebibytes + 2);
    for (std::uint64_t i = 0; i < mebibytes; ++i) {
        out.insert(out.end(), block.begin(), block.end());
    }
    out.push_back(0x03); // final fixed-Huffman block holding only the end-of-block code
    out.push_back(0x00);
    return out;
}

struct FixtureEntry {
    std::string name;
    std::string content;
    std::uint16_t method = 8;
    std::uint16_t flags = 0;
    // Overrides of what the headers say and of the stored data, for archives that lie.
    std::optional<std::vector<std::uint8_t>> data;
    std::optional<std::uint64_t> declaredSize;
    std::optional<std::uint32_t> crc;
    // Saturated 32-bit sizes and offset with a ZIP64 extra field carrying the real values.
    bool zip64 = false;
    // General-purpose bit 3: the local header carries zeros, as streaming writers leave it.
    bool dataDescriptor = false;

    FixtureEntry withMethod(std::uint16_t value) const {
        return with(&FixtureEntry::method, value);
    }
    FixtureEntry withFlags(std::uint16_t value) const { return with(&FixtureEntry::flags, value); }
    FixtureEntry withData(std::vector<std::uint8_t> value) const {
        return with(&FixtureEntry::data, std::optional(std::move(value)));
    }
    FixtureEntry declaring(std::uint64_t size) const {
        return with(&FixtureEntry::declaredSize, std::optional(size));
    }
    FixtureEntry withCrc(std::uint32_t value) const {
        return with(&FixtureEntry::crc, std::optional(value));
    }
    FixtureEntry asZip64() const { return with(&FixtureEntry::zip64, true); }

private:
    template <class T> FixtureEntry with(T FixtureEntry::*member, T value) const {
        FixtureEntry copy = *this;
        copy.*member = std::move(value);
        return copy;
    }
};

// A deflated file; storedFile() and the with* changes make the others.
inline FixtureEntry file(std::string name, std::string content = {}) {
    FixtureEntry entry;
    entry.name = std::move(name);
    entry.content = std::move(content);
    return entry;
}
inline FixtureEntry storedFile(std::string name, std::string content = {}) {
    return file(std::move(name), std::move(content)).withMethod(0);
}

struct FixtureZip {
    std::vector<std::uint8_t> bytes;
    std::vector<std::size_t> localOffsets;
    std::vector<std::size_t> centralOffsets;
    std::size_t centralOffset = 0;
    std::size_t endOffset = 0;
};

inline FixtureZip buildZip(const std::vector<FixtureEntry>& entries, bool zip64End = false,
                           std::string_view comment = {}) {
    FixtureZip zip;
    auto& out = zip.bytes;
    struct Written {
        std::uint64_t compressed;
        std::uint64_t declared;
        std::uint32_t crc;
        std::uint16_t flags;
    };
    std::vector<Written> written;
    for (const auto& entry : entries) {
        const std::vector<std::uint8_t> data =
            entry.data ? *entry.data
            : entry.method == 8
                ? deflateRaw(entry.content)
                : std::vector<std::uint8_t>(entry.content.begin(), entry.content.end());
        const Written w{data.size(), entry.declaredSize.value_or(entry.content.size()),
                        entry.crc.value_or(crcOf(entry.content)),
                        static_cast<std::uint16_t>(entry.flags | (entry.dataDescriptor ? 8 : 0))};
        written.push_back(w);
        zip.localOffsets.push_back(out.size());
        put32(out, 0x04034b50);
        put16(out, entry.zip64 ? 45 : 20);
        put16(out, w.flags);
        put16(out, entry.method);
        put32(out, 0); // time and date
        const bool zeros = entry.dataDescriptor;
        put32(out, zeros ? 0 : w.crc);
        put32(out, zeros ? 0 : entry.zip64 ? 0xFFFFFFFF : static_cast<std::uint32_t>(w.compressed));
        put32(out, zeros ? 0 : entry.zip64 ? 0xFFFFFFFF : static_cast<std::uint32_t>(w.declared));
        put16(out, static_cast<std::uint16_t>(entry.name.size()));
        put16(out, entry.zip64 ? 20 : 0);
        out.insert(out.end(), entry.name.begin(), entry.name.end());
        if (entry.zip64) {
            put16(out, 0x0001);
            put16(out, 16);
            put64(out, w.declared);
            put64(out, w.compressed);
        }
        out.insert(out.end(), data.begin(), data.end());
        if (entry.dataDescriptor) {
            put32(out, 0x08074b50);
            put32(out, w.crc);
            put32(out, static_cast<std::uint32_t>(w.compressed));
            put32(out, static_cast<std::uint32_t>(w.declared));
        }
    }
    zip.centralOffset = out.size();
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const auto& entry = entries[i];
        const auto& w = written[i];
        zip.centralOffsets.push_back(out.size());
        put32(out, 0x02014b50);
        put16(out, 0x0314); // made by: Unix
        put16(out, entry.zip64 ? 45 : 20);
        put16(out, w.flags);
        put16(out, entry.method);
        put32(out, 0);
        put32(out, w.crc);
        put32(out, entry.zip64 ? 0xFFFFFFFF : static_cast<std::uint32_t>(w.compressed));
        put32(out, entry.zip64 ? 0xFFFFFFFF : static_cast<std::uint32_t>(w.declared));
        put16(out, static_cast<std::uint16_t>(entry.name.size()));
        put16(out, entry.zip64 ? 28 : 0);
        put16(out, 0); // comment
        put16(out, 0); // disk
        put16(out, 0);
        put32(out, 0);
        put32(out, entry.zip64 ? 0xFFFFFFFF : static_cast<std::uint32_t>(zip.localOffsets[i]));
        out.insert(out.end(), entry.name.begin(), entry.name.end());
        if (entry.zip64) {
            put16(out, 0x0001);
            put16(out, 24);
            put64(out, w.declared);
            put64(out, w.compressed);
            put64(out, zip.localOffsets[i]);
        }
    }
    const std::size_t centralSize = out.size() - zip.centralOffset;
    if (zip64End) {
        const std::size_t record = out.size();
        put32(out, 0x06064b50);
        put64(out, 44);
        put16(out, 45);
        put16(out, 45);
        put32(out, 0);
        put32(out, 0);
        put64(out, entries.size());
        put64(out, entries.size());
        put64(out, centralSize);
        put64(out, zip.centralOffset);
        put32(out, 0x07064b50);
        put32(out, 0);
        put64(out, record);
        put32(out, 1);
    }
    zip.endOffset = out.size();
    put32(out, 0x06054b50);
    put16(out, 0);
    put16(out, 0);
    put16(out, zip64End ? 0xFFFF : static_cast<std::uint16_t>(entries.size()));
    put16(out, zip64End ? 0xFFFF : static_cast<std::uint16_t>(entries.size()));
    put32(out, zip64End ? 0xFFFFFFFF : static_cast<std::uint32_t>(centralSize));
    put32(out, zip64End ? 0xFFFFFFFF : static_cast<std::uint32_t>(zip.centralOffset));
    put16(out, static_cast<std::uint16_t>(comment.size()));
    out.insert(out.end(), comment.begin(), comment.end());
    return zip;
}

} // namespace marlune::testing
