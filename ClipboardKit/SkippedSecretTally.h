#pragma once

#include "ClipboardKit/SecretKind.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

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

    // "Skipped 3 likely secrets: 2 API keys, 1 card number.", the kinds in their order;
    // nothing when nothing was skipped.
    std::optional<std::string> summary() const {
        const std::int64_t all = total();
        if (all == 0) {
            return std::nullopt;
        }
        std::string out = "Skipped " + counted(all, "likely secret") + ":";
        const char* separator = " ";
        for (SecretKind kind : allSecretKinds) {
            if (const std::int64_t n = count(kind); n > 0) {
                out += separator + counted(n, secretKindLabel(kind));
                separator = ", ";
            }
        }
        return out + ".";
    }

private:
    static std::string counted(std::int64_t n, std::string_view noun) {
        return std::to_string(n) + " " + std::string(noun) + (n == 1 ? "" : "s");
    }
    static std::size_t index(SecretKind kind) { return static_cast<std::size_t>(kind); }
    std::array<std::int64_t, allSecretKinds.size()> counts_{};
};

} // namespace marlune
