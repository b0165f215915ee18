#include "Marlune/ClipPasteboard.h"

#include "ClipboardKit/PasteboardClassifier.h"

#include <array>
#include <utility>

namespace marlune {

namespace {

using PC = PasteboardClassifier;

std::string_view shortNameType(std::string_view name) {
    static constexpr std::array<std::pair<std::string_view, std::string_view>, 9> names = {{
        {"text", PC::plainTextType},
        {"html", PC::htmlType},
        {"rtf", PC::rtfType},
        {"url", PC::urlType},
        {"file", PC::fileURLType},
        {"png", PC::pngType},
        {"jpeg", PC::jpegType},
        {"tiff", PC::tiffType},
        {"color", PC::colorType},
    }};
    for (const auto& [shortName, type] : names) {
        if (shortName == name) {
            return type;
        }
    }
    return {};
}

std::vector<std::uint8_t> bytesOf(const Representation& rep) {
    if (rep.text) {
        return {rep.text->begin(), rep.text->end()};
    }
    if (rep.textBlob) {
        return *rep.textBlob;
    }
    if (rep.data) {
        return *rep.data;
    }
    return {};
}

} // namespace

PasteboardSnapshot ClipPasteboard::snapshot(const std::vector<Representation>& representations) {
    PasteboardSnapshot::Item item;
    for (const auto& rep : representations) {
        const auto mime = PC::mimeType(rep.utTypeIdentifier);
        if (mime.empty()) {
            continue;
        }
        item.payloads.push_back({std::string(mime), bytesOf(rep)});
    }
    if (item.payloads.empty()) {
        return {};
    }
    return PasteboardSnapshot::fromItems({std::move(item)});
}

std::optional<std::string> ClipPasteboard::textOf(const Representation& representation) {
    if (representation.text) {
        return representation.text;
    }
    if (representation.textBlob) {
        return std::string(representation.textBlob->begin(), representation.textBlob->end());
    }
    if (representation.data && PC::isTextual(representation.utTypeIdentifier)) {
        return std::string(representation.data->begin(), representation.data->end());
    }
    return std::nullopt;
}

std::optional<std::string>
ClipPasteboard::bestText(const std::vector<Representation>& representations) {
    for (const auto type :
         {PC::plainTextType, PC::urlType, PC::fileURLType, PC::htmlType, PC::rtfType}) {
        for (const auto& rep : representations) {
            if (rep.utTypeIdentifier == type) {
                if (auto text = textOf(rep)) {
                    return text;
                }
            }
        }
    }
    for (const auto& rep : representations) {
        if (rep.text || rep.textBlob) {
            return textOf(rep);
        }
    }
    return std::nullopt;
}

const Representation* ClipPasteboard::find(const std::vector<Representation>& representations,
                                           std::string_view name) {
    const auto shortType = shortNameType(name);
    for (const auto& rep : representations) {
        if (rep.utTypeIdentifier == name || rep.utTypeIdentifier == shortType ||
            (!PC::mimeType(rep.utTypeIdentifier).empty() &&
             PC::mimeType(rep.utTypeIdentifier) == name)) {
            return &rep;
        }
    }
    return nullptr;
}

} // namespace marlune
