#include "MarluneCore/BoardListFormatter.h"

namespace marlune {

namespace {

std::string indented(const std::string& text) {
    std::string out;
    for (const char c : text) {
        out += c;
        if (c == '\n') {
            out += "  ";
        }
    }
    return out;
}

// Markdown link targets may not hold spaces or parentheses unescaped.
std::string linkTarget(const std::string& name) {
    std::string out;
    for (const char c : name) {
        if (c == ' ') {
            out += "%20";
        } else if (c == '(' || c == ')') {
            out += c == '(' ? "%28" : "%29";
        } else {
            out += c;
        }
    }
    return out;
}

std::string markdownPayload(const BoardListItem& item, bool wikiLinks) {
    if (const auto* text = std::get_if<BoardListItem::Text>(&item.payload)) {
        return text->text;
    }
    if (const auto* file = std::get_if<BoardListItem::File>(&item.payload)) {
        return wikiLinks ? "[[" + file->name + "]]"
                         : "[" + file->name + "](" + linkTarget(file->name) + ")";
    }
    const auto& image = std::get<BoardListItem::Image>(item.payload);
    std::string out = wikiLinks ? "![[" + image.name + "]]"
                                : "![" + image.name + "](" + linkTarget(image.name) + ")";
    if (image.ocrText && !image.ocrText->empty()) {
        out += "\n" + *image.ocrText;
    }
    return out;
}

} // namespace

std::string BoardListFormatter::text(const BoardListItem& item) {
    if (const auto* text = std::get_if<BoardListItem::Text>(&item.payload)) {
        return text->text;
    }
    if (const auto* file = std::get_if<BoardListItem::File>(&item.payload)) {
        return file->name;
    }
    const auto& image = std::get<BoardListItem::Image>(item.payload);
    return image.ocrText && !image.ocrText->empty() ? *image.ocrText : image.name;
}

std::string BoardListFormatter::plain(const std::vector<BoardListItem>& items) {
    std::string out;
    for (const auto& item : items) {
        out += (item.isDone ? "- ✓ " : "- ") + indented(text(item)) + "\n";
    }
    return out;
}

std::string BoardListFormatter::markdown(const std::vector<BoardListItem>& items, bool wikiLinks) {
    std::string out;
    for (const auto& item : items) {
        out += (item.isDone ? "- [x] " : "- [ ] ") + indented(markdownPayload(item, wikiLinks)) +
               "\n";
    }
    return out;
}

std::string BoardListFormatter::joined(const std::vector<BoardListItem>& items) {
    std::string out;
    for (const auto& item : items) {
        out += (out.empty() ? "" : "\n") + text(item);
    }
    return out;
}

} // namespace marlune
