#include "LibraryImport/ZipArchive.h"

#include <algorithm>
#include <climits>
#include <optional>
#include <zlib.h>

namespace marlune {
namespace {

constexpr std::uint32_t kEndSignature = 0x06054b50;
constexpr std::uint32_t kEnd64LocatorSignature = 0x07064b50;
constexpr std::uint32_t kEnd64Signature = 0x06064b50;
constexpr std::uint32_t kCentralSignature = 0x02014b50;
constexpr std::uint32_t kLocalSignature = 0x04034b50;

constexpr std::size_t kEndBytes = 22;
constexpr std::size_t kEnd64LocatorBytes = 20;
constexpr std::size_t kEnd64Bytes = 56;
constexpr std::size_t kCentralBytes = 46;
constexpr std::size_t kLocalBytes = 30;
constexpr std::size_t kMaxCommentBytes = 0xFFFF;
constexpr std::uint16_t kZip64ExtraID = 0x0001;

constexpr std::uint16_t kFlagEncrypted = 1U << 0;
constexpr std::uint16_t kFlagDataDescriptor = 1U << 3;
constexpr std::uint16_t kFlagStrongEncryption = 1U << 6;
// Method 99 is the AES scheme, which always means a password.
constexpr std::uint16_t kMethodAES = 99;

constexpr std::uint16_t kSaturated16 = 0xFFFF;
constexpr std::uint32_t kSaturated32 = 0xFFFFFFFF;

// Inflated files start with this much room and double up to their declared size, so that a
// header claiming 64 MiB over a few bytes of data costs a few bytes.
constexpr std::size_t kInflateStartBytes = 64 * 1024;

const std::string kNotZip = "it isn't a ZIP archive.";
const std::string kMultiPart = std::string("multi-part archives") + " aren't supported.";
const std::string kPastEnd = "the file index points past its end";
const std::string kTooMuch = "it unpacks to more than Marlune will read.";
const std::string kUnsafeName = "collection with an unsafe name (a folder path or “..”).";

ZipError damaged(std::string_view detail) {
    return ZipError{"the archive is damaged (" + std::string(detail) + ")"};
}

std::string quoted(std::string_view name) {
    return "“" + std::string(name) + "”";
}

// Little-endian reads over the whole buffer; every caller has checked the range first.
struct Bytes {
    std::span<const std::uint8_t> data;

    bool holds(std::uint64_t offset, std::uint64_t length) const {
        return offset <= data.size() && length <= data.size() - offset;
    }
    std::uint16_t u16(std::uint64_t at) const {
        return static_cast<std::uint16_t>(data[at] | (data[at + 1] << 8));
    }
    std::uint32_t u32(std::uint64_t at) const {
        return static_cast<std::uint32_t>(u16(at)) |
               (static_cast<std::uint32_t>(u16(at + 2)) << 16);
    }
    std::uint64_t u64(std::uint64_t at) const {
        return static_cast<std::uint64_t>(u32(at)) |
               (static_cast<std::uint64_t>(u32(at + 4)) << 32);
    }
    std::string_view text(std::uint64_t at, std::uint64_t length) const {
        return {reinterpret_cast<const char*>(data.data() + at), static_cast<std::size_t>(length)};
    }
};

// A name that could leave the folder it is unpacked into, on this system or another: absolute,
// with a drive letter, with a ".." step under either separator, or with a NUL that would cut
// it short for whoever turns it into a path.
bool isUnsafeName(std::string_view name) {
    if (name.find('\0') != std::string_view::npos) {
        return true;
    }
    if (name.front() == '/' || name.front() == '\\') {
        return true;
    }
    if (name.size() >= 2 && name[1] == ':') {
        return true;
    }
    std::size_t start = 0;
    while (start <= name.size()) {
        const std::size_t end = std::min(name.find_first_of("/\\", start), name.size());
        if (name.substr(start, end - start) == "..") {
            return true;
        }
        start = end + 1;
    }
    return false;
}

struct Directory {
    std::uint64_t count = 0;
    std::uint64_t offset = 0;
    std::uint64_t size = 0;
    // Where the records that follow the central directory begin; the directory must end there.
    std::uint64_t end = 0;
};

std::optional<std::uint64_t> findEndRecord(const Bytes& bytes) {
    if (bytes.data.size() < kEndBytes) {
        return std::nullopt;
    }
    const std::uint64_t last = bytes.data.size() - kEndBytes;
    const std::uint64_t first = last > kMaxCommentBytes ? last - kMaxCommentBytes : 0;
    for (std::uint64_t at = last + 1; at-- > first;) {
        if (bytes.u32(at) == kEndSignature &&
            at + kEndBytes + bytes.u16(at + 20) <= bytes.data.size()) {
            return at;
        }
    }
    return std::nullopt;
}

std::variant<Directory, ZipError> readDirectory(const Bytes& bytes) {
    const auto endAt = findEndRecord(bytes);
    if (!endAt) {
        return ZipError{kNotZip};
    }
    const std::uint64_t at = *endAt;
    const std::uint16_t disk = bytes.u16(at + 4);
    const std::uint16_t directoryDisk = bytes.u16(at + 6);
    const std::uint16_t countOnDisk = bytes.u16(at + 8);
    Directory directory{bytes.u16(at + 10), bytes.u32(at + 16), bytes.u32(at + 12), at};
    if (disk != 0 || directoryDisk != 0 || countOnDisk != directory.count) {
        return ZipError{kMultiPart};
    }

    const bool saturated = directory.count == kSaturated16 || directory.offset == kSaturated32 ||
                           directory.size == kSaturated32;
    const bool hasLocator =
        at >= kEnd64LocatorBytes && bytes.u32(at - kEnd64LocatorBytes) == kEnd64LocatorSignature;
    if (saturated && hasLocator) {
        const std::uint64_t locator = at - kEnd64LocatorBytes;
        if (bytes.u32(locator + 4) != 0 || bytes.u32(locator + 16) != 1) {
            return ZipError{kMultiPart};
        }
        const std::uint64_t record = bytes.u64(locator + 8);
        if (record > locator || locator - record < kEnd64Bytes) {
            return ZipError{kPastEnd};
        }
        if (bytes.u32(record) != kEnd64Signature) {
            return damaged("a broken large-archive record");
        }
        if (bytes.u32(record + 16) != 0 || bytes.u32(record + 20) != 0 ||
            bytes.u64(record + 24) != bytes.u64(record + 32)) {
            return ZipError{kMultiPart};
        }
        directory = Directory{bytes.u64(record + 32), bytes.u64(record + 48),
                              bytes.u64(record + 40), record};
    }

    if (directory.count > ZipArchive::kMaxEntries) {
        return ZipError{std::to_string(directory.count) + " files — more than Marlune will read."};
    }
    if (directory.offset > directory.end || directory.size > directory.end - directory.offset) {
        return ZipError{kPastEnd};
    }
    return directory;
}

// The 64-bit values that stand in for saturated 32-bit fields, in the order the format
// lists them, each present only when its field is saturated.
struct Zip64Fields {
    bool uncompressed = false;
    bool compressed = false;
    bool offset = false;
    bool disk = false;
};

std::optional<ZipError> applyZip64Extra(const Bytes& bytes, std::uint64_t extra,
                                        std::uint64_t extraLength, Zip64Fields wanted,
                                        ZipEntry& entry, std::uint64_t& offset,
                                        std::uint64_t& disk) {
    if (!(wanted.uncompressed || wanted.compressed || wanted.offset || wanted.disk)) {
        return std::nullopt;
    }
    std::uint64_t at = extra;
    const std::uint64_t end = extra + extraLength;
    while (end - at >= 4) {
        const std::uint16_t id = bytes.u16(at);
        const std::uint16_t length = bytes.u16(at + 2);
        at += 4;
        if (length > end - at) {
            break;
        }
        if (id == kZip64ExtraID) {
            std::uint64_t field = at;
            const std::uint64_t fieldEnd = at + length;
            auto take = [&](std::uint64_t& value, std::uint64_t width) {
                if (fieldEnd - field < width) {
                    return false;
                }
                value = width == 8 ? bytes.u64(field) : bytes.u32(field);
                field += width;
                return true;
            };
            if ((wanted.uncompressed && !take(entry.uncompressedSize, 8)) ||
                (wanted.compressed && !take(entry.compressedSize, 8)) ||
                (wanted.offset && !take(offset, 8)) || (wanted.disk && !take(disk, 4))) {
                break;
            }
            return std::nullopt;
        }
        at += length;
    }
    return damaged("a broken large-archive field");
}

// Checks the local header against the central directory's entry and returns where the
// entry's data begins. A local header that names another file, or other sizes, is how an
// archive shows one thing to a lister and unpacks another.
std::variant<std::uint64_t, ZipError> checkLocalHeader(const Bytes& bytes, const ZipEntry& entry,
                                                       std::uint64_t offset, std::uint16_t flags) {
    if (!bytes.holds(offset, kLocalBytes)) {
        return ZipError{kPastEnd};
    }
    if (bytes.u32(offset) != kLocalSignature) {
        return damaged("a file's header is missing");
    }
    const std::uint16_t nameLength = bytes.u16(offset + 26);
    const std::uint16_t extraLength = bytes.u16(offset + 28);
    const std::uint64_t dataOffset = offset + kLocalBytes + nameLength + extraLength;
    if (!bytes.holds(offset + kLocalBytes, nameLength + extraLength) ||
        !bytes.holds(dataOffset, entry.compressedSize)) {
        return ZipError{kPastEnd};
    }
    if (bytes.u16(offset + 8) != entry.method ||
        bytes.text(offset + kLocalBytes, nameLength) != entry.name) {
        return damaged("a file's header disagrees with the index");
    }
    if (!(flags & kFlagDataDescriptor)) {
        const std::uint32_t crc = bytes.u32(offset + 14);
        const std::uint32_t compressed = bytes.u32(offset + 18);
        const std::uint32_t uncompressed = bytes.u32(offset + 22);
        const bool sizesMatch =
            (compressed == kSaturated32 || compressed == entry.compressedSize) &&
            (uncompressed == kSaturated32 || uncompressed == entry.uncompressedSize);
        if (crc != entry.crc32 || !sizesMatch) {
            return damaged("a file's header disagrees with the index");
        }
    }
    return dataOffset;
}

class InflateStream {
public:
    InflateStream() { ok_ = inflateInit2(&stream_, -MAX_WBITS) == Z_OK; }
    InflateStream(const InflateStream&) = delete;
    InflateStream& operator=(const InflateStream&) = delete;
    ~InflateStream() {
        if (ok_) {
            inflateEnd(&stream_);
        }
    }
    bool ok() const { return ok_; }
    z_stream& get() { return stream_; }

private:
    z_stream stream_{};
    bool ok_ = false;
};

std::variant<std::vector<std::uint8_t>, ZipError> inflateEntry(std::span<const std::uint8_t> input,
                                                               const ZipEntry& entry) {
    const std::size_t declared = static_cast<std::size_t>(entry.uncompressedSize);
    InflateStream inflater;
    if (!inflater.ok()) {
        return damaged(quoted(entry.name) + " can't be unpacked");
    }
    z_stream& zs = inflater.get();
    std::vector<std::uint8_t> out;
    std::size_t produced = 0;
    std::uint8_t probe = 0;
    while (true) {
        if (zs.avail_in == 0 && !input.empty()) {
            const std::size_t chunk = std::min<std::size_t>(input.size(), UINT_MAX);
            zs.next_in = const_cast<Bytef*>(input.data());
            zs.avail_in = static_cast<uInt>(chunk);
            input = input.subspan(chunk);
        }
        // Once the declared size is reached, one spare byte is enough to tell a stream that
        // ends here from one that would go on, however far.
        const bool probing = produced == declared;
        if (!probing && produced == out.size()) {
            out.resize(std::min(declared, std::max(kInflateStartBytes, out.size() * 2)));
        }
        if (probing) {
            zs.next_out = &probe;
            zs.avail_out = 1;
        } else {
            zs.next_out = out.data() + produced;
            zs.avail_out =
                static_cast<uInt>(std::min<std::size_t>(out.size() - produced, UINT_MAX));
        }
        const uInt room = zs.avail_out;
        const int status = inflate(&zs, Z_NO_FLUSH);
        const std::size_t made = room - zs.avail_out;
        if (probing && made > 0) {
            return damaged(quoted(entry.name) + " unpacks to more than its recorded size");
        }
        produced += probing ? 0 : made;
        if (status == Z_STREAM_END) {
            break;
        }
        const bool inputLeft = zs.avail_in > 0 || !input.empty();
        if (status == Z_OK || (status == Z_BUF_ERROR && inputLeft)) {
            continue;
        }
        return damaged(quoted(entry.name) + " can't be unpacked");
    }
    if (produced != declared) {
        return damaged(quoted(entry.name) + " unpacks to less than its recorded size");
    }
    out.resize(produced);
    return out;
}

} // namespace

std::variant<ZipArchive, ZipError> ZipArchive::open(std::span<const std::uint8_t> data) {
    const Bytes bytes{data};
    auto directoryOrError = readDirectory(bytes);
    if (auto* error = std::get_if<ZipError>(&directoryOrError)) {
        return std::move(*error);
    }
    const auto& directory = std::get<Directory>(directoryOrError);

    ZipArchive archive;
    archive.bytes_ = data;
    archive.entries_.reserve(directory.count);
    archive.dataOffsets_.reserve(directory.count);
    std::uint64_t at = directory.offset;
    const std::uint64_t end = directory.offset + directory.size;
    std::uint64_t total = 0;
    for (std::uint64_t index = 0; index < directory.count; ++index) {
        if (end - at < kCentralBytes) {
            return damaged("the file index is cut short");
        }
        if (bytes.u32(at) != kCentralSignature) {
            return damaged("a broken entry in the file index");
        }
        const std::uint16_t flags = bytes.u16(at + 8);
        const std::uint16_t nameLength = bytes.u16(at + 28);
        const std::uint16_t extraLength = bytes.u16(at + 30);
        const std::uint16_t commentLength = bytes.u16(at + 32);
        if (end - at - kCentralBytes < std::uint64_t{nameLength} + extraLength + commentLength) {
            return damaged("the file index is cut short");
        }

        ZipEntry entry;
        entry.method = bytes.u16(at + 10);
        entry.crc32 = bytes.u32(at + 16);
        entry.compressedSize = bytes.u32(at + 20);
        entry.uncompressedSize = bytes.u32(at + 24);
        entry.name = std::string(bytes.text(at + kCentralBytes, nameLength));
        entry.encrypted =
            (flags & (kFlagEncrypted | kFlagStrongEncryption)) != 0 || entry.method == kMethodAES;
        std::uint64_t disk = bytes.u16(at + 34);
        std::uint64_t offset = bytes.u32(at + 42);
        const Zip64Fields wanted{entry.uncompressedSize == kSaturated32,
                                 entry.compressedSize == kSaturated32, offset == kSaturated32,
                                 disk == kSaturated16};
        if (auto error = applyZip64Extra(bytes, at + kCentralBytes + nameLength, extraLength,
                                         wanted, entry, offset, disk)) {
            return std::move(*error);
        }
        at += kCentralBytes + nameLength + extraLength + commentLength;

        if (disk != 0) {
            return ZipError{kMultiPart};
        }
        if (entry.name.empty()) {
            return damaged("a file without a name");
        }
        if (isUnsafeName(entry.name)) {
            return ZipError{kUnsafeName};
        }
        if (archive.byName_.contains(entry.name)) {
            return damaged("two files named " + quoted(entry.name));
        }
        if (entry.uncompressedSize > kMaxEntryBytes) {
            return ZipError{quoted(entry.name) + " is too large."};
        }
        total += entry.uncompressedSize;
        if (total > kMaxTotalBytes) {
            return ZipError{kTooMuch};
        }
        auto dataOffset = checkLocalHeader(bytes, entry, offset, flags);
        if (auto* error = std::get_if<ZipError>(&dataOffset)) {
            return std::move(*error);
        }
        archive.byName_.emplace(entry.name, archive.entries_.size());
        archive.entries_.push_back(std::move(entry));
        archive.dataOffsets_.push_back(std::get<std::uint64_t>(dataOffset));
    }
    return archive;
}

const ZipEntry* ZipArchive::find(std::string_view name) const {
    const auto found = byName_.find(std::string(name));
    return found == byName_.end() ? nullptr : &entries_[found->second];
}

std::variant<std::vector<std::uint8_t>, ZipError> ZipArchive::read(std::string_view name) const {
    const auto found = byName_.find(std::string(name));
    if (found == byName_.end()) {
        return ZipError{"there's no " + quoted(name) + " in it."};
    }
    const ZipEntry& entry = entries_[found->second];
    if (entry.encrypted) {
        return ZipError{quoted(entry.name) + " is protected by a password."};
    }
    const auto input = bytes_.subspan(static_cast<std::size_t>(dataOffsets_[found->second]),
                                      static_cast<std::size_t>(entry.compressedSize));
    std::variant<std::vector<std::uint8_t>, ZipError> result;
    if (entry.method == ZipEntry::stored) {
        if (entry.compressedSize != entry.uncompressedSize) {
            return damaged(quoted(entry.name) + " has two different sizes");
        }
        result = std::vector<std::uint8_t>(input.begin(), input.end());
    } else if (entry.method == ZipEntry::deflated) {
        result = inflateEntry(input, entry);
    } else {
        return ZipError{quoted(entry.name) + " is packed in a way Marlune can't unpack."};
    }
    if (const auto* unpacked = std::get_if<std::vector<std::uint8_t>>(&result)) {
        if (crc32_z(0, unpacked->data(), unpacked->size()) != entry.crc32) {
            return damaged(quoted(entry.name) + " fails its checksum");
        }
    }
    return result;
}

} // namespace marlune
