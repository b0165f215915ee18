#pragma once

#include <string>
#include <string_view>

namespace marlune {

// Ids of imported records, made from where they came from rather than at random: a name-based
// UUID (version 5, SHA-1) over a namespace of the importer and the source's own identifier.
// Importing the same file again therefore reaches the same records and updates them instead
// of adding copies.
struct StableID {
    static constexpr std::string_view alfred = "marlune.alfred.";
    static constexpr std::string_view espanso = "marlune.espanso.";
    static constexpr std::string_view raycast = "marlune.raycast.";
    static constexpr std::string_view textexpander = "marlune.textexpander.";
    static constexpr std::string_view textexpanderCSV = "marlune.textexpander.csv.";
    static constexpr std::string_view group = "marlune.import.group.";

    // Upper-case canonical text, as the library writes ids.
    static std::string make(std::string_view nameSpace, std::string_view sourceID);
};

} // namespace marlune
