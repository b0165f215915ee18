#include "Marlune/PhraseCounter.h"

#include "ExpansionEngine/Graphemes.h"

#include <algorithm>
#include <iterator>

namespace marlune {

namespace {

void wipe(std::string& text) {
    volatile char* bytes = text.data();
    for (std::size_t i = 0; i < text.size(); ++i) {
        bytes[i] = 0;
    }
    text.clear();
}

int wordCount(std::string_view text) {
    int words = 0;
    bool inWord = false;
    for (const char ch : text) {
        const bool space = ch == ' ' || ch == '\t';
        if (!space && !inWord) {
            ++words;
        }
        inWord = !space;
    }
    return words;
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) {
        text.remove_prefix(1);
    }
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) {
        text.remove_suffix(1);
    }
    return text;
}

} // namespace

PhraseCounter::PhraseCounter() {
    line_.reserve(kMaxBytes + 8);
}

PhraseCounter::~PhraseCounter() {
    wipe(line_);
    forgetAll();
}

void PhraseCounter::typed(std::string_view text) {
    if (overflow_) {
        return;
    }
    if (line_.size() + text.size() > kMaxBytes) {
        // Too long to be a phrase anyone would keep as a snippet; wait for the next line.
        wipe(line_);
        overflow_ = true;
        return;
    }
    line_.append(text);
}

void PhraseCounter::backspace() {
    if (!line_.empty()) {
        line_.resize(Graphemes::offsetOfLast(line_, 1));
    }
}

void PhraseCounter::abandonLine() {
    wipe(line_);
    overflow_ = false;
}

std::optional<std::string_view> PhraseCounter::endedPhrase() const {
    const std::string_view phrase = trimmed(line_);
    if (overflow_ || phrase.size() < kMinBytes || wordCount(phrase) < kMinWords) {
        return std::nullopt;
    }
    return phrase;
}

bool PhraseCounter::count(std::string_view phrase) {
    auto it = std::find_if(seen_.begin(), seen_.end(),
                           [&](const Seen& entry) { return entry.phrase == phrase; });
    if (it == seen_.end()) {
        if (seen_.size() >= kMemory) {
            wipe(seen_.front().phrase);
            seen_.pop_front();
        }
        seen_.push_back({std::string(phrase), 0});
        it = std::prev(seen_.end());
    }
    return ++it->count == kThreshold;
}

void PhraseCounter::clearLine() {
    abandonLine();
}

void PhraseCounter::forgetAll() {
    for (auto& entry : seen_) {
        wipe(entry.phrase);
    }
    seen_.clear();
}

} // namespace marlune
