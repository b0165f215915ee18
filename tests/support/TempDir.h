#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace marlune::test {

// A fresh directory under $TMPDIR, removed with everything in it when the value dies.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

std::vector<unsigned char> readFileBytes(const std::filesystem::path& path);
void writeFileBytes(const std::filesystem::path& path, const std::string& bytes);

} // namespace marlune::test
