#pragma once

#include "MarluneCore/Database.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <stdexcept>
#include <string>

namespace marlune::test {

// Which page of a b-tree to damage. The root is met by the first read of it; the last leaf
// only by a read that goes through every entry (the older rows are all read first).
enum class TablePage { root, lastLeaf };

// Overwrites the b-tree header of one page of `object` (a table or an index) in a closed
// library file, so that SQLite reports the page as malformed when a read reaches it. The
// write-ahead log is folded in first, so that the file alone is the library. Returns the
// damaged page's number.
inline std::uint32_t damageTablePage(const std::filesystem::path& file, const std::string& object,
                                     TablePage which) {
    std::uint32_t pageSize = 0;
    std::uint32_t page = 0;
    {
        Database db = Database::open(file, Database::OpenMode::readWrite);
        db.execute("PRAGMA wal_checkpoint(TRUNCATE)");
        auto size = db.prepare("PRAGMA page_size");
        size.step();
        pageSize = static_cast<std::uint32_t>(size.int64(0));
        auto root = db.prepare("SELECT rootpage FROM sqlite_schema WHERE name = ?1");
        root.bind(1, object);
        if (!root.step()) {
            throw std::runtime_error("no table or index " + object);
        }
        page = static_cast<std::uint32_t>(root.int64(0));
    }
    std::fstream io(file, std::ios::in | std::ios::out | std::ios::binary);
    auto offsetOf = [&](std::uint32_t number) {
        // Page 1 starts with the 100-byte file header.
        return static_cast<std::streamoff>(number - 1) * pageSize + (number == 1 ? 100 : 0);
    };
    unsigned char header[12] = {};
    while (which == TablePage::lastLeaf) {
        io.seekg(offsetOf(page));
        io.read(reinterpret_cast<char*>(header), sizeof header);
        if (header[0] != 0x05 && header[0] != 0x02) { // not an interior page: a leaf
            break;
        }
        // An interior page's right-most child pointer follows the first 8 bytes of its header.
        page = (std::uint32_t{header[8]} << 24U) | (std::uint32_t{header[9]} << 16U) |
               (std::uint32_t{header[10]} << 8U) | std::uint32_t{header[11]};
    }
    io.seekp(offsetOf(page));
    const char garbage[8] = {'\xff', '\xff', '\xff', '\xff', '\xff', '\xff', '\xff', '\xff'};
    io.write(garbage, sizeof garbage);
    if (!io) {
        throw std::runtime_error("could not damage " + file.string());
    }
    return page;
}

// Damage to the snippets that a start-up must meet: the table's first page, its last leaf, and
// the page of an index that listing the snippets goes through.
struct PageDamage {
    const char* name;
    const char* object; // a table or index of the library
    TablePage page;
};
inline constexpr PageDamage snippetPageDamages[] = {
    {"TableRoot", "Snippet", TablePage::root},
    {"TableLastLeaf", "Snippet", TablePage::lastLeaf},
    {"DeletedAtIndex", "Snippet_deletedAt", TablePage::root},
};
inline void PrintTo(const PageDamage& damage, std::ostream* out) {
    *out << damage.name;
}

} // namespace marlune::test
