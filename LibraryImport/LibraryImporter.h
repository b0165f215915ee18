#pragma once

#include "LibraryImport/ImportTypes.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace marlune {

// The one entry point for a library file: what it is (by its extension, then its content)
// and the document it converts to.
struct LibraryImporter {
    // Files larger than this are refused before reading them: no snippet library comes near.
    static constexpr std::uint64_t kMaxFileBytes = 64ULL << 20;

    // The format of a file, or unrecognized / needsCLI. `fromCLI` allows the formats that only
    // the command line imports.
    static std::variant<ImportFormat, ImportError>
    detect(std::string_view fileName, std::span<const std::uint8_t> bytes, bool fromCLI = false);

    // Converts a file; with `format` the detection is skipped (the command line's --format).
    static ImportOutcome convert(std::string_view fileName, std::span<const std::uint8_t> bytes,
                                 const ImportOptions& options,
                                 std::optional<ImportFormat> format = std::nullopt,
                                 bool fromCLI = false);
};

} // namespace marlune
