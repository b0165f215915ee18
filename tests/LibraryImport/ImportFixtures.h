#pragma once

// The fixture libraries under tests/LibraryImport/data, read as the importers receive them:
// archives are zipped here from the folders that hold their files.

#include "LibraryImport/ImportTypes.h"
#include "ZipFixture.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace marlune::testing {

inline std::filesystem::path importData() {
    return MARLUNE_IMPORT_DATA;
}

inline std::string readFixture(const std::filesystem::path& relative) {
    std::ifstream in(importData() / relative, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

inline std::vector<std::uint8_t> bytesOf(std::string_view text) {
    return {text.begin(), text.end()};
}

// A folder's files, sorted by name, as one archive; `folder` names the collection inside.
inline std::vector<std::uint8_t> zipFolder(const std::filesystem::path& relative,
                                           const std::string& inside = {}) {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(importData() / relative)) {
        files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    std::vector<FixtureEntry> entries;
    for (const auto& path : files) {
        entries.push_back(
            file(inside + path.filename().string(), readFixture(relative / path.filename())));
    }
    return buildZip(entries).bytes;
}

inline ImportOptions fixtureOptions(std::string sourceName, std::string prefix = ";") {
    ImportOptions options;
    options.keywordPrefix = std::move(prefix);
    options.sourceName = std::move(sourceName);
    options.now = std::chrono::sys_days{std::chrono::year{2026} / 3 / 4} + std::chrono::hours{5};
    return options;
}

} // namespace marlune::testing
