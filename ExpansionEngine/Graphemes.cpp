#include "ExpansionEngine/Graphemes.h"

#include <algorithm>
#include <memory>
#include <unicode/brkiter.h>
#include <unicode/uchar.h>
#include <unicode/utext.h>
#include <unicode/utf8.h>

namespace marlune {
namespace {

// Break iterators are expensive to build and not thread-safe to share, so each thread keeps
// one. It carries no state between calls: every use starts with setText.
icu::BreakIterator* characterIterator() {
    thread_local std::unique_ptr<icu::BreakIterator> iterator = [] {
        UErrorCode status = U_ZERO_ERROR;
        std::unique_ptr<icu::BreakIterator> made(
            icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
        if (U_FAILURE(status)) {
            made.reset();
        }
        return made;
    }();
    return iterator.get();
}

// Plain ASCII is one character per byte except that CR LF is a single character; most typed
// text is ASCII, and this keeps the key path away from ICU.
bool isAscii(std::string_view s) {
    for (unsigned char c : s) {
        if (c >= 0x80) {
            return false;
        }
    }
    return true;
}

class Scan {
public:
    explicit Scan(std::string_view s) : iterator_(characterIterator()) {
        UErrorCode status = U_ZERO_ERROR;
        utext_openUTF8(&text_, s.data(), static_cast<int64_t>(s.size()), &status);
        if (U_FAILURE(status) || iterator_ == nullptr) {
            iterator_ = nullptr;
            return;
        }
        iterator_->setText(&text_, status);
        if (U_FAILURE(status)) {
            iterator_ = nullptr;
        }
    }
    ~Scan() { utext_close(&text_); }
    Scan(const Scan&) = delete;
    Scan& operator=(const Scan&) = delete;

    icu::BreakIterator* operator->() const { return iterator_; }
    explicit operator bool() const { return iterator_ != nullptr; }

private:
    UText text_ = UTEXT_INITIALIZER;
    icu::BreakIterator* iterator_;
};

} // namespace

std::int64_t Graphemes::count(std::string_view utf8) {
    // Between two ASCII characters other than CR LF there is always a boundary, whatever
    // surrounds them, so the text is cut there and only the stretches around non-ASCII
    // characters (with the ASCII character before them, which a combining mark may join) go
    // through the break iterator. Typical bodies are mostly ASCII.
    auto ascii = [&](std::size_t i) { return static_cast<unsigned char>(utf8[i]) < 0x80; };
    std::int64_t n = 0;
    std::size_t i = 0;
    while (i < utf8.size()) {
        if (ascii(i) && (i + 1 == utf8.size() || ascii(i + 1))) {
            i += (utf8[i] == '\r' && i + 1 < utf8.size() && utf8[i + 1] == '\n') ? 2 : 1;
            ++n;
            continue;
        }
        std::size_t end = i + 1;
        while (end < utf8.size() &&
               !(ascii(end - 1) && ascii(end) && !(utf8[end - 1] == '\r' && utf8[end] == '\n'))) {
            ++end;
        }
        std::string_view stretch = utf8.substr(i, end - i);
        Scan scan(stretch);
        if (!scan) {
            n += static_cast<std::int64_t>(stretch.size());
        } else {
            for (int32_t pos = scan->next(); pos != icu::BreakIterator::DONE; pos = scan->next()) {
                ++n;
            }
        }
        i = end;
    }
    return n;
}

// Counting a prefix is exact when the offset falls on a boundary of the whole text, because a
// boundary never depends on what follows it; a partial character before the offset counts as
// one.
std::int64_t Graphemes::countBefore(std::string_view utf8, std::size_t byteOffset) {
    return count(utf8.substr(0, std::min(byteOffset, utf8.size())));
}

std::size_t Graphemes::offsetOfLast(std::string_view utf8, std::int64_t n) {
    if (n <= 0) {
        return utf8.size();
    }
    if (isAscii(utf8)) {
        std::size_t pos = utf8.size();
        while (n > 0 && pos > 0) {
            pos -= (pos >= 2 && utf8[pos - 2] == '\r' && utf8[pos - 1] == '\n') ? 2 : 1;
            --n;
        }
        return pos;
    }
    Scan scan(utf8);
    if (!scan) {
        return utf8.size() > static_cast<std::size_t>(n) ? utf8.size() - static_cast<std::size_t>(n)
                                                         : 0;
    }
    int32_t pos = scan->last();
    while (n > 0 && pos > 0) {
        pos = scan->previous();
        --n;
    }
    return pos <= 0 ? 0 : static_cast<std::size_t>(pos);
}

bool Graphemes::isBoundary(std::string_view utf8, std::size_t byteOffset) {
    if (byteOffset == 0 || byteOffset >= utf8.size()) {
        return true;
    }
    if (isAscii(utf8)) {
        return !(utf8[byteOffset - 1] == '\r' && utf8[byteOffset] == '\n');
    }
    Scan scan(utf8);
    if (!scan) {
        return true;
    }
    return scan->isBoundary(static_cast<int32_t>(byteOffset));
}

bool Graphemes::isWhitespace(char32_t codePoint) {
    return u_isUWhiteSpace(static_cast<UChar32>(codePoint)) != 0;
}

std::size_t Graphemes::previousCodePoint(std::string_view utf8, std::size_t end, char32_t& out) {
    if (end == 0) {
        out = 0;
        return 0;
    }
    const auto* bytes = reinterpret_cast<const uint8_t*>(utf8.data());
    int32_t i = static_cast<int32_t>(end);
    UChar32 c = 0;
    U8_PREV(bytes, 0, i, c);
    out = c < 0 ? 0xFFFD : static_cast<char32_t>(c);
    return static_cast<std::size_t>(i);
}

} // namespace marlune
