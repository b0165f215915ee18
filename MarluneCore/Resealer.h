#pragma once

#include "MarluneCore/ClipCrypto.h"
#include "MarluneCore/SymmetricKey.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace marlune {

// Moves values sealed under a retired content key to the current key, one stored value at a
// time. Each answer is the new stored value, or nothing when the value needs no change: it
// already opens with the current key, it is not sealed content, or no key opens it (a damaged
// value is left as it is rather than replaced by something else).
// Not thread-safe (see ClipCrypto).
class Resealer {
public:
    Resealer(std::vector<SymmetricKey> retired, SymmetricKey current);

    std::optional<std::string> resealText(std::string_view stored) const;
    std::optional<Bytes> resealBytes(std::span<const std::uint8_t> stored) const;
    // The current key alone.
    const ClipCrypto& sealer() const { return current_; }

private:
    ClipCrypto current_;
    ClipCrypto retired_;
};

} // namespace marlune
