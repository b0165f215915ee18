#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>

namespace marlune {

// Repeated-phrase counting for the suggestion to make a snippet: a phrase is the typing between
// two line ends, and one of at least `kMinWords` words and `kMinBytes` bytes typed
// `kThreshold` times is offered once. What was typed is wiped from memory when it is let go.
class PhraseCounter {
public:
    static constexpr int kMinWords = 3;
    static constexpr std::size_t kMinBytes = 12;
    static constexpr std::size_t kMaxBytes = 200;
    static constexpr std::int64_t kThreshold = 3;
    static constexpr std::size_t kMemory = 100;
    // The owner forgets every phrase this often (`forgetAll`).
    static constexpr std::chrono::minutes kResetPeriod{60};

    PhraseCounter();
    PhraseCounter(const PhraseCounter&) = delete;
    PhraseCounter& operator=(const PhraseCounter&) = delete;
    ~PhraseCounter();

    void typed(std::string_view text);
    void backspace();
    // The line being typed is no longer what stands on it (another key, a click, an edit).
    void abandonLine();
    // The line ended: its phrase when it is one to count, else nothing. Then `count` it (or
    // not) and `clearLine`.
    std::optional<std::string_view> endedPhrase() const;
    // True when the phrase has just been typed for the `kThreshold`-th time.
    bool count(std::string_view phrase);
    void clearLine();
    void forgetAll();

private:
    std::string line_;
    bool overflow_ = false;
    // Phrases seen lately with their counts, oldest first; a short list, searched at line ends.
    struct Seen {
        std::string phrase;
        std::int64_t count = 0;
    };
    std::deque<Seen> seen_;
};

} // namespace marlune
