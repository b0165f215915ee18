#pragma once

#include "LibraryImport/DocumentBuilder.h"
#include "LibraryImport/ImportTypes.h"

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>

namespace marlune {

// TextExpander's libraries: a group exported as CSV (abbreviation, snippet text, label), or a
// ".textexpander" file, a ZIP that holds the settings property list (a bare property list is
// read as well). Macros with an equivalent become placeholders; the rest are kept as typed or
// dropped, with a note for each.
struct TextExpanderImporter {
    static ImportOutcome convertCSV(std::string_view text, const ImportOptions& options);
    static ImportOutcome convertArchive(std::span<const std::uint8_t> bytes,
                                        const ImportOptions& options);

    // One snippet's text in the template syntax. `name` is how notes name the snippet;
    // `fillInCount` receives the number of distinct fill-in fields.
    static std::string convertBody(std::string_view text, const std::string& name,
                                   DocumentBuilder& builder, std::int64_t& fillInCount);
};

} // namespace marlune
