#include "ExpansionEngine/SnippetParser.h"

namespace marlune {
namespace {

std::string_view trim(std::string_view s) {
    constexpr std::string_view spaces = " \t\r\n";
    auto first = s.find_first_not_of(spaces);
    if (first == std::string_view::npos) {
        return {};
    }
    auto last = s.find_last_not_of(spaces);
    return s.substr(first, last - first + 1);
}

void appendText(std::vector<Token>& tokens, std::string_view text) {
    if (text.empty()) {
        return;
    }
    if (!tokens.empty()) {
        if (auto* previous = std::get_if<TextToken>(&tokens.back())) {
            previous->text.append(text);
            return;
        }
    }
    tokens.emplace_back(TextToken{std::string(text)});
}

} // namespace

std::optional<std::string_view> Placeholder::parameter(std::string_view key) const {
    for (const auto& p : parameters) {
        std::string_view view(p);
        auto eq = view.find('=');
        if (eq != std::string_view::npos && view.substr(0, eq) == key) {
            return view.substr(eq + 1);
        }
    }
    return std::nullopt;
}

std::vector<std::string> Placeholder::options() const {
    std::vector<std::string> out;
    auto list = parameter("options");
    if (!list) {
        return out;
    }
    std::string_view rest = *list;
    while (true) {
        auto comma = rest.find(',');
        auto option = trim(rest.substr(0, comma));
        if (!option.empty()) {
            out.emplace_back(option);
        }
        if (comma == std::string_view::npos) {
            break;
        }
        rest.remove_prefix(comma + 1);
    }
    return out;
}

// The marks are ASCII and a UTF-8 multi-byte sequence never contains an ASCII byte, so
// scanning bytes finds exactly the marks a character-by-character scan would.
std::vector<Token> SnippetParser::parse(std::string_view body) {
    std::vector<Token> tokens;
    std::size_t pos = 0;
    while (pos < body.size()) {
        auto open = body.find("{@", pos);
        if (open == std::string_view::npos) {
            break;
        }
        auto close = body.find("@}", open + 2);
        if (close == std::string_view::npos) {
            break;
        }
        appendText(tokens, body.substr(pos, open - pos));
        std::string_view inside = body.substr(open + 2, close - open - 2);
        Placeholder placeholder;
        auto bar = inside.find('|');
        placeholder.type = std::string(inside.substr(0, bar));
        while (bar != std::string_view::npos) {
            inside.remove_prefix(bar + 1);
            bar = inside.find('|');
            placeholder.parameters.emplace_back(inside.substr(0, bar));
        }
        tokens.emplace_back(std::move(placeholder));
        pos = close + 2;
    }
    appendText(tokens, body.substr(std::min(pos, body.size())));
    return tokens;
}

} // namespace marlune
