#pragma once

#include "ClipboardKit/SecretKind.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace marlune {

// How many copies were kept out of the history, by kind. Only counts: what was skipped is
// never remembered anywhere.
class SkippedSecretTally {
public:
    void record(SecretKind kind) { ++counts_[index(kind)]; }
    std::int64_t count(SecretKind kind) const { return counts_[index(kind)]; }
    std::int64_t total() const {
        std::int64_t sum = 0;
        for (std::int64_t c : counts_) {
            sum += c;
        }
        return sum;
    }

private:
    static std::size_t index(SecretKind kind) { return static_cast<std::size_t>(kind); }
    std::array<std::int64_t, allSecretKinds.size()> counts_{};
};

} // namespace marlune
