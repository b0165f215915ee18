#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace marlune {

// What the copy and export paths hand to the formatter: the item's payload and whether it is
// done.
struct BoardListItem {
    struct Text {
        std::string text;
    };
    struct File {
        std::string name;
    };
    struct Image {
        std::string name;
        std::optional<std::string> ocrText;
    };
    std::variant<Text, File, Image> payload;
    bool isDone = false;
};

// Items as a list to paste elsewhere. Plain lists mark open items "- " and done ones "- ✓ ";
// Markdown lists are task lists ("- [ ] ", "- [x] "). Lines after an item's first are indented
// under it, so a list item never spills into the next.
struct BoardListFormatter {
    static std::string plain(const std::vector<BoardListItem>& items);
    // `wikiLinks`: attachments as Obsidian embeds ("![[name]]") instead of Markdown links.
    static std::string markdown(const std::vector<BoardListItem>& items, bool wikiLinks = false);
    // The items' texts one after another, for copying without list marks.
    static std::string joined(const std::vector<BoardListItem>& items);
    static std::string text(const BoardListItem& item);
};

} // namespace marlune
