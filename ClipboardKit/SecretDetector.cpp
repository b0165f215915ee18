#include "ClipboardKit/SecretDetector.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

namespace marlune {

namespace {

using ByteTable = std::array<bool, 256>;
using Alphabet = SecretDetector::BodyAlphabet;

constexpr bool isUpper(unsigned char c) {
    return c >= 'A' && c <= 'Z';
}
constexpr bool isLower(unsigned char c) {
    return c >= 'a' && c <= 'z';
}
constexpr bool isDigit(unsigned char c) {
    return c >= '0' && c <= '9';
}
constexpr bool isAlnum(unsigned char c) {
    return isUpper(c) || isLower(c) || isDigit(c);
}
constexpr bool isWordByte(unsigned char c) {
    return isAlnum(c) || c == '_';
}
constexpr bool isBlank(unsigned char c) {
    return c == ' ' || c == '\t';
}
constexpr bool isSpace(unsigned char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v';
}
constexpr unsigned char lowerAscii(unsigned char c) {
    return isUpper(c) ? static_cast<unsigned char>(c + ('a' - 'A')) : c;
}

constexpr bool alphabetHas(Alphabet alphabet, unsigned char c) {
    switch (alphabet) {
    case Alphabet::alphanumeric:
        return isAlnum(c);
    case Alphabet::alphanumericUnderscore:
        return isAlnum(c) || c == '_';
    case Alphabet::base64URL:
        return isAlnum(c) || c == '-' || c == '_';
    case Alphabet::alphanumericDash:
        return isAlnum(c) || c == '-';
    case Alphabet::upperDigit:
        return isUpper(c) || isDigit(c);
    case Alphabet::lowerHex:
        return isDigit(c) || (c >= 'a' && c <= 'f');
    }
    return false;
}

constexpr std::size_t alphabetCount = 6;

constexpr std::array<ByteTable, alphabetCount> makeAlphabetTables() {
    std::array<ByteTable, alphabetCount> tables{};
    for (std::size_t a = 0; a < alphabetCount; ++a) {
        for (std::size_t c = 0; c < 256; ++c) {
            tables[a][c] = alphabetHas(static_cast<Alphabet>(a), static_cast<unsigned char>(c));
        }
    }
    return tables;
}
constexpr auto alphabetTables = makeAlphabetTables();

constexpr ByteTable makeLongRunTable() {
    ByteTable table{};
    for (std::size_t c = 0; c < 256; ++c) {
        const auto b = static_cast<unsigned char>(c);
        table[c] = isAlnum(b) || b == '+' || b == '/' || b == '=';
    }
    return table;
}
constexpr auto longRunTable = makeLongRunTable();

// For each byte, the rules whose prefix begins with it, as a bit set in table order.
constexpr std::array<std::uint32_t, 256> makeFirstByteRules() {
    std::array<std::uint32_t, 256> masks{};
    for (std::size_t r = 0; r < SecretDetector::prefixRules.size(); ++r) {
        const auto first = static_cast<unsigned char>(SecretDetector::prefixRules[r].prefix[0]);
        masks[first] |= std::uint32_t{1} << r;
    }
    return masks;
}
constexpr auto firstByteRules = makeFirstByteRules();
static_assert(SecretDetector::prefixRules.size() <= 32, "the rule set must fit a 32-bit mask");

unsigned char at(std::string_view text, std::size_t i) {
    return static_cast<unsigned char>(text[i]);
}

bool startsWithNoCase(std::string_view text, std::size_t pos, std::string_view lowerWord) {
    if (pos > text.size() || text.size() - pos < lowerWord.size()) {
        return false;
    }
    for (std::size_t i = 0; i < lowerWord.size(); ++i) {
        if (lowerAscii(at(text, pos + i)) != static_cast<unsigned char>(lowerWord[i])) {
            return false;
        }
    }
    return true;
}

// Next occurrence of `lowerNeedle` ignoring ASCII case, or npos.
std::size_t findNoCase(std::string_view text, std::string_view lowerNeedle, std::size_t from) {
    if (lowerNeedle.empty() || text.size() < lowerNeedle.size()) {
        return std::string_view::npos;
    }
    const auto first = static_cast<unsigned char>(lowerNeedle[0]);
    const std::size_t last = text.size() - lowerNeedle.size();
    for (std::size_t i = from; i <= last; ++i) {
        if (lowerAscii(at(text, i)) == first && startsWithNoCase(text, i, lowerNeedle)) {
            return i;
        }
    }
    return std::string_view::npos;
}

std::size_t skipWhile(std::string_view text, std::size_t pos, bool (*pred)(unsigned char)) {
    while (pos < text.size() && pred(at(text, pos))) {
        ++pos;
    }
    return pos;
}

// --- private keys --------------------------------------------------------------------------

bool holdsPrivateKeyHeader(std::string_view text) {
    static constexpr std::string_view begin = "-----BEGIN ";
    static constexpr std::size_t maxLabel = 80;
    std::size_t pos = text.find(begin);
    while (pos != std::string_view::npos) {
        const std::size_t labelStart = pos + begin.size();
        const std::size_t window = std::min(text.size() - labelStart, maxLabel + 5);
        const std::string_view rest = text.substr(labelStart, window);
        const std::size_t close = rest.find("-----");
        if (close != std::string_view::npos && rest.substr(0, close).find('\n') == rest.npos) {
            const std::string_view label = rest.substr(0, close);
            if (label.ends_with("PRIVATE KEY") || label.ends_with("PRIVATE KEY BLOCK")) {
                return true;
            }
        }
        pos = text.find(begin, labelStart);
    }
    return false;
}

// --- secret access key assignment ------------------------------------------------------------

bool isAssignmentFiller(unsigned char c) {
    return c == ' ' || c == '\t' || c == '"' || c == '\'' || c == ':' || c == '=';
}

bool holdsSecretAccessKeyAssignment(std::string_view text) {
    static constexpr std::string_view key = "aws_secret_access_key";
    std::size_t pos = findNoCase(text, key, 0);
    while (pos != std::string_view::npos) {
        // The value sits on the same line as its key in every format that writes one
        // (credentials files, environment exports, JSON and YAML).
        // The "=" of the assignment is not part of the value, though it is a base-64 byte.
        const std::size_t valueStart = skipWhile(text, pos + key.size(), isAssignmentFiller);
        std::size_t lineEnd = text.find('\n', valueStart);
        if (lineEnd == std::string_view::npos) {
            lineEnd = text.size();
        }
        if (SecretDetector::hasLongRun(text.substr(valueStart, lineEnd - valueStart))) {
            return true;
        }
        pos = findNoCase(text, key, pos + key.size());
    }
    return false;
}

// --- authorisation header values -------------------------------------------------------------

constexpr bool isTokenByte(unsigned char c) {
    return isAlnum(c) || c == '-' || c == '.' || c == '_' || c == '~' || c == '+' || c == '/';
}

// End of a b64token (RFC 6750: token characters, then any "=" padding) starting at `pos`.
std::size_t tokenEnd(std::string_view text, std::size_t pos) {
    std::size_t end = pos;
    while (end < text.size() && isTokenByte(at(text, end))) {
        ++end;
    }
    if (end == pos) {
        return pos;
    }
    while (end < text.size() && text[end] == '=') {
        ++end;
    }
    return end;
}

// A token after an explicit scheme may be followed by anything that ends a value in a
// header, a command line or a piece of code, but not by more token-like text such as
// "{token}" or "$TOKEN" (a template, not a credential).
bool endsValue(std::string_view text, std::size_t pos) {
    if (pos >= text.size()) {
        return true;
    }
    const unsigned char c = at(text, pos);
    return isSpace(c) || c == '"' || c == '\'' || c == '`' || c == ',' || c == ';' || c == ')' ||
           c == ']' || c == '}' || c == '\\';
}

// "bearer" or "basic" at `pos`, then blanks, then a token that ends a value. Returns where the
// token ends, or npos.
std::size_t schemeAndToken(std::string_view text, std::size_t pos) {
    for (std::string_view scheme : {std::string_view("bearer"), std::string_view("basic")}) {
        if (!startsWithNoCase(text, pos, scheme)) {
            continue;
        }
        const std::size_t afterScheme = pos + scheme.size();
        const std::size_t tokenStart = skipWhile(text, afterScheme, isBlank);
        if (tokenStart == afterScheme) {
            return std::string_view::npos;
        }
        const std::size_t end = tokenEnd(text, tokenStart);
        return end > tokenStart && endsValue(text, end) ? end : std::string_view::npos;
    }
    return std::string_view::npos;
}

bool isHeaderNameFiller(unsigned char c) {
    return c == '"' || c == '\'' || c == ' ' || c == '\t' || c == ']';
}
bool isQuote(unsigned char c) {
    return c == '"' || c == '\'';
}
bool isLetter(unsigned char c) {
    return isUpper(c) || isLower(c);
}

// "Authorization: Bearer x", "Authorization": "Basic x", headers['Authorization'] = 'x', ...
bool holdsAuthorizationField(std::string_view text) {
    static constexpr std::string_view name = "authorization";
    std::size_t pos = findNoCase(text, name, 0);
    for (; pos != std::string_view::npos; pos = findNoCase(text, name, pos + 1)) {
        if (pos > 0 && isAlnum(at(text, pos - 1))) {
            continue;
        }
        std::size_t q = skipWhile(text, pos + name.size(), isHeaderNameFiller);
        if (q >= text.size() || (text[q] != ':' && text[q] != '=')) {
            continue;
        }
        q = skipWhile(text, q + 1, isBlank);
        unsigned char quote = 0;
        if (q < text.size() && isQuote(at(text, q))) {
            quote = at(text, q);
            q = skipWhile(text, q + 1, isBlank);
        }
        if (startsWithNoCase(text, q, "bearer") || startsWithNoCase(text, q, "basic")) {
            if (schemeAndToken(text, q) != std::string_view::npos) {
                return true;
            }
            continue; // "Bearer {token}": a template, not a credential
        }
        // Any other scheme word, then the credential. Without the scheme words the value has
        // to be the whole value (up to its closing quote or the end of the line), so that
        // prose such as "Authorization: the user signs in" is left alone.
        std::size_t s = skipWhile(text, q, isLetter);
        const std::size_t afterWord = skipWhile(text, s, isBlank);
        s = (afterWord > s && s > q) ? afterWord : q;
        const std::size_t end = tokenEnd(text, s);
        if (end == s) {
            continue;
        }
        if (quote != 0) {
            if (end < text.size() && at(text, end) == quote) {
                return true;
            }
            continue;
        }
        const std::size_t after = skipWhile(text, end, isBlank);
        if (after >= text.size() || text[after] == '\r' || text[after] == '\n') {
            return true;
        }
    }
    return false;
}

// A line that is nothing but "Bearer <token>" or "Basic <token>": the header value itself.
bool holdsBareSchemeLine(std::string_view text) {
    std::size_t lineStart = 0;
    while (lineStart < text.size()) {
        std::size_t lineEnd = text.find('\n', lineStart);
        if (lineEnd == std::string_view::npos) {
            lineEnd = text.size();
        }
        std::size_t s = skipWhile(text, lineStart, isBlank);
        const unsigned char first = s < lineEnd ? lowerAscii(at(text, s)) : 0;
        if (first == 'b') {
            std::size_t e = lineEnd;
            while (e > s && isSpace(at(text, e - 1))) {
                --e;
            }
            const std::string_view line = text.substr(0, e);
            const std::size_t tokenEndPos = schemeAndToken(line, s);
            if (tokenEndPos == e) {
                return true;
            }
        }
        lineStart = lineEnd + 1;
    }
    return false;
}

// --- prefix rules -----------------------------------------------------------------------------

// The run of one alphabet that starts at a body position. Runs are remembered per alphabet so
// that candidates inside one long run (a base-64 blob full of "sk-"-like bytes) do not each
// rescan it: the work stays linear in the text.
class RunCache {
public:
    // Length of the alphabet run starting at `start`, or any value above `limit` when it is
    // longer than `limit`.
    std::size_t length(std::string_view text, const ByteTable& alphabet, std::size_t start,
                       std::size_t limit) {
        if (!valid_ || start < start_ || start > scanned_) {
            valid_ = true;
            start_ = start;
            scanned_ = start;
            complete_ = false;
        }
        if (!complete_) {
            const std::size_t want = start + limit + 1;
            std::size_t e = scanned_;
            while (e < text.size() && e < want && alphabet[at(text, e)]) {
                ++e;
            }
            scanned_ = std::max(scanned_, e);
            complete_ = e < want;
        }
        return scanned_ - start;
    }

private:
    bool valid_ = false;
    bool complete_ = false;
    std::size_t start_ = 0;
    std::size_t scanned_ = 0;
};

std::optional<std::size_t> firstPrefixRule(std::string_view text) {
    std::array<RunCache, alphabetCount> caches{};
    std::size_t best = SecretDetector::prefixRules.size();
    const std::size_t n = text.size();
    for (std::size_t i = 0; i < n; ++i) {
        std::uint32_t mask = firstByteRules[at(text, i)];
        if (mask == 0 || (i > 0 && isWordByte(at(text, i - 1)))) {
            continue;
        }
        while (mask != 0) {
            const auto r = static_cast<std::size_t>(std::countr_zero(mask));
            mask &= mask - 1;
            if (r >= best) {
                break;
            }
            const auto& rule = SecretDetector::prefixRules[r];
            if (n - i < rule.prefix.size() ||
                std::memcmp(text.data() + i, rule.prefix.data(), rule.prefix.size()) != 0) {
                continue;
            }
            const std::size_t bodyStart = i + rule.prefix.size();
            const auto alphabet = static_cast<std::size_t>(rule.body);
            const auto maxBody = static_cast<std::size_t>(rule.maxBody);
            const std::size_t body =
                caches[alphabet].length(text, alphabetTables[alphabet], bodyStart, maxBody);
            if (body < static_cast<std::size_t>(rule.minBody) || body > maxBody) {
                continue;
            }
            const std::size_t bodyEnd = bodyStart + body;
            if (bodyEnd < n && isWordByte(at(text, bodyEnd))) {
                continue;
            }
            if (rule.needsLongRun && !SecretDetector::hasLongRun(text.substr(bodyStart, body))) {
                continue;
            }
            best = r;
            if (best == 0) {
                return best;
            }
        }
    }
    if (best == SecretDetector::prefixRules.size()) {
        return std::nullopt;
    }
    return best;
}

// --- card numbers -----------------------------------------------------------------------------

// Bytes that, right before a digit run, make it part of something else: a longer word, a
// decimal or thousands-separated number, a path or URL segment, a range, a phone number.
constexpr bool blocksCardStart(unsigned char c) {
    return isWordByte(c) || c == '.' || c == ',' || c == '/' || c == '-' || c == '+';
}

// 13 to 19 digits, either unbroken or in groups of 3 to 6 with the first group of 4 and one
// kind of separator (space or dash) throughout, as cards are printed; issued by a bank or
// card network (major industry identifier 2 to 6); Luhn-valid. The industry digit keeps
// millisecond and nanosecond timestamps (which begin with 1) out.
bool holdsCardNumber(std::string_view text) {
    static constexpr std::size_t maxGroups = 8;
    const std::size_t n = text.size();
    std::size_t i = 0;
    while (i < n) {
        if (!isDigit(at(text, i))) {
            ++i;
            continue;
        }
        const bool startOk = i == 0 || !blocksCardStart(at(text, i - 1));
        std::array<char, 19> digits{};
        std::size_t digitCount = 0;
        std::array<std::size_t, maxGroups> groups{};
        std::size_t groupCount = 0;
        bool shapeOk = true;
        unsigned char separator = 0;
        std::size_t j = i;
        while (true) {
            std::size_t groupLength = 0;
            while (j < n && isDigit(at(text, j))) {
                if (digitCount < digits.size()) {
                    digits[digitCount] = text[j];
                }
                ++digitCount;
                ++groupLength;
                ++j;
            }
            if (groupCount < maxGroups) {
                groups[groupCount] = groupLength;
            } else {
                shapeOk = false;
            }
            ++groupCount;
            if (j + 1 < n && (text[j] == ' ' || text[j] == '-') && isDigit(at(text, j + 1))) {
                if (separator == 0) {
                    separator = at(text, j);
                } else if (separator != at(text, j)) {
                    shapeOk = false;
                }
                ++j;
                continue;
            }
            break;
        }
        // The whole run is judged once; a suffix of it is never a card on its own.
        i = j;
        if (!startOk || !shapeOk || digitCount < 13 || digitCount > 19) {
            continue;
        }
        if (groupCount > 1) {
            if (groups[0] != 4) {
                continue;
            }
            if (!std::all_of(groups.begin(), groups.begin() + static_cast<long>(groupCount),
                             [](std::size_t g) { return g >= 3 && g <= 6; })) {
                continue;
            }
        }
        if (j < n) {
            const unsigned char next = at(text, j);
            const bool numberGoesOn =
                (next == '.' || next == ',') && j + 1 < n && isDigit(at(text, j + 1));
            if (isWordByte(next) || next == '/' || numberGoesOn) {
                continue;
            }
        }
        if (digits[0] < '2' || digits[0] > '6') {
            continue;
        }
        if (SecretDetector::luhnValid(std::string_view(digits.data(), digitCount))) {
            return true;
        }
    }
    return false;
}

// --- one-time codes ---------------------------------------------------------------------------

// The whole text, white space around it aside, is 6 to 8 digits, or two groups of digits
// split by one space or hyphen ("123 456", "1234-5678"), 6 to 8 in all, whose lengths differ
// by at most one, as codes are shown. Shorter numbers are years, postal codes, prices and
// PINs people mean to keep; uneven pairs such as "2024-05" are dates.
bool isOneTimeCode(std::string_view text) {
    static constexpr std::size_t fewestDigits = 6;
    static constexpr std::size_t mostDigits = 8;
    std::size_t b = 0;
    std::size_t e = text.size();
    while (b < e && isSpace(at(text, b))) {
        ++b;
    }
    while (e > b && isSpace(at(text, e - 1))) {
        --e;
    }
    const std::string_view s = text.substr(b, e - b);
    if (s.size() < fewestDigits || s.size() > mostDigits + 1) {
        return false;
    }
    const std::size_t first = skipWhile(s, 0, isDigit);
    if (first == s.size()) {
        return first <= mostDigits;
    }
    if (first == 0 || (s[first] != ' ' && s[first] != '-')) {
        return false;
    }
    const std::size_t secondEnd = skipWhile(s, first + 1, isDigit);
    if (secondEnd != s.size()) {
        return false;
    }
    // Codes are shown as two equal halves ("123 456", "1234-5678"); unequal ones are a local
    // phone number ("555-1234") or a year and month ("2024-05"), which the history keeps.
    const std::size_t second = secondEnd - first - 1;
    const std::size_t total = first + second;
    return second == first && total >= fewestDigits && total <= mostDigits;
}

} // namespace

bool SecretDetector::inAlphabet(BodyAlphabet alphabet, unsigned char byte) {
    return alphabetTables[static_cast<std::size_t>(alphabet)][byte];
}

bool SecretDetector::hasLongRun(std::string_view text) {
    std::size_t run = 0;
    for (char c : text) {
        if (longRunTable[static_cast<unsigned char>(c)]) {
            if (++run >= longRunMinimum) {
                return true;
            }
        } else {
            run = 0;
        }
    }
    return false;
}

bool SecretDetector::luhnValid(std::string_view digits) {
    if (digits.empty()) {
        return false;
    }
    unsigned sum = 0;
    bool doubleIt = false;
    for (auto it = digits.rbegin(); it != digits.rend(); ++it) {
        if (!isDigit(static_cast<unsigned char>(*it))) {
            return false;
        }
        unsigned d = static_cast<unsigned>(*it - '0');
        if (doubleIt) {
            d *= 2;
            if (d > 9) {
                d -= 9;
            }
        }
        sum += d;
        doubleIt = !doubleIt;
    }
    return sum % 10 == 0;
}

std::optional<std::size_t> SecretDetector::firstMatchingPrefixRule(std::string_view text) {
    return firstPrefixRule(text);
}

std::optional<SecretKind> SecretDetector::classify(std::string_view text, SecretPolicy policy) {
    if (policy.skipLikelySecrets) {
        if (holdsPrivateKeyHeader(text)) {
            return SecretKind::privateKey;
        }
        if (holdsSecretAccessKeyAssignment(text)) {
            return SecretKind::apiKey;
        }
        if (holdsAuthorizationField(text) || holdsBareSchemeLine(text)) {
            return SecretKind::token;
        }
        if (const auto rule = firstPrefixRule(text)) {
            return prefixRules[*rule].kind;
        }
        if (holdsCardNumber(text)) {
            return SecretKind::cardNumber;
        }
    }
    if (policy.skipOneTimeCodes && isOneTimeCode(text)) {
        return SecretKind::oneTimeCode;
    }
    return std::nullopt;
}

} // namespace marlune
