#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace marlune {

// Replaces `path` with `contents` so that a reader, or the next start after a crash, sees
// either the whole old file or the whole new one: a temporary file in the same directory
// (created with `mode` from the start), fsync, rename over the target, fsync the directory.
// Throws std::system_error naming the file.
void writeFileAtomically(const std::filesystem::path& path, std::string_view contents, mode_t mode);

// The whole file, or nothing when it does not exist. Throws std::system_error on any other
// failure: a file that is there but cannot be read must not be mistaken for a missing one.
std::optional<std::string> readFileIfExists(const std::filesystem::path& path);

} // namespace marlune
