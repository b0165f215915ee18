#include "LibraryImport/StableID.h"

#include <array>
#include <cstdint>
#include <openssl/sha.h>
#include <string>

namespace marlune {

namespace {

// The URL namespace of RFC 4122: the names hashed under it are our own dotted namespaces
// followed by the source's identifier, so they can't meet another program's names.
constexpr std::array<std::uint8_t, 16> kNamespace = {
    0x6b, 0xa7, 0xb8, 0x11, 0x9d, 0xad, 0x11, 0xd1, 0x80, 0xb4, 0x00, 0xc0, 0x4f, 0xd4, 0x30, 0xc8};

} // namespace

std::string StableID::make(std::string_view nameSpace, std::string_view sourceID) {
    std::string input(kNamespace.begin(), kNamespace.end());
    input.append(nameSpace);
    input.append(sourceID);
    std::array<unsigned char, SHA_DIGEST_LENGTH> digest{};
    SHA1(reinterpret_cast<const unsigned char*>(input.data()), input.size(), digest.data());
    digest[6] = static_cast<unsigned char>((digest[6] & 0x0F) | 0x50); // version 5
    digest[8] = static_cast<unsigned char>((digest[8] & 0x3F) | 0x80); // RFC 4122 variant
    static constexpr char hex[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(36);
    for (std::size_t i = 0; i < 16; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) {
            out.push_back('-');
        }
        out.push_back(hex[digest[i] >> 4U]);
        out.push_back(hex[digest[i] & 0x0FU]);
    }
    return out;
}

} // namespace marlune
