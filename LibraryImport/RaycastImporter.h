#pragma once

#include "LibraryImport/ImportTypes.h"

#include <string_view>

namespace marlune {

// Raycast's snippet export: a JSON array of objects with "name", "text" and "keyword". Its
// "{placeholder attribute="value" | modifier}" marks become the template syntax where there
// is an equivalent; a reference to another snippet of the file is copied in.
struct RaycastImporter {
    static ImportOutcome convert(std::string_view text, const ImportOptions& options);
};

} // namespace marlune
