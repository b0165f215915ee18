#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace marlune {

// A record identity: a random (version 4) UUID, written in the upper-case canonical form
// 8-4-4-4-12 and read back in either case.
class Uuid {
public:
    Uuid() = default;
    static Uuid random();
    static std::optional<Uuid> parse(std::string_view text);

    std::string string() const;
    bool isNil() const;
    const std::array<std::uint8_t, 16>& bytes() const { return bytes_; }

    friend bool operator==(const Uuid&, const Uuid&) = default;
    friend auto operator<=>(const Uuid&, const Uuid&) = default;

private:
    std::array<std::uint8_t, 16> bytes_{};
};

} // namespace marlune

template <> struct std::hash<marlune::Uuid> {
    std::size_t operator()(const marlune::Uuid& id) const noexcept {
        std::size_t h = 0;
        for (auto b : id.bytes()) {
            h = h * 131 + b;
        }
        return h;
    }
};
