#include "Platform/SelectionCapture.h"

#include "ClipboardKit/PasteboardClassifier.h"
#include "MarluneCore/ContentLimits.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <string>
#include <utility>

namespace marlune {

namespace {

using Outcome = ClipboardCaptureRead::Outcome;
using TransferOutcome = SelectionTransfer::Outcome;

std::string lowercase(std::string_view text) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return out;
}

// Targets that carry one content in different encodings share a group and are tried best
// first; the first that answers with data stands for the group.
struct Candidate {
    const SelectionTarget* target = nullptr;
    std::size_t limit = 0;
    int rank = 0;
    std::size_t position = 0; // in the owner's order
};

std::string groupOf(std::string_view type) {
    if (textTargetRank(type)) {
        return "text";
    }
    const auto uniform = PasteboardClassifier::uniformType(type, {});
    if (uniform == PasteboardClassifier::pngType || uniform == PasteboardClassifier::jpegType ||
        uniform == PasteboardClassifier::tiffType) {
        return "image";
    }
    // A link list's kind depends on its data; every other type by what it is stored as.
    return uniform ? std::string(*uniform) : lowercase(type);
}

int rankIn(const std::string& group, std::string_view type, std::size_t position) {
    if (group == "text") {
        return *textTargetRank(type);
    }
    if (group == "image") {
        // The history keeps one image, preferring PNG, then JPEG.
        const auto uniform = PasteboardClassifier::uniformType(type, {});
        return uniform == PasteboardClassifier::pngType    ? 0
               : uniform == PasteboardClassifier::jpegType ? 1
                                                           : 2;
    }
    return static_cast<int>(position);
}

std::vector<std::uint8_t> latin1ToUtf8(const std::vector<std::uint8_t>& latin1) {
    std::vector<std::uint8_t> utf8;
    utf8.reserve(latin1.size() * 2);
    for (const std::uint8_t byte : latin1) {
        if (byte < 0x80) {
            utf8.push_back(byte);
        } else {
            utf8.push_back(static_cast<std::uint8_t>(0xC0 | (byte >> 6)));
            utf8.push_back(static_cast<std::uint8_t>(0x80 | (byte & 0x3F)));
        }
    }
    return utf8;
}

SelectionCapture finished(Outcome outcome, std::uint64_t owner) {
    SelectionCapture capture;
    capture.read.outcome = outcome;
    capture.read.owner = owner;
    return capture;
}

} // namespace

bool isLatin1TextTarget(std::string_view type) {
    const std::string lower = lowercase(type);
    return type == "STRING" || lower.find("charset=iso-8859-1") != std::string::npos ||
           lower.find("charset=latin1") != std::string::npos;
}

std::optional<int> textTargetRank(std::string_view type) {
    const std::string lower = lowercase(type);
    if (lower == "text/plain;charset=utf-8") {
        return 0;
    }
    if (type == "UTF8_STRING") {
        return 1;
    }
    if (lower == "text/plain") {
        return 2;
    }
    if (PasteboardClassifier::uniformType(type, {}) != PasteboardClassifier::plainTextType) {
        return std::nullopt;
    }
    return isLatin1TextTarget(type) ? 4 : 3;
}

SelectionCapture captureSelection(SelectionSource& source, const SelectionCaptureRequest& request) {
    const std::uint32_t owner = source.owner(request.selection);
    if (owner == 0) {
        return finished(Outcome::read, 0); // nobody offers anything
    }
    if (std::find(request.skipOwners.begin(), request.skipOwners.end(), owner) !=
        request.skipOwners.end()) {
        return finished(Outcome::skipped, owner);
    }
    if (request.heldHere && request.heldHere(owner)) {
        SelectionCapture capture = finished(Outcome::read, owner);
        capture.heldHere = true;
        return capture;
    }
    if (source.now() >= request.deadline) {
        return finished(Outcome::timedOut, owner);
    }
    const auto listed = source.targets(request.selection, request.deadline);
    if (const auto* failure = std::get_if<TransferOutcome>(&listed)) {
        switch (*failure) {
        case TransferOutcome::timedOut:
            return finished(Outcome::timedOut, owner);
        case TransferOutcome::broken:
            return finished(Outcome::failed, owner);
        case TransferOutcome::data:
        case TransferOutcome::refused:
        case TransferOutcome::tooLarge:
            break;
        }
        return finished(Outcome::read, owner); // an owner that will not say what it holds
    }
    const auto& targets = std::get<std::vector<SelectionTarget>>(listed);

    PasteboardSnapshot::Item markers;
    for (const SelectionTarget& target : targets) {
        if (PasteboardClassifier::isConcealedMarker(target.name)) {
            markers.payloads.push_back({target.name, {}});
        }
    }
    if (!markers.payloads.empty()) {
        SelectionCapture capture = finished(Outcome::read, owner);
        capture.read.snapshot = PasteboardSnapshot::fromItems({std::move(markers)});
        return capture;
    }

    // Groups in the order the owner first names them.
    std::vector<std::pair<std::string, std::vector<Candidate>>> groups;
    for (std::size_t i = 0; i < targets.size(); ++i) {
        const std::size_t cap = std::min<std::size_t>(
            PasteboardClassifier::sizeCap(targets[i].name), ContentLimits::clipFlavourBytes);
        if (cap == 0) {
            continue; // a type the history never keeps
        }
        std::string group = groupOf(targets[i].name);
        auto found = std::find_if(groups.begin(), groups.end(),
                                  [&](const auto& g) { return g.first == group; });
        if (found == groups.end()) {
            groups.emplace_back(group, std::vector<Candidate>{});
            found = std::prev(groups.end());
        }
        found->second.push_back({&targets[i], cap, rankIn(group, targets[i].name, i), i});
    }

    SelectionCapture capture = finished(Outcome::read, owner);
    std::vector<std::pair<std::size_t, PasteboardSnapshot::Payload>> payloads;
    for (auto& [group, candidates] : groups) {
        const std::size_t position = candidates.front().position;
        std::stable_sort(candidates.begin(), candidates.end(),
                         [](const Candidate& a, const Candidate& b) { return a.rank < b.rank; });
        for (const Candidate& candidate : candidates) {
            if (source.now() >= request.deadline) {
                return finished(Outcome::timedOut, owner);
            }
            SelectionTransfer transfer = source.fetch(request.selection, candidate.target->atom,
                                                      candidate.limit, request.deadline);
            if (transfer.outcome == TransferOutcome::timedOut) {
                return finished(Outcome::timedOut, owner);
            }
            if (transfer.outcome == TransferOutcome::broken) {
                return finished(Outcome::failed, owner);
            }
            if (transfer.outcome == TransferOutcome::tooLarge) {
                capture.read.leftOut.push_back(
                    {candidate.target->name,
                     std::max<std::uint64_t>(transfer.size, candidate.limit + 1), candidate.limit});
                continue;
            }
            if (transfer.outcome == TransferOutcome::data && !transfer.bytes.empty()) {
                if (isLatin1TextTarget(candidate.target->name)) {
                    // An owner that offers only Latin-1 (an old toolkit): kept as the UTF-8
                    // text everything else in the history is.
                    payloads.emplace_back(
                        position,
                        PasteboardSnapshot::Payload{"UTF8_STRING", latin1ToUtf8(transfer.bytes)});
                    break;
                }
                payloads.emplace_back(
                    position,
                    PasteboardSnapshot::Payload{candidate.target->name, std::move(transfer.bytes)});
                break;
            }
        }
    }
    // Requests answered by a new owner would mix two copies.
    if (source.owner(request.selection) != owner) {
        return finished(Outcome::changed, owner);
    }
    if (payloads.empty()) {
        return capture;
    }
    std::stable_sort(payloads.begin(), payloads.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    PasteboardSnapshot::Item item;
    for (auto& [position, payload] : payloads) {
        item.payloads.push_back(std::move(payload));
    }
    capture.read.snapshot = PasteboardSnapshot::fromItems({std::move(item)});
    return capture;
}

} // namespace marlune
