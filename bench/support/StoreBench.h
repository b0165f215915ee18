#pragma once
// What the store benches share: a random content key and a temporary directory for their
// libraries, removed when the program ends.

#include "MarluneCore/SymmetricKey.h"

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>
#include <unistd.h>

namespace marlune::bench {

inline const SymmetricKey& benchKey() {
    static const SymmetricKey key = SymmetricKey::random();
    return key;
}

struct BenchDirectory {
    BenchDirectory() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "marlune-bench.XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            std::abort();
        }
        path = pattern;
    }
    BenchDirectory(const BenchDirectory&) = delete;
    BenchDirectory& operator=(const BenchDirectory&) = delete;
    ~BenchDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    std::filesystem::path path;
};

inline const std::filesystem::path& benchRoot() {
    static const BenchDirectory directory;
    return directory.path;
}

} // namespace marlune::bench
