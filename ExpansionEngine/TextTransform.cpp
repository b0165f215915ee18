#include "ExpansionEngine/TextTransform.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <memory>
#include <nlohmann/json.hpp>
#include <unicode/brkiter.h>
#include <unicode/normalizer2.h>
#include <unicode/regex.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/ustring.h>
#include <unicode/utf8.h>
#include <utility>
#include <vector>

namespace marlune {
namespace {

constexpr std::array<std::pair<std::string_view, TextTransform>, 13> kRawValues{{
    {"pretty-json", TextTransform::jsonPretty},
    {"minify-json", TextTransform::jsonMinify},
    {"uppercase", TextTransform::upper},
    {"lowercase", TextTransform::lower},
    {"title-case", TextTransform::title},
    {"snake-case", TextTransform::snake},
    {"kebab-case", TextTransform::kebab},
    {"slug", TextTransform::slug},
    {"single-line", TextTransform::singleLine},
    {"base64", TextTransform::base64},
    {"base64-decode", TextTransform::base64Decode},
    {"strip-tracking", TextTransform::stripTracking},
    {"plain", TextTransform::markdownToPlain},
}};

icu::UnicodeString toUnicode(std::string_view s) {
    return icu::UnicodeString::fromUTF8(icu::StringPiece(s.data(), static_cast<int32_t>(s.size())));
}

std::string toUtf8(const icu::UnicodeString& s) {
    std::string out;
    s.toUTF8String(out);
    return out;
}

// nlohmann-json prints recursively; a deeply nested document would exhaust the stack, so
// such input is treated like invalid JSON and left as it is.
constexpr int kMaxJsonDepth = 256;

bool jsonNestingWithinLimit(std::string_view text) {
    int depth = 0;
    bool inString = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (inString) {
            if (c == '\\') {
                ++i;
            } else if (c == '"') {
                inString = false;
            }
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > kMaxJsonDepth) {
                return false;
            }
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
    return true;
}

std::string reformatJson(std::string_view text, int indent) {
    if (!jsonNestingWithinLimit(text)) {
        return std::string(text);
    }
    // ordered_json keeps the keys in the order the user wrote them.
    auto parsed = nlohmann::ordered_json::parse(text.begin(), text.end(), nullptr, false);
    if (parsed.is_discarded()) {
        return std::string(text);
    }
    return parsed.dump(indent, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string changeCase(std::string_view text, TextTransform transform) {
    icu::UnicodeString s = toUnicode(text);
    const icu::Locale& root = icu::Locale::getRoot();
    switch (transform) {
    case TextTransform::upper:
        s.toUpper(root);
        break;
    case TextTransform::lower:
        s.toLower(root);
        break;
    default:
        s.toTitle(nullptr, root);
        break;
    }
    return toUtf8(s);
}

// Splits text into words of letters and digits for snake case, kebab case and slugs. A change
// from a lower-case letter or digit to an upper-case letter also starts a word, so camelCase
// names split the way a reader sees them.
std::string joinWords(const icu::UnicodeString& s, char separator) {
    icu::UnicodeString out;
    bool inWord = false;
    bool previousLowerOrDigit = false;
    for (int32_t i = 0; i < s.length();) {
        UChar32 c = s.char32At(i);
        i += U16_LENGTH(c);
        if (u_isalnum(c) || u_hasBinaryProperty(c, UCHAR_ALPHABETIC)) {
            bool upper = u_isupper(c) != 0;
            if (inWord && upper && previousLowerOrDigit) {
                out.append(static_cast<UChar>(separator));
            } else if (!inWord && out.length() > 0) {
                out.append(static_cast<UChar>(separator));
            }
            out.append(u_tolower(c));
            inWord = true;
            previousLowerOrDigit = !upper;
        } else if (u_getCombiningClass(c) != 0 && inWord) {
            out.append(c);
        } else {
            inWord = false;
            previousLowerOrDigit = false;
        }
    }
    return toUtf8(out);
}

std::string slugify(std::string_view text) {
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2* nfkd = icu::Normalizer2::getNFKDInstance(status);
    icu::UnicodeString s = toUnicode(text);
    if (U_SUCCESS(status) && nfkd != nullptr) {
        s = nfkd->normalize(s, status);
    }
    // Folding accents: after compatibility decomposition the accents are separate marks.
    icu::UnicodeString folded;
    for (int32_t i = 0; i < s.length();) {
        UChar32 c = s.char32At(i);
        i += U16_LENGTH(c);
        if (u_charType(c) != U_NON_SPACING_MARK) {
            folded.append(c);
        }
    }
    return joinWords(folded, '-');
}

bool isLineBreak(UChar32 c) {
    return c == '\n' || c == '\r' || c == 0x0B || c == 0x0C || c == 0x85 || c == 0x2028 ||
           c == 0x2029;
}

std::string singleLine(std::string_view text) {
    icu::UnicodeString s = toUnicode(text);
    icu::UnicodeString out;
    icu::UnicodeString line;
    auto flush = [&] {
        line.trim();
        if (line.length() > 0) {
            if (out.length() > 0) {
                out.append(u' ');
            }
            out.append(line);
        }
        line.remove();
    };
    for (int32_t i = 0; i < s.length();) {
        UChar32 c = s.char32At(i);
        i += U16_LENGTH(c);
        if (isLineBreak(c)) {
            flush();
        } else {
            line.append(c);
        }
    }
    flush();
    return toUtf8(out);
}

constexpr std::string_view kBase64Alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string base64Encode(std::string_view text) {
    std::string out;
    out.reserve((text.size() + 2) / 3 * 4);
    std::size_t i = 0;
    auto byte = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
    for (; i + 3 <= text.size(); i += 3) {
        unsigned v = (byte(i) << 16) | (byte(i + 1) << 8) | byte(i + 2);
        out += kBase64Alphabet[(v >> 18) & 63];
        out += kBase64Alphabet[(v >> 12) & 63];
        out += kBase64Alphabet[(v >> 6) & 63];
        out += kBase64Alphabet[v & 63];
    }
    if (std::size_t rest = text.size() - i; rest > 0) {
        unsigned v = byte(i) << 16;
        if (rest == 2) {
            v |= byte(i + 1) << 8;
        }
        out += kBase64Alphabet[(v >> 18) & 63];
        out += kBase64Alphabet[(v >> 12) & 63];
        out += rest == 2 ? kBase64Alphabet[(v >> 6) & 63] : '=';
        out += '=';
    }
    return out;
}

int base64Value(char c) {
    if (c >= 'A' && c <= 'Z') {
        return c - 'A';
    }
    if (c >= 'a' && c <= 'z') {
        return c - 'a' + 26;
    }
    if (c >= '0' && c <= '9') {
        return c - '0' + 52;
    }
    // The URL-safe alphabet decodes too: such text is as often copied from a link.
    if (c == '+' || c == '-') {
        return 62;
    }
    if (c == '/' || c == '_') {
        return 63;
    }
    return -1;
}

std::optional<std::string> base64DecodeStrict(std::string_view text) {
    std::string digits;
    digits.reserve(text.size());
    std::size_t padding = 0;
    for (char c : text) {
        if (c == ' ' || c == '\t' || c == '\r' || c == '\n') {
            continue;
        }
        if (c == '=') {
            ++padding;
            continue;
        }
        if (padding > 0 || base64Value(c) < 0) {
            return std::nullopt; // a digit after padding, or not Base64 at all
        }
        digits += c;
    }
    if (digits.empty() || digits.size() % 4 == 1 || padding > 2 ||
        (padding > 0 && (digits.size() + padding) % 4 != 0)) {
        return std::nullopt;
    }
    std::string out;
    unsigned buffer = 0;
    int bits = 0;
    for (char c : digits) {
        buffer = (buffer << 6) | static_cast<unsigned>(base64Value(c));
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out += static_cast<char>((buffer >> bits) & 0xFF);
        }
    }
    // Decoded bytes that are not UTF-8 text cannot be pasted as text.
    UErrorCode status = U_ZERO_ERROR;
    int32_t length = 0;
    u_strFromUTF8(nullptr, 0, &length, out.data(), static_cast<int32_t>(out.size()), &status);
    if (status != U_BUFFER_OVERFLOW_ERROR && U_FAILURE(status)) {
        return std::nullopt;
    }
    if (out.find('\0') != std::string::npos) {
        return std::nullopt;
    }
    return out;
}

bool isTrackingParameter(std::string_view name) {
    std::string lower(name);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (lower.starts_with("utm_")) {
        return true;
    }
    static constexpr std::array<std::string_view, 17> known{
        "fbclid", "gclid",  "gclsrc", "dclid",   "msclkid",   "mc_eid",
        "mc_cid", "igshid", "yclid",  "twclid",  "ttclid",    "wbraid",
        "gbraid", "_hsenc", "_hsmi",  "mkt_tok", "oly_enc_id"};
    return std::find(known.begin(), known.end(), lower) != known.end();
}

bool endsUrl(char c) {
    return std::isspace(static_cast<unsigned char>(c)) || c == '"' || c == '\'' || c == '<' ||
           c == '>' || c == ')' || c == ']';
}

std::string cleanUrl(std::string_view url) {
    auto query = url.find('?');
    if (query == std::string_view::npos) {
        return std::string(url);
    }
    auto hash = url.find('#', query);
    std::string_view fragment = hash == std::string_view::npos ? "" : url.substr(hash);
    std::string_view params =
        url.substr(query + 1, (hash == std::string_view::npos ? url.size() : hash) - query - 1);
    std::string kept;
    while (true) {
        auto amp = params.find('&');
        std::string_view param = params.substr(0, amp);
        if (!param.empty() && !isTrackingParameter(param.substr(0, param.find('=')))) {
            if (!kept.empty()) {
                kept += '&';
            }
            kept.append(param);
        }
        if (amp == std::string_view::npos) {
            break;
        }
        params.remove_prefix(amp + 1);
    }
    std::string out(url.substr(0, query));
    if (!kept.empty()) {
        out += '?';
        out += kept;
    }
    out.append(fragment);
    return out;
}

std::string stripTracking(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    std::size_t pos = 0;
    while (pos < text.size()) {
        auto http = text.find("http", pos);
        if (http == std::string_view::npos) {
            break;
        }
        std::string_view rest = text.substr(http);
        std::size_t schemeLength = rest.starts_with("https://")  ? 8
                                   : rest.starts_with("http://") ? 7
                                                                 : 0;
        if (schemeLength == 0) {
            out.append(text.substr(pos, http + 4 - pos));
            pos = http + 4;
            continue;
        }
        std::size_t end = http + schemeLength;
        while (end < text.size() && !endsUrl(text[end])) {
            ++end;
        }
        out.append(text.substr(pos, http - pos));
        out += cleanUrl(text.substr(http, end - http));
        pos = end;
    }
    out.append(text.substr(std::min(pos, text.size())));
    return out;
}

// The substitutions in the order they must run; the repetition bounds are deliberate limits
// on how far one match may reach.
const std::vector<std::unique_ptr<icu::RegexPattern>>& markdownPatterns() {
    static const auto patterns = [] {
        std::vector<std::unique_ptr<icu::RegexPattern>> compiled;
        for (const char* source :
             {R"(!\[([^\]]{0,512})\]\(([^)]{0,2048})\))", R"(\[([^\]]{0,512})\]\(([^)]{0,2048})\))",
              R"(`([^`]{0,2048})`)", R"(\*\*([^*]{1,2048})\*\*)", R"(__([^_]{1,2048})__)",
              R"(\*([^*]{1,2048})\*)", R"(_([^_]{1,2048})_)", R"(^\s*>+\s?)", R"(^\s*#{1,6}\s*)"}) {
            UErrorCode status = U_ZERO_ERROR;
            UParseError error;
            compiled.emplace_back(
                icu::RegexPattern::compile(icu::UnicodeString::fromUTF8(source), 0, error, status));
            if (U_FAILURE(status)) {
                compiled.back().reset();
            }
        }
        return compiled;
    }();
    return patterns;
}

icu::UnicodeString replaceAll(const icu::RegexPattern* pattern, const icu::UnicodeString& text,
                              const icu::UnicodeString& replacement) {
    if (pattern == nullptr) {
        return text;
    }
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::RegexMatcher> matcher(pattern->matcher(text, status));
    if (U_FAILURE(status)) {
        return text;
    }
    icu::UnicodeString out = matcher->replaceAll(replacement, status);
    return U_SUCCESS(status) ? out : text;
}

std::string markdownToPlain(std::string_view text) {
    const auto& patterns = markdownPatterns();
    icu::UnicodeString s = toUnicode(text);
    const icu::UnicodeString captured(u"$1");
    for (std::size_t i = 0; i < 7; ++i) {
        s = replaceAll(patterns[i].get(), s, captured);
    }
    std::string out;
    std::string utf8 = toUtf8(s);
    std::string_view rest = utf8;
    while (true) {
        auto newline = rest.find('\n');
        icu::UnicodeString line = toUnicode(rest.substr(0, newline));
        line = replaceAll(patterns[7].get(), line, icu::UnicodeString());
        line = replaceAll(patterns[8].get(), line, icu::UnicodeString());
        out += toUtf8(line);
        if (newline == std::string_view::npos) {
            break;
        }
        out += '\n';
        rest.remove_prefix(newline + 1);
    }
    return out;
}

} // namespace

std::string_view rawValue(TextTransform transform) {
    for (const auto& [raw, t] : kRawValues) {
        if (t == transform) {
            return raw;
        }
    }
    return {};
}

std::optional<TextTransform> textTransformFromRaw(std::string_view raw) {
    for (const auto& [name, t] : kRawValues) {
        if (name == raw) {
            return t;
        }
    }
    return std::nullopt;
}

std::string applyTextTransform(TextTransform transform, std::string_view text) {
    switch (transform) {
    case TextTransform::jsonPretty:
        return reformatJson(text, 2);
    case TextTransform::jsonMinify:
        return reformatJson(text, -1);
    case TextTransform::upper:
    case TextTransform::lower:
    case TextTransform::title:
        return changeCase(text, transform);
    case TextTransform::snake:
        return joinWords(toUnicode(text), '_');
    case TextTransform::kebab:
        return joinWords(toUnicode(text), '-');
    case TextTransform::slug:
        return slugify(text);
    case TextTransform::singleLine:
        return singleLine(text);
    case TextTransform::base64:
        return base64Encode(text);
    case TextTransform::base64Decode:
        return base64DecodeStrict(text).value_or(std::string(text));
    case TextTransform::stripTracking:
        return stripTracking(text);
    case TextTransform::markdownToPlain:
        return markdownToPlain(text);
    }
    return std::string(text);
}

} // namespace marlune
