// Snippet bodies come from the user, from imported libraries and from the command line: any
// bytes must parse, validate and render without a crash, a hang or unbounded output.
#include "ExpansionEngine/SnippetBodyValidator.h"
#include "ExpansionEngine/SnippetParser.h"
#include "ExpansionEngine/SnippetRenderer.h"
#include "ExpansionEngine/TextTransform.h"
#include "ExpansionEngine/TypedExpansion.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view body(reinterpret_cast<const char*>(data), size);

    marlune::SnippetParser::parse(body);
    marlune::SnippetBodyValidator::validate(body);

    marlune::ExpansionContext context;
    context.now = std::chrono::system_clock::time_point(std::chrono::seconds(1709669229));
    context.locale = "de_DE";
    context.timeZone = "Asia/Tokyo";
    // Every other snippet is the body itself, so that includes nest as deep as they can.
    context.resolveSnippet = [&](std::string_view) { return std::optional<std::string>(body); };
    context.clipboard = [&] { return std::optional<std::string>(body); };
    context.selection = [&] { return std::optional<std::string>(body.substr(0, body.size() / 2)); };
    context.nextCounter = [] { return std::int64_t{7}; };
    context.randomInt = [](std::int64_t low, std::int64_t) { return low; };
    context.fillInValues["Name"] = "answer";

    auto result = marlune::SnippetRenderer::render(body, context, "self");
    if (result.text.size() > marlune::SnippetRenderer::kMaxOutputBytes) {
        std::abort();
    }

    for (int i = 0; i <= static_cast<int>(marlune::TextTransform::markdownToPlain); ++i) {
        marlune::applyTextTransform(static_cast<marlune::TextTransform>(i), body);
    }

    marlune::ExpansionSnippet snippet{"id", "k", std::string(body), "plainText"};
    marlune::SnippetLookup lookup = [&](std::string_view) { return &snippet; };
    std::string text(body);
    text.append(";k");
    marlune::TypedExpansion::decide(text, body, ";", true, lookup, context);
    return 0;
}
