#include "MarluneCore/BoardExporter.h"

#include <nlohmann/json.hpp>

#include <ctime>
#include <fstream>
#include <set>

namespace marlune {

namespace {

namespace fs = std::filesystem;

std::string isoTime(Date date) {
    const std::time_t seconds =
        std::chrono::duration_cast<std::chrono::seconds>(date.time_since_epoch()).count();
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

// Front-matter values are quoted when YAML would otherwise read them as something else.
std::string yamlValue(const std::string& value) {
    const bool plain = !value.empty() && value.find_first_of(":#\"'{}[],&*!|>%@`\n") ==
                                             std::string::npos &&
                       value.front() != ' ' && value.front() != '-' && value.back() != ' ';
    if (plain) {
        return value;
    }
    std::string out = "\"";
    for (const char c : value) {
        if (c == '"' || c == '\\') {
            out += '\\';
        }
        out += c == '\n' ? ' ' : c;
    }
    return out + "\"";
}

ExportError unavailable(const fs::path& folder) {
    return ExportError(ExportError::Kind::directoryUnavailable,
                       "The folder '" + folder.string() + "' cannot be created or written.",
                       "Choose another folder with --dir, or in Settings › Board.");
}

ExportError alreadyThere(const fs::path& file) {
    return ExportError(ExportError::Kind::fileExists,
                       "'" + file.string() + "' already exists.", "Pass --force to replace it.");
}

void writeFile(const fs::path& file, std::string_view bytes, const fs::path& folder) {
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    out.close();
    if (!out) {
        throw unavailable(folder);
    }
}

} // namespace

std::string BoardExporter::fileName(std::string_view sectionName) {
    std::string name;
    for (const char c : sectionName) {
        const auto byte = static_cast<unsigned char>(c);
        name += (c == '/' || c == '\\' || c == ':' || byte < 0x20) ? '-' : c;
    }
    while (!name.empty() && (name.front() == '.' || name.front() == ' ')) {
        name.erase(name.begin());
    }
    if (name.empty()) {
        name = "Board";
    }
    return name + ".md";
}

std::string BoardExporter::markdown(const Section& section, Date exportedAt, bool wikiLinks) {
    std::string out = "---\n";
    out += "source: Marlune Board\n";
    out += "section: " + yamlValue(section.name) + "\n";
    out += "exported: " + isoTime(exportedAt) + "\n";
    out += "---\n\n";
    out += "# " + section.name + "\n\n";
    out += BoardListFormatter::markdown(section.items, wikiLinks);
    return out;
}

BoardExporter::Result BoardExporter::write(const Section& section, const fs::path& folder,
                                           Date exportedAt, bool force, bool wikiLinks) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error || !fs::is_directory(folder, error)) {
        throw unavailable(folder);
    }
    const fs::path file = folder / fileName(section.name);
    // Everything that would be replaced is checked before anything is written.
    if (!force) {
        if (fs::exists(file, error)) {
            throw alreadyThere(file);
        }
        for (const auto& attachment : section.attachments) {
            if (fs::exists(folder / attachment.name, error)) {
                throw alreadyThere(folder / attachment.name);
            }
        }
    }
    writeFile(file, markdown(section, exportedAt, wikiLinks), folder);
    Result result;
    result.file = file;
    std::set<std::string> copied;
    for (const auto& attachment : section.attachments) {
        if (!copied.insert(attachment.name).second) {
            continue;
        }
        const fs::path target = folder / attachment.name;
        if (attachment.bytes) {
            writeFile(target,
                      {reinterpret_cast<const char*>(attachment.bytes->data()),
                       attachment.bytes->size()},
                      folder);
        } else if (attachment.sourceURL) {
            fs::copy_file(*attachment.sourceURL, target, fs::copy_options::overwrite_existing,
                          error);
            if (error) {
                // The original moved or went away: the list still names it.
                continue;
            }
        } else {
            continue;
        }
        ++result.attachments;
    }
    return result;
}

fs::path BoardExporter::obsidianVault(const fs::path& configFolder, const std::string& override) {
    if (!override.empty()) {
        return override;
    }
    const auto none = [] {
        return ExportError(ExportError::Kind::noVault, "No Obsidian vault found.",
                           "Open a vault in Obsidian once, or choose one in Settings › Board.");
    };
    std::ifstream in(configFolder / "obsidian.json");
    if (!in) {
        throw none();
    }
    const auto json = nlohmann::json::parse(in, nullptr, false);
    if (!json.is_object() || !json.contains("vaults") || !json["vaults"].is_object()) {
        throw none();
    }
    std::optional<fs::path> chosen;
    bool chosenOpen = false;
    double chosenTime = -1;
    for (const auto& [id, vault] : json["vaults"].items()) {
        if (!vault.is_object() || !vault.contains("path") || !vault["path"].is_string()) {
            continue;
        }
        const fs::path path = vault["path"].get<std::string>();
        std::error_code error;
        if (!fs::is_directory(path, error)) {
            continue;
        }
        const bool open = vault.value("open", false);
        const double time = vault.contains("ts") && vault["ts"].is_number()
                                ? vault["ts"].get<double>()
                                : 0.0;
        if (!chosen || (open && !chosenOpen) || (open == chosenOpen && time > chosenTime)) {
            chosen = path;
            chosenOpen = open;
            chosenTime = time;
        }
    }
    if (!chosen) {
        throw none();
    }
    return *chosen;
}

} // namespace marlune
