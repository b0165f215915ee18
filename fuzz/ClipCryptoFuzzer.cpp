// Stored values come from the library file and from other devices: reading them must never
// crash, and the base64 decoder must accept exactly one text per byte string.
#include "MarluneCore/Base64.h"
#include "MarluneCore/ClipCrypto.h"

#include <cstdlib>
#include <string>
#include <string_view>

using namespace marlune;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const ClipCrypto crypto(*SymmetricKey::fromBytes(Bytes(32, 0x5A)));
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const std::span<const std::uint8_t> bytes(data, size);

    if (const auto decoded = base64Decode(text); decoded && base64Encode(*decoded) != text) {
        std::abort();
    }
    std::string scanned;
    const auto read = crypto.readText(text);
    if (crypto.readTextInto(text, scanned) != read.has_value() || (read && *read != scanned)) {
        std::abort();
    }
    (void)crypto.readBytes(bytes);
    (void)crypto.openBytes(bytes);
    if (size > 0 &&
        crypto.openBytes(crypto.sealBytes(bytes)) != Bytes(bytes.begin(), bytes.end())) {
        std::abort();
    }
    return 0;
}
