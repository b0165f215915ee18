#include "ExpansionEngine/TypedBuffer.h"

#include "ExpansionEngine/Graphemes.h"

namespace marlune {

TypedBuffer::~TypedBuffer() {
    wipe();
}

void TypedBuffer::wipe() {
    // Through a volatile pointer so that the stores are not elided as dead.
    volatile char* bytes = text_.data();
    for (std::size_t i = 0; i < text_.size(); ++i) {
        bytes[i] = 0;
    }
    text_.clear();
}

void TypedBuffer::appendKeyText(std::string_view keyText) {
    if (keyText.empty()) {
        return;
    }
    std::size_t end = keyText.size();
    while (end > 0) {
        char32_t c = 0;
        std::size_t start = Graphemes::previousCodePoint(keyText, end, c);
        if (Graphemes::isWhitespace(c)) {
            suppressedToken_.reset();
            break;
        }
        end = start;
    }
    text_.append(keyText);
    if (Graphemes::count(text_) > kCapacity) {
        std::size_t keepFrom = Graphemes::offsetOfLast(text_, kCapacity);
        volatile char* bytes = text_.data();
        for (std::size_t i = 0; i < keepFrom; ++i) {
            bytes[i] = 0;
        }
        text_.erase(0, keepFrom);
    }
}

void TypedBuffer::backspace() {
    if (text_.empty()) {
        return;
    }
    std::size_t last = Graphemes::offsetOfLast(text_, 1);
    text_.resize(last);
}

void TypedBuffer::clear() {
    wipe();
    suppressedToken_.reset();
}

void TypedBuffer::recordAbort(std::string_view reason) {
    lastAbortReason_ = std::string(reason);
    auto it = abortCounts_.find(reason);
    if (it == abortCounts_.end()) {
        abortCounts_.emplace(std::string(reason), 1);
    } else {
        ++it->second;
    }
}

} // namespace marlune
