#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <variant>
#include <vector>

namespace marlune {

// Why an archive or one of its files can't be read: the reason as the importer shows it after
// "That isn't a valid <format> file: ".
struct ZipError {
    std::string reason;
    friend bool operator==(const ZipError&, const ZipError&) = default;
};

// One file of an archive, as its central directory describes it. Names are the stored bytes;
// the archives we import are written on macOS, which stores UTF-8.
struct ZipEntry {
    static constexpr std::uint16_t stored = 0;
    static constexpr std::uint16_t deflated = 8;

    std::string name;
    std::uint16_t method = stored;
    std::uint64_t compressedSize = 0;
    std::uint64_t uncompressedSize = 0;
    std::uint32_t crc32 = 0;
    bool encrypted = false;

    bool isDirectory() const { return !name.empty() && name.back() == '/'; }

    friend bool operator==(const ZipEntry&, const ZipEntry&) = default;
};

// A read-only view of a ZIP archive held in memory. Snippet libraries are small, so anything
// large is refused from what the headers declare, before a byte is unpacked; a header that
// understates what its data inflates to is caught while inflating, so memory never grows past
// the declared size. Large-archive (ZIP64) records are read, since some writers emit them even
// for small files; the limits below apply to the sizes they give all the same.
//
// The archive views the caller's bytes, which must outlive it.
class ZipArchive {
public:
    static constexpr std::size_t kMaxEntries = 10'000;
    static constexpr std::uint64_t kMaxEntryBytes = 64ULL << 20;
    static constexpr std::uint64_t kMaxTotalBytes = 256ULL << 20;

    // Reads the central directory and every local header, so that a damaged or unsafe archive
    // is refused whole rather than file by file.
    static std::variant<ZipArchive, ZipError> open(std::span<const std::uint8_t> bytes);

    const std::vector<ZipEntry>& entries() const { return entries_; }
    const ZipEntry* find(std::string_view name) const;

    // The unpacked bytes of one file, checked against the declared size and CRC-32.
    // Encryption and methods other than stored and deflated are refused here rather than in
    // open(), so that one odd file the importer never asks for doesn't spoil the archive.
    std::variant<std::vector<std::uint8_t>, ZipError> read(std::string_view name) const;
    std::variant<std::vector<std::uint8_t>, ZipError> read(const ZipEntry& entry) const {
        return read(entry.name);
    }

private:
    ZipArchive() = default;

    std::span<const std::uint8_t> bytes_;
    std::vector<ZipEntry> entries_;
    // Where each entry's compressed data starts in bytes_, parallel to entries_.
    std::vector<std::uint64_t> dataOffsets_;
    std::unordered_map<std::string, std::size_t> byName_;
};

} // namespace marlune
