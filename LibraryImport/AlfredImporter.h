#pragma once

#include "LibraryImport/ImportTypes.h"

#include <cstdint>
#include <span>
#include <string>

namespace marlune {

// An Alfred snippet collection (".alfredsnippets"): a ZIP with one JSON file per snippet and
// an info.plist holding the collection's keyword prefix and suffix. The collection becomes one
// group named after the file.
struct AlfredImporter {
    struct Snippet {
        std::string uid;
        std::string name;
        std::string keyword;
        std::string text;
        bool dontAutoExpand = false;
        bool hasRichText = false;
        std::string fileName;
    };
    struct Settings {
        std::string keywordPrefix;
        std::string keywordSuffix;
        bool stripNonAlphanumeric = false;
    };

    static ImportOutcome convert(std::span<const std::uint8_t> bytes, const ImportOptions& options);
};

} // namespace marlune
