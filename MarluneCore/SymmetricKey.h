#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>

namespace marlune {

// A 256-bit AES key. Its bytes are wiped when the value dies, so copies may be made freely
// (each copy wipes its own bytes); comparison runs in constant time.
class SymmetricKey {
public:
    static constexpr std::size_t size = 32;

    static SymmetricKey random();
    // Exactly 32 bytes, or nothing.
    static std::optional<SymmetricKey> fromBytes(std::span<const std::uint8_t> bytes);

    SymmetricKey(const SymmetricKey&) = default;
    SymmetricKey& operator=(const SymmetricKey&) = default;
    ~SymmetricKey();

    std::span<const std::uint8_t, size> bytes() const { return bytes_; }

    friend bool operator==(const SymmetricKey& a, const SymmetricKey& b);

private:
    SymmetricKey() = default;
    std::array<std::uint8_t, size> bytes_{};
};

} // namespace marlune
