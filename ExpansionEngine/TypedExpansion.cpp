#include "ExpansionEngine/TypedExpansion.h"

#include "ExpansionEngine/Graphemes.h"
#include "ExpansionEngine/InjectionPlan.h"
#include "ExpansionEngine/SnippetRenderer.h"

#include <algorithm>
#include <utility>

namespace marlune {
namespace {

// The characters after the last whitespace character (White_Space property).
std::string_view lastToken(std::string_view text) {
    std::size_t end = text.size();
    while (end > 0) {
        char32_t c = 0;
        std::size_t start = Graphemes::previousCodePoint(text, end, c);
        if (Graphemes::isWhitespace(c)) {
            return text.substr(end);
        }
        end = start;
    }
    return text;
}

TypedExpansion::Commit makeCommit(std::string keyword, std::string typedToken,
                                  std::int64_t deleteCount, RenderResult rendered) {
    TypedExpansion::Commit commit;
    const std::int64_t length = Graphemes::count(rendered.text);
    commit.keyword = std::move(keyword);
    commit.typedToken = std::move(typedToken);
    commit.deleteCount = deleteCount;
    commit.cursorBack =
        rendered.cursorOffset ? std::max<std::int64_t>(length - *rendered.cursorOffset, 0) : 0;
    commit.keystrokesSaved = std::max<std::int64_t>(length - deleteCount, 0);
    commit.text = std::move(rendered.text);
    commit.steps = InjectionPlan::make(commit.deleteCount, commit.text, commit.cursorBack);
    return commit;
}

} // namespace

TypedExpansion::Decision TypedExpansion::decide(std::optional<std::string_view> text,
                                                std::optional<std::string_view> baseline,
                                                std::string_view prefix, bool enabled,
                                                const SnippetLookup& lookup,
                                                const ExpansionContext& context) {
    if (!enabled || !text || !baseline || prefix.empty()) {
        return None{};
    }
    // Only characters added at the end can complete a keyword; an edit in the middle, a
    // deletion or a paste that replaced text never expands.
    if (baseline->size() >= text->size() || !text->starts_with(*baseline)) {
        return None{};
    }
    std::string_view token = lastToken(*text);
    auto at = token.find(prefix);
    if (at == std::string_view::npos) {
        return None{};
    }
    // The first prefix counts, so ";;sig" and ";a;b" leave a keyword holding the prefix,
    // which never expands.
    std::string_view keyword = token.substr(at + prefix.size());
    if (keyword.empty() || keyword.find(prefix) != std::string_view::npos || !lookup) {
        return None{};
    }
    const ExpansionSnippet* snippet = lookup(keyword);
    if (snippet == nullptr) {
        return None{};
    }
    // The key may have added no character of its own but completed the last one (a skin tone
    // after an emoji, a joiner's second half, a combining accent): the keyword stands in full
    // before the caret all the same, and is deleted as the characters the field shows.
    // A prefix glued to the previous character (";" with a combining mark) is not a prefix.
    std::size_t prefixAt = static_cast<std::size_t>(token.data() - text->data()) + at;
    if (!Graphemes::isBoundary(*text, prefixAt) ||
        !Graphemes::isBoundary(*text, prefixAt + prefix.size())) {
        return None{};
    }

    RenderResult rendered = SnippetRenderer::render(snippet->body, context, keyword);
    std::string typedToken(prefix);
    typedToken.append(keyword);
    const std::int64_t deleteCount = Graphemes::count(keyword) + 1;
    if (!rendered.fillIns.empty()) {
        return FillInRequest{std::string(keyword), std::move(typedToken), deleteCount,
                             snippet->body, std::move(rendered.fillIns)};
    }
    if (rendered.text.empty()) {
        // A body that renders to nothing must not eat the keyword.
        return None{};
    }
    return makeCommit(std::string(keyword), std::move(typedToken), deleteCount,
                      std::move(rendered));
}

TypedExpansion::Commit TypedExpansion::commitFillIn(const FillInRequest& request,
                                                    std::optional<std::string_view> preCaret,
                                                    const ExpansionContext& context) {
    RenderResult rendered = SnippetRenderer::render(request.content, context, request.keyword);
    const bool keywordStillThere = preCaret && preCaret->ends_with(request.typedToken);
    return makeCommit(request.keyword, request.typedToken,
                      keywordStillThere ? request.deleteCount : 0, std::move(rendered));
}

} // namespace marlune
