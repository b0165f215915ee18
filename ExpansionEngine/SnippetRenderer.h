#pragma once

#include "ExpansionEngine/AIRequest.h"
#include "ExpansionEngine/ExpansionContext.h"
#include "ExpansionEngine/FillInField.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace marlune {

struct RenderResult {
    std::string text;
    std::vector<FillInField> fillIns;
    // The first cursor mark's position in user-perceived characters from the start of text.
    std::optional<std::int64_t> cursorOffset;
    std::vector<AIRequest> aiRequests;
    // Keywords of "snippet" placeholders left empty because the snippet would include itself
    // (directly or through others) or the nesting went too deep; the editor warns about them.
    std::vector<std::string> refusedIncludes;
};

struct SnippetRenderer {
    // How deep snippets may include snippets, and how much one render may produce: both keep
    // a library of snippets that include one another twice over from growing without end.
    static constexpr int kMaxIncludeDepth = 8;
    static constexpr int kMaxIncludes = 256;
    static constexpr std::size_t kMaxOutputBytes = 1 << 20;

    // `ownKeyword` is the keyword of the snippet being rendered, when known, so that a body
    // naming its own keyword is refused at the first level rather than one level down.
    static RenderResult render(std::string_view body, const ExpansionContext& context,
                               std::string_view ownKeyword = {});
};

} // namespace marlune
