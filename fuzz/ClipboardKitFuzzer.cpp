// Feeds arbitrary clipboards to the capture decision and arbitrary texts to the secret
// detector. Input layout: one policy byte, then records of
//   [type selector: 1 byte][length: 2 bytes, little-endian][data]
// that become payloads; the selector's high bit starts a new item. The whole input is also
// classified as one text.

#include "ClipboardKit/CaptureGate.h"
#include "ClipboardKit/PasteboardClassifier.h"
#include "ClipboardKit/SecretDetector.h"

#include <array>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

constexpr std::array<const char*, 24> types = {
    "text/plain;charset=utf-8",
    "UTF8_STRING",
    "text/plain",
    "STRING",
    "TEXT",
    "NSStringPboardType",
    "text/html",
    "text/rtf",
    "application/rtf",
    "text/uri-list",
    "image/png",
    "image/jpeg",
    "image/tiff",
    "application/x-color",
    "TARGETS",
    "org.nspasteboard.source",
    "com.apple.pasteboard.promised",
    "text/plain;charset=iso-8859-1",
    "text/plain;charset=utf-16",
    "application/x-unknown",
    "org.nspasteboard.ConcealedType",
    "org.nspasteboard.TransientType",
    "x-kde-passwordManagerHint",
    "public.utf8-plain-text",
};

void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace marlune;
    if (size == 0) {
        return 0;
    }
    const SecretPolicy policy{(data[0] & 1U) != 0, (data[0] & 2U) != 0};

    const std::string_view whole(reinterpret_cast<const char*>(data), size);
    const auto kind = SecretDetector::classify(whole, policy);
    if (kind == SecretKind::oneTimeCode) {
        check(policy.skipOneTimeCodes);
    } else if (kind) {
        check(policy.skipLikelySecrets);
    }
    check(!SecretDetector::classify(whole, SecretPolicy{false, false}));

    std::vector<PasteboardSnapshot::Item> items(1);
    bool markerSeen = false;
    std::size_t pos = 1;
    while (pos + 3 <= size) {
        const std::uint8_t selector = data[pos];
        const std::size_t length = data[pos + 1] | (std::size_t{data[pos + 2]} << 8U);
        pos += 3;
        const std::size_t take = std::min(length, size - pos);
        if ((selector & 0x80U) != 0) {
            items.emplace_back();
        }
        const char* type = types[(selector & 0x7FU) % types.size()];
        markerSeen = markerSeen || PasteboardClassifier::isConcealedMarker(type);
        items.back().payloads.push_back(
            {type, std::vector<std::uint8_t>(data + pos, data + pos + take)});
        pos += take;
    }
    const auto snapshot = PasteboardSnapshot::fromItems(std::move(items));
    const auto decision = CaptureGate::decide(snapshot, policy);
    check(decision.isConcealed() == markerSeen);
    if (const auto* clip = decision.capturedClip()) {
        check(clip->contentHash.empty()); // the store fingerprints it under its key
        check(!clip->representations.empty());
        for (const auto& rep : clip->representations) {
            check(rep.text.has_value() != rep.data.has_value());
            check(!PasteboardClassifier::isNeverContent(rep.utType));
        }
    }
    (void)decision.importMessage();
    return 0;
}
