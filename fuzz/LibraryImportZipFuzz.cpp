// Archives come from other tools and from anywhere the user downloaded them: any bytes must
// open or be refused, and every listed file must read or be refused, within the reader's
// limits and without reading outside the buffer.
#include "LibraryImport/ZipArchive.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <variant>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    auto opened = marlune::ZipArchive::open(std::span<const std::uint8_t>(data, size));
    const auto* archive = std::get_if<marlune::ZipArchive>(&opened);
    if (archive == nullptr) {
        return 0;
    }
    if (archive->entries().size() > marlune::ZipArchive::kMaxEntries) {
        std::abort();
    }
    std::uint64_t total = 0;
    for (const auto& entry : archive->entries()) {
        if (archive->find(entry.name) != &entry) {
            std::abort();
        }
        auto read = archive->read(entry);
        if (const auto* bytes = std::get_if<std::vector<std::uint8_t>>(&read)) {
            if (bytes->size() != entry.uncompressedSize) {
                std::abort();
            }
            total += bytes->size();
        }
    }
    if (total > marlune::ZipArchive::kMaxTotalBytes) {
        std::abort();
    }
    return 0;
}
