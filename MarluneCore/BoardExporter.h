#pragma once

#include "MarluneCore/BoardListFormatter.h"
#include "MarluneCore/Date.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace marlune {

class ExportError : public std::runtime_error {
public:
    enum class Kind { directoryUnavailable, fileExists, noVault };
    ExportError(Kind kind, const std::string& message, std::optional<std::string> hint = {})
        : std::runtime_error(message), kind_(kind), hint_(std::move(hint)) {}
    Kind kind() const { return kind_; }
    const std::optional<std::string>& hint() const { return hint_; }

private:
    Kind kind_;
    std::optional<std::string> hint_;
};

// Writes a Board section as one Markdown file with a front matter ("source: Marlune Board",
// "section: <name>", the export time) and a task list, and copies its file and image items
// beside it. Nothing that exists is replaced unless asked.
struct BoardExporter {
    struct Attachment {
        std::string name;
        // Where the file is now; or, for an image kept only in the library, its bytes.
        std::optional<std::filesystem::path> sourceURL;
        std::optional<std::vector<std::uint8_t>> bytes;
    };
    struct Section {
        std::string name;
        std::vector<BoardListItem> items;
        std::vector<Attachment> attachments;
    };
    struct Result {
        std::filesystem::path file;
        std::int64_t attachments = 0;
    };
    // Where Obsidian vault exports go inside the vault.
    static constexpr std::string_view vaultFolder = "Marlune Board";

    static std::string markdown(const Section& section, Date exportedAt, bool wikiLinks);
    // The section's name made safe as a file name, with ".md".
    static std::string fileName(std::string_view sectionName);

    // Throws ExportError: `directoryUnavailable` when the folder cannot be created or written,
    // `fileExists` when the file or an attachment is there already and `force` is off.
    static Result write(const Section& section, const std::filesystem::path& folder,
                        Date exportedAt, bool force, bool wikiLinks = false);

    // The vault to export into: `override` when set, else the open (or most recently used)
    // vault of `obsidian.json` in `configFolder` (~/.config/obsidian). Throws ExportError
    // `noVault` with "No Obsidian vault found." when there is none.
    static std::filesystem::path obsidianVault(const std::filesystem::path& configFolder,
                                               const std::string& override);
};

} // namespace marlune
