// Each converter's entry point over any bytes, one target per format (MARLUNE_FUZZ_FORMAT):
// a file from another tool must convert or be refused with a message, never crash, and a
// conversion must hold a well-formed document: ids that are unique, every snippet's group
// among the groups, and text that is still UTF-8 where the input was.
#include "LibraryImport/DocumentBuilder.h"
#include "LibraryImport/LibraryImporter.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <span>
#include <string>

namespace {

constexpr marlune::ImportFormat kFormats[] = {
    marlune::ImportFormat::textexpander, // the CSV export
    marlune::ImportFormat::textexpander, // the settings archive or property list
    marlune::ImportFormat::raycast,      marlune::ImportFormat::alfred,
    marlune::ImportFormat::espanso,      marlune::ImportFormat::marlune,
};
constexpr const char* kNames[] = {
    "fuzz.csv", "fuzz.textexpander", "fuzz.json", "fuzz.alfredsnippets", "fuzz.yml", "fuzz.json"};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr int which = MARLUNE_FUZZ_FORMAT;
    marlune::ImportOptions options;
    options.sourceName = kNames[which];
    const std::span<const std::uint8_t> bytes(data, size);
    const auto outcome =
        marlune::LibraryImporter::convert(kNames[which], bytes, options, kFormats[which], true);
    if (const auto* error = std::get_if<marlune::ImportError>(&outcome)) {
        if (error->message().empty()) {
            std::abort();
        }
        return 0;
    }
    const auto& conversion = std::get<marlune::ImportConversion>(outcome);
    if (which == 5) {
        return 0; // the application's own document is checked by the application
    }
    std::set<std::string> ids;
    std::set<std::string> groups;
    for (const auto& group : conversion.document.groups.value()) {
        groups.insert(group.id);
    }
    const bool utf8 =
        marlune::TemplateText::isUTF8(std::string_view(reinterpret_cast<const char*>(data), size));
    for (const auto& snippet : conversion.document.snippets.value()) {
        if (!ids.insert(snippet.id).second ||
            (snippet.group && !groups.contains(snippet.group->id))) {
            std::abort();
        }
        if (utf8 && !marlune::TemplateText::isUTF8(snippet.content)) {
            std::abort();
        }
    }
    return 0;
}
