#include "MarluneCore/Uuid.h"

#include <openssl/rand.h>

#include <stdexcept>

namespace marlune {

Uuid Uuid::random() {
    Uuid id;
    if (RAND_bytes(id.bytes_.data(), static_cast<int>(id.bytes_.size())) != 1) {
        throw std::runtime_error("The system's random number generator failed.");
    }
    id.bytes_[6] = static_cast<std::uint8_t>((id.bytes_[6] & 0x0fU) | 0x40U);
    id.bytes_[8] = static_cast<std::uint8_t>((id.bytes_[8] & 0x3fU) | 0x80U);
    return id;
}

std::optional<Uuid> Uuid::parse(std::string_view text) {
    if (text.size() != 36) {
        return std::nullopt;
    }
    Uuid id;
    std::size_t byte = 0;
    for (std::size_t i = 0; i < text.size();) {
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (text[i] != '-') {
                return std::nullopt;
            }
            ++i;
            continue;
        }
        auto nibble = [](char c) -> int {
            if (c >= '0' && c <= '9') {
                return c - '0';
            }
            if (c >= 'a' && c <= 'f') {
                return c - 'a' + 10;
            }
            if (c >= 'A' && c <= 'F') {
                return c - 'A' + 10;
            }
            return -1;
        };
        const int hi = nibble(text[i]);
        const int lo = nibble(text[i + 1]);
        if (hi < 0 || lo < 0) {
            return std::nullopt;
        }
        id.bytes_[byte++] = static_cast<std::uint8_t>(hi * 16 + lo);
        i += 2;
    }
    return id;
}

std::string Uuid::string() const {
    static constexpr char hex[] = "0123456789ABCDEF";
    char text[36];
    std::size_t at = 0;
    for (std::size_t i = 0; i < bytes_.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) {
            text[at++] = '-';
        }
        text[at++] = hex[bytes_[i] >> 4U];
        text[at++] = hex[bytes_[i] & 0x0fU];
    }
    return std::string(text, sizeof text);
}

bool Uuid::isNil() const {
    for (auto b : bytes_) {
        if (b != 0) {
            return false;
        }
    }
    return true;
}

} // namespace marlune
