#include "LibraryImport/LibraryImporter.h"

#include "LibraryImport/AlfredImporter.h"
#include "LibraryImport/DocumentBuilder.h"
#include "LibraryImport/EspansoImporter.h"
#include "LibraryImport/RaycastImporter.h"
#include "LibraryImport/TextExpanderImporter.h"
#include "LibraryImport/ZipArchive.h"
#include "MarluneCLIProtocol/CLIRecordCodec.h"

#include <algorithm>
#include <cctype>

namespace marlune {

namespace {

std::string lowerExtension(std::string_view fileName) {
    const auto slash = fileName.find_last_of('/');
    const auto base = slash == std::string_view::npos ? fileName : fileName.substr(slash + 1);
    const auto dot = base.find_last_of('.');
    if (dot == std::string_view::npos || dot == 0) {
        return {};
    }
    std::string extension(base.substr(dot));
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

std::string_view textOf(std::span<const std::uint8_t> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// The first character that isn't white space or a byte order mark.
char firstSignificant(std::string_view text) {
    if (text.starts_with("\xEF\xBB\xBF")) {
        text.remove_prefix(3);
    }
    for (char c : text) {
        if (c != ' ' && c != '\t' && c != '\r' && c != '\n') {
            return c;
        }
    }
    return '\0';
}

bool isZip(std::string_view text) {
    return text.starts_with("PK\x03\x04") || text.starts_with("PK\x05\x06");
}

// A ZIP of JSON files with an info.plist is an Alfred collection; otherwise TextExpander's.
ImportFormat zipFormat(std::span<const std::uint8_t> bytes) {
    auto opened = ZipArchive::open(bytes);
    if (const auto* archive = std::get_if<ZipArchive>(&opened)) {
        const bool json = std::any_of(archive->entries().begin(), archive->entries().end(),
                                      [](const ZipEntry& e) { return e.name.ends_with(".json"); });
        if (json) {
            return ImportFormat::alfred;
        }
    }
    return ImportFormat::textexpander;
}

bool looksLikeEspanso(std::string_view text) {
    return text.starts_with("matches:") || text.find("\nmatches:") != std::string_view::npos ||
           text.starts_with("global_vars:") ||
           text.find("\nglobal_vars:") != std::string_view::npos;
}

ImportOutcome convertDocument(std::string_view text) {
    const ImportError invalid = ImportError::invalidFile(ImportFormat::marlune, {});
    if (!TemplateText::isUTF8(text)) {
        return ImportError::notText(ImportFormat::marlune);
    }
    try {
        ImportConversion conversion;
        conversion.format = ImportFormat::marlune;
        conversion.document = decodeWireText<DataDocumentDTO>(text);
        return conversion;
    } catch (const CLIRecordError&) {
        return invalid;
    }
}

} // namespace

std::variant<ImportFormat, ImportError> LibraryImporter::detect(std::string_view fileName,
                                                                std::span<const std::uint8_t> bytes,
                                                                bool fromCLI) {
    const std::string extension = lowerExtension(fileName);
    const std::string_view text = textOf(bytes);
    ImportFormat format;
    if (extension == ".csv" || extension == ".textexpander") {
        format = ImportFormat::textexpander;
    } else if (extension == ".alfredsnippets") {
        format = ImportFormat::alfred;
    } else if (extension == ".yml" || extension == ".yaml") {
        format = ImportFormat::espanso;
    } else if (extension == ".json") {
        format = firstSignificant(text) == '[' ? ImportFormat::raycast : ImportFormat::marlune;
        if (firstSignificant(text) != '[' && firstSignificant(text) != '{') {
            format = ImportFormat::raycast;
        }
    } else if (isZip(text)) {
        format = zipFormat(bytes);
    } else if (text.starts_with("bplist") || text.starts_with("<?xml") ||
               text.starts_with("<plist")) {
        format = ImportFormat::textexpander;
    } else if (firstSignificant(text) == '{') {
        format = ImportFormat::marlune;
    } else if (firstSignificant(text) == '[') {
        format = ImportFormat::raycast;
    } else if (looksLikeEspanso(text)) {
        format = ImportFormat::espanso;
    } else {
        return ImportError::unrecognized();
    }
    if (format == ImportFormat::espanso && !fromCLI) {
        return ImportError::needsCLI(format);
    }
    return format;
}

ImportOutcome LibraryImporter::convert(std::string_view fileName,
                                       std::span<const std::uint8_t> bytes,
                                       const ImportOptions& options,
                                       std::optional<ImportFormat> format, bool fromCLI) {
    if (!format) {
        auto detected = detect(fileName, bytes, fromCLI);
        if (auto* error = std::get_if<ImportError>(&detected)) {
            return *error;
        }
        format = std::get<ImportFormat>(detected);
    }
    const std::string_view text = textOf(bytes);
    switch (*format) {
    case ImportFormat::marlune:
        return convertDocument(text);
    case ImportFormat::espanso:
        if (!fromCLI) {
            return ImportError::needsCLI(*format);
        }
        return EspansoImporter::convert(text, options);
    case ImportFormat::textexpander:
        if (isZip(text) || lowerExtension(fileName) == ".textexpander" ||
            text.starts_with("bplist") || text.starts_with("<?xml") || text.starts_with("<plist")) {
            return TextExpanderImporter::convertArchive(bytes, options);
        }
        return TextExpanderImporter::convertCSV(text, options);
    case ImportFormat::raycast:
        return RaycastImporter::convert(text, options);
    case ImportFormat::alfred:
        return AlfredImporter::convert(bytes, options);
    }
    return ImportError::unrecognized();
}

} // namespace marlune
