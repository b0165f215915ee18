#include "ExpansionEngine/SnippetRenderer.h"

#include "ExpansionEngine/Graphemes.h"
#include "ExpansionEngine/PlaceholderCatalog.h"
#include "ExpansionEngine/SnippetParser.h"
#include "ExpansionEngine/TextTransform.h"

#include <algorithm>
#include <charconv>
#include <memory>
#include <unicode/datefmt.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>
#include <unicode/unistr.h>
#include <unordered_map>

namespace marlune {
namespace {

// Building an ICU date formatter loads locale data and costs far more than formatting, and
// the key path renders on every keyword hit, so each thread keeps the few it has used.
class DateFormatterCache {
public:
    const icu::DateFormat* get(const std::string& key, const ExpansionContext& context,
                               PlaceholderKind kind, std::string_view format) {
        if (auto it = cache_.find(key); it != cache_.end()) {
            return it->second.get();
        }
        if (cache_.size() >= 32) {
            cache_.clear();
        }
        auto made = make(context, kind, format);
        const icu::DateFormat* raw = made.get();
        cache_.emplace(key, std::move(made));
        return raw;
    }

private:
    static std::unique_ptr<icu::DateFormat> make(const ExpansionContext& context,
                                                 PlaceholderKind kind, std::string_view format) {
        icu::Locale locale = context.locale.empty()
                                 ? icu::Locale::getRoot()
                                 : icu::Locale::createFromName(context.locale.c_str());
        std::optional<icu::DateFormat::EStyle> style;
        if (format == "short") {
            style = icu::DateFormat::kShort;
        } else if (format == "medium") {
            style = icu::DateFormat::kMedium;
        } else if (format == "long") {
            style = icu::DateFormat::kLong;
        } else if (format == "full") {
            style = icu::DateFormat::kFull;
        } else if (format.empty()) {
            // Without a format a date is the medium date; a time of day is wanted to the
            // minute, which is the short time style.
            style =
                kind == PlaceholderKind::date ? icu::DateFormat::kMedium : icu::DateFormat::kShort;
        }
        std::unique_ptr<icu::DateFormat> formatter;
        if (style) {
            formatter.reset(kind == PlaceholderKind::date
                                ? icu::DateFormat::createDateInstance(*style, locale)
                                : icu::DateFormat::createTimeInstance(*style, locale));
        } else {
            UErrorCode status = U_ZERO_ERROR;
            formatter = std::make_unique<icu::SimpleDateFormat>(
                icu::UnicodeString::fromUTF8(
                    icu::StringPiece(format.data(), static_cast<int32_t>(format.size()))),
                locale, status);
            if (U_FAILURE(status)) {
                formatter.reset();
            }
        }
        if (formatter) {
            std::string zone = context.timeZone.empty() ? std::string("UTC") : context.timeZone;
            formatter->adoptTimeZone(
                icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(zone)));
        }
        return formatter;
    }

    std::unordered_map<std::string, std::unique_ptr<icu::DateFormat>> cache_;
};

std::string formatDate(const ExpansionContext& context, PlaceholderKind kind,
                       std::string_view format) {
    thread_local DateFormatterCache cache;
    std::string key;
    key.reserve(context.locale.size() + context.timeZone.size() + format.size() + 4);
    key.append(context.locale).append(1, '\x1f').append(context.timeZone).append(1, '\x1f');
    key.append(1, kind == PlaceholderKind::date ? 'd' : 't').append(format);
    const icu::DateFormat* formatter = cache.get(key, context, kind, format);
    if (formatter == nullptr) {
        return {};
    }
    auto millis =
        std::chrono::duration_cast<std::chrono::milliseconds>(context.now.time_since_epoch());
    icu::UnicodeString formatted;
    formatter->format(static_cast<UDate>(millis.count()), formatted);
    std::string out;
    formatted.toUTF8String(out);
    return out;
}

std::optional<std::int64_t> parseInteger(std::optional<std::string_view> text) {
    if (!text) {
        return std::nullopt;
    }
    std::int64_t value = 0;
    auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), value);
    if (error != std::errc() || end != text->data() + text->size()) {
        return std::nullopt;
    }
    return value;
}

// FNV-1a: a stable digest that does not depend on the standard library's hash.
std::uint64_t fnv1a(std::string_view s, std::uint64_t hash = 14695981039346656037ull) {
    for (unsigned char c : s) {
        hash = (hash ^ c) * 1099511628211ull;
    }
    return hash;
}

std::string hex(std::uint64_t v) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string out(16, '0');
    for (int i = 15; i >= 0; --i) {
        out[static_cast<std::size_t>(i)] = digits[v & 15];
        v >>= 4;
    }
    return out;
}

class Renderer {
public:
    Renderer(const ExpansionContext& context, RenderResult& result)
        : context_(context), result_(result) {}

    void renderBody(std::string_view body, std::vector<std::string>& includeStack) {
        for (const Token& token : SnippetParser::parse(body)) {
            if (const auto* text = std::get_if<TextToken>(&token)) {
                append(text->text);
            } else {
                renderPlaceholder(std::get<Placeholder>(token), includeStack);
            }
        }
    }

    void finish() {
        if (cursorByte_) {
            result_.cursorOffset = Graphemes::countBefore(result_.text, *cursorByte_);
        }
    }

private:
    void append(std::string_view text) {
        auto room = SnippetRenderer::kMaxOutputBytes -
                    std::min(SnippetRenderer::kMaxOutputBytes, result_.text.size());
        result_.text.append(text.substr(0, room));
    }

    static std::optional<std::string>
    call(const std::function<std::optional<std::string>()>& source) {
        return source ? source() : std::nullopt;
    }

    void appendTransformed(std::optional<std::string> text, const Placeholder& placeholder) {
        if (!text) {
            return;
        }
        if (auto raw = placeholder.parameter("transform")) {
            if (auto transform = textTransformFromRaw(*raw)) {
                append(applyTextTransform(*transform, *text));
                return;
            }
        }
        append(*text);
    }

    void renderPlaceholder(const Placeholder& p, std::vector<std::string>& includeStack) {
        auto kind = PlaceholderCatalog::kind(p.type);
        if (!kind) {
            // An unknown kind stays as written so that a typo shows in the output; the
            // validator reports it in the editor.
            std::string literal = "{@" + p.type;
            for (const auto& parameter : p.parameters) {
                literal.append("|").append(parameter);
            }
            append(literal.append("@}"));
            return;
        }
        switch (*kind) {
        case PlaceholderKind::cursor:
            // The first mark wins: later ones are usually copies pasted in by accident.
            if (!cursorByte_) {
                cursorByte_ = result_.text.size();
            }
            break;
        case PlaceholderKind::clipboard:
            appendTransformed(call(context_.clipboard), p);
            break;
        case PlaceholderKind::selection:
            appendTransformed(call(context_.selection), p);
            break;
        case PlaceholderKind::date:
        case PlaceholderKind::time:
            append(formatDate(context_, *kind, p.parameter("format").value_or("")));
            break;
        case PlaceholderKind::counter:
            append(std::to_string(context_.nextCounter ? context_.nextCounter() : 0));
            break;
        case PlaceholderKind::random: {
            auto low = parseInteger(p.parameter("min")).value_or(0);
            auto high = parseInteger(p.parameter("max")).value_or(100);
            if (low > high) {
                std::swap(low, high);
            }
            append(std::to_string(context_.randomInt ? context_.randomInt(low, high) : low));
            break;
        }
        case PlaceholderKind::textField:
        case PlaceholderKind::choiceField:
        case PlaceholderKind::multiChoiceField:
        case PlaceholderKind::dateField:
            renderField(p, *kind);
            break;
        case PlaceholderKind::snippet:
            renderInclude(p, includeStack);
            break;
        case PlaceholderKind::variable:
            if (auto key = p.parameter("key")) {
                if (auto it = context_.variables.find(*key); it != context_.variables.end()) {
                    append(it->second);
                }
            }
            break;
        case PlaceholderKind::link: {
            std::string url(p.parameter("url").value_or(""));
            std::string label(p.parameter("text").value_or(""));
            append("[" + (label.empty() ? url : label) + "](" + url + ")");
            break;
        }
        case PlaceholderKind::ai:
            renderAI(p);
            break;
        }
    }

    void renderField(const Placeholder& p, PlaceholderKind kind) {
        auto name =
            std::string(p.parameter("name").value_or(p.parameter("field").value_or(p.type)));
        auto existing = std::find_if(result_.fillIns.begin(), result_.fillIns.end(),
                                     [&](const FillInField& f) { return f.name == name; });
        // Fields of one name are one question: the first occurrence decides its kind, options
        // and default, and every occurrence is written with the same answer.
        if (existing == result_.fillIns.end()) {
            FillInField field;
            field.name = name;
            if (auto value = p.parameter("default")) {
                field.defaultValue = std::string(*value);
            }
            switch (kind) {
            case PlaceholderKind::choiceField:
                field.kind = FillInField::Choice{p.options()};
                break;
            case PlaceholderKind::multiChoiceField:
                field.kind = FillInField::MultiChoice{p.options()};
                break;
            case PlaceholderKind::dateField:
                field.kind = FillInField::Date{};
                break;
            default:
                field.kind = FillInField::Text{};
                break;
            }
            result_.fillIns.push_back(std::move(field));
            existing = std::prev(result_.fillIns.end());
        }
        auto answer = context_.fillInValues.find(name);
        if (answer == context_.fillInValues.end()) {
            if (existing->defaultValue) {
                append(*existing->defaultValue);
            }
            return;
        }
        if (const auto* multi = std::get_if<FillInField::MultiChoice>(&existing->kind)) {
            append(inOptionOrder(answer->second, multi->options));
        } else {
            append(answer->second);
        }
    }

    // A multiple-choice answer is written in the order the options are offered, whatever the
    // order in which they were ticked.
    static std::string inOptionOrder(std::string_view answer,
                                     const std::vector<std::string>& options) {
        if (options.empty()) {
            return std::string(answer);
        }
        Placeholder chosen{"", {"options=" + std::string(answer)}};
        auto picked = chosen.options();
        std::string out;
        for (const auto& option : options) {
            if (std::find(picked.begin(), picked.end(), option) != picked.end()) {
                if (!out.empty()) {
                    out.append(kMultiChoiceSeparator);
                }
                out.append(option);
            }
        }
        return out;
    }

    void renderInclude(const Placeholder& p, std::vector<std::string>& includeStack) {
        std::string keyword(p.parameter("keyword").value_or(""));
        if (keyword.empty() || !context_.resolveSnippet) {
            return;
        }
        bool cycle =
            std::find(includeStack.begin(), includeStack.end(), keyword) != includeStack.end();
        if (cycle || static_cast<int>(includeStack.size()) > SnippetRenderer::kMaxIncludeDepth ||
            includes_ >= SnippetRenderer::kMaxIncludes) {
            result_.refusedIncludes.push_back(keyword);
            return;
        }
        auto body = context_.resolveSnippet(keyword);
        if (!body) {
            return;
        }
        ++includes_;
        includeStack.push_back(keyword);
        renderBody(*body, includeStack);
        includeStack.pop_back();
    }

    void renderAI(const Placeholder& p) {
        AIRequest request;
        request.prompt = std::string(p.parameter("prompt").value_or(""));
        request.input = aiInputFromRaw(p.parameter("input").value_or("")).value_or(AIInput::none);
        request.fallback = std::string(p.parameter("fallback").value_or(""));
        request.tier = aiTierFromRaw(p.parameter("tier").value_or("")).value_or(AITier::onDevice);
        std::uint64_t digest = fnv1a(request.prompt);
        digest = fnv1a(std::string_view("\x1f", 1), digest);
        digest = fnv1a(rawValue(request.input), digest);
        digest = fnv1a(std::string_view("\x1f", 1), digest);
        digest = fnv1a(rawValue(request.tier), digest);
        std::string base = "ai-" + hex(digest);
        int seen = 0;
        for (const auto& earlier : result_.aiRequests) {
            if (earlier.id.starts_with(base)) {
                ++seen;
            }
        }
        request.id = seen == 0 ? base : base + "-" + std::to_string(seen + 1);
        auto answer = context_.aiValues.find(request.id);
        append(answer != context_.aiValues.end() ? answer->second : request.fallback);
        result_.aiRequests.push_back(std::move(request));
    }

    const ExpansionContext& context_;
    RenderResult& result_;
    std::optional<std::size_t> cursorByte_;
    int includes_ = 0;
};

} // namespace

RenderResult SnippetRenderer::render(std::string_view body, const ExpansionContext& context,
                                     std::string_view ownKeyword) {
    RenderResult result;
    Renderer renderer(context, result);
    std::vector<std::string> includeStack;
    if (!ownKeyword.empty()) {
        includeStack.emplace_back(ownKeyword);
    }
    renderer.renderBody(body, includeStack);
    renderer.finish();
    return result;
}

} // namespace marlune
