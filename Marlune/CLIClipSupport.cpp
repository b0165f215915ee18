#include "Marlune/CLIClipSupport.h"

#include "ExpansionEngine/Graphemes.h"
#include "ExpansionEngine/TextTransform.h"
#include "Marlune/CLIRecordMapping.h"
#include "Marlune/CLIResolvers.h"
#include "Marlune/ClipPasteboard.h"
#include "Marlune/DesktopActions.h"
#include "Marlune/PasteStackService.h"
#include "MarluneCLIProtocol/CLIBase64.h"
#include "MarluneCLIProtocol/CLIErrorCode.h"
#include "MarluneCore/ClipQuery.h"
#include "MarluneCore/PinboardStore.h"
#include "MarluneCore/UsageStats.h"

#include <functional>

namespace marlune::CLIClipSupport {

namespace {

// Long enough to tell a flavour apart in a listing, short enough for a terminal line.
constexpr std::size_t textPreviewCharacters = 200;

// The plain size of a stored byte field: a sealed box carries "MRk1", a 12-byte nonce and a
// 16-byte tag around the content.
constexpr std::string_view plainLength =
    "CASE WHEN substr(bytes, 1, 4) = X'4D526B31' THEN length(bytes) - 32 ELSE length(bytes) END";

} // namespace

std::string utf8Prefix(const std::string& text, std::size_t characters) {
    std::size_t i = 0;
    std::size_t count = 0;
    while (i < text.size() && count < characters) {
        const auto lead = static_cast<unsigned char>(text[i]);
        i += lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        ++count;
    }
    return text.substr(0, std::min(i, text.size()));
}

ClipStore clipStore(CLICall& call) {
    return ClipStore(call.context(), ClipStoreSettings::read(call.settings()));
}

Clip resolveClip(ModelContext& context, std::string_view ref, bool trashed) {
    CLIResolvers::requireRef(ref, "A clip ref is required.");
    ClipStore store(context, ClipStoreSettings{});
    if (auto id = Uuid::parse(ref)) {
        if (auto found = store.clip(*id); found && found->isLive() != trashed) {
            return *found;
        }
        throw CLIResolvers::notFound("clip", ref);
    }
    const auto ids = ClipQueries(context).idsWithPrefix(ref, trashed, 2);
    if (ids.empty()) {
        throw CLIResolvers::notFound("clip", ref);
    }
    if (ids.size() > 1) {
        throw CLIResolvers::ambiguous("clip", ref, ids.size());
    }
    return *store.clip(ids.front());
}

Pinboard resolvePinboard(ModelContext& context, std::string_view ref,
                         const std::optional<std::string>& by) {
    CLIResolvers::requireRef(ref, "A pinboard reference is required.");
    if (by && *by != "name" && *by != "id") {
        throw CLIError(CLIErrorCode::usage, "'" + *by + "' is not a way to name a pinboard.",
                       "Use --by name or --by id.");
    }
    const auto pinboards = PinboardStore(context).list();
    const auto id = Uuid::parse(ref);
    const std::string folded = CLIResolvers::foldCase(ref);
    std::vector<std::function<bool(const Pinboard&)>> steps;
    steps.emplace_back([&](const Pinboard& p) { return id && p.id == *id; });
    if (!by || *by == "name") {
        steps.emplace_back(
            [&](const Pinboard& p) { return CLIResolvers::foldCase(p.name) == folded; });
        steps.emplace_back([&](const Pinboard& p) {
            return CLIResolvers::foldCase(p.name).find(folded) != std::string::npos;
        });
    }
    for (const auto& step : steps) {
        std::vector<const Pinboard*> matches;
        for (const auto& p : pinboards) {
            if (step(p)) {
                matches.push_back(&p);
            }
        }
        if (matches.size() == 1) {
            return *matches.front();
        }
        if (matches.size() > 1) {
            throw CLIResolvers::ambiguous("pinboard", ref, matches.size());
        }
    }
    throw CLIResolvers::notFound("pinboard", ref);
}

PinboardDTO pinboardDTO(ModelContext& context, const Pinboard& pinboard) {
    PinboardDTO dto;
    dto.id = pinboard.id.string();
    dto.name = pinboard.name;
    dto.iconSymbol = pinboard.iconSymbol;
    dto.colorRole = pinboard.colorRole;
    dto.sortIndex = pinboard.sortIndex;
    dto.clipCount = PinboardStore(context).clipCount(pinboard.id);
    dto.createdAt = CLIRecordMapping::date(pinboard.createdAt);
    return dto;
}

ClipDTO ClipMapper::piece(const Clip& clip, std::int64_t index, std::int64_t offset) {
    auto dto = map(clip, ClipDetail::listing);
    const auto reps = ClipStore(context_, ClipStoreSettings{}).representations(clip.id);
    if (index < 0 || index >= static_cast<std::int64_t>(reps.size())) {
        throw CLIError(CLIErrorCode::notFound,
                       "The clip has " + std::to_string(reps.size()) + " flavours; there is no " +
                           "flavour " + std::to_string(index) + ".",
                       "Count from 0, in the order `marlune clip get` lists them.");
    }
    const auto& rep = reps[static_cast<std::size_t>(index)];
    std::string_view bytes;
    if (rep.text) {
        bytes = *rep.text;
    } else if (rep.textBlob) {
        bytes = {reinterpret_cast<const char*>(rep.textBlob->data()), rep.textBlob->size()};
    } else if (rep.data) {
        bytes = {reinterpret_cast<const char*>(rep.data->data()), rep.data->size()};
    }
    const auto size = static_cast<std::int64_t>(bytes.size());
    if (offset < 0 || offset > size) {
        throw CLIError(CLIErrorCode::validation, "The flavour has " + std::to_string(size) +
                                                     " bytes; a piece cannot " + "start at byte " +
                                                     std::to_string(offset) + ".");
    }
    RepresentationDTO r = dto.representations.at(static_cast<std::size_t>(index));
    r.byteSize = size;
    r.dataBase64 = CLIBase64::encode(
        bytes.substr(static_cast<std::size_t>(offset), static_cast<std::size_t>(clipPieceBytes)));
    dto.representations = {std::move(r)};
    return dto;
}

ClipDTO ClipMapper::map(const Clip& clip, ClipDetail detail) {
    auto& db = context_.db();
    const auto& crypto = context_.crypto();
    ClipDTO dto;
    dto.id = clip.id.string();
    dto.primaryKind = std::string(rawValue(clip.primaryKind));
    dto.previewText = clip.previewText;
    dto.contentHash = clip.contentHash;
    if (clip.sourceAppBundleID || clip.sourceAppName) {
        dto.sourceApp = SourceAppDTO{clip.sourceAppName, clip.sourceAppBundleID};
    }
    dto.createdAt = CLIRecordMapping::date(clip.createdAt);
    dto.isPinned = clip.isPinned;
    dto.recopyCount = clip.recopyCount;
    dto.promotionHandled = clip.promotionHandled;

    if (detail == ClipDetail::listing) {
        auto& reps = db.cached(
            "SELECT r.utTypeIdentifier, r.text, "
            "(SELECT " +
            std::string(plainLength) +
            " FROM RepresentationData WHERE representation_id = r.id AND field = 'data'), "
            "(SELECT " +
            std::string(plainLength) +
            " FROM RepresentationData WHERE representation_id = r.id AND field = 'textBlob') "
            "FROM Representation r WHERE r.clip_id = ?1 ORDER BY r.position");
        reps.bind(1, dto.id);
        while (reps.step()) {
            RepresentationDTO r;
            r.utType = reps.text(0);
            if (!reps.isNull(1)) {
                const auto text = crypto.readText(reps.textView(1)).value_or(std::string());
                r.hasText = true;
                r.textPreview = utf8Prefix(text, textPreviewCharacters);
                r.byteSize = static_cast<std::int64_t>(text.size());
            } else if (!reps.isNull(3)) {
                r.hasText = true;
                r.byteSize = reps.int64(3);
            } else if (!reps.isNull(2)) {
                r.byteSize = reps.int64(2);
            }
            dto.representations.push_back(std::move(r));
        }
        reps.reset();
    } else {
        const auto reps = ClipStore(context_, ClipStoreSettings{}).representations(clip.id);
        // Flavours beyond what one reply can carry are left out whole (their size still said);
        // the tool fetches them in pieces.
        std::int64_t inlineLeft = clipInlineBytes;
        for (const auto& rep : reps) {
            RepresentationDTO r;
            r.utType = rep.utTypeIdentifier;
            std::optional<std::string> text = rep.text;
            if (!text && rep.textBlob) {
                text = std::string(rep.textBlob->begin(), rep.textBlob->end());
            }
            r.hasText = text.has_value();
            if (text) {
                const auto size = static_cast<std::int64_t>(text->size());
                r.textPreview = utf8Prefix(*text, textPreviewCharacters);
                r.byteSize = size;
                if (size <= inlineLeft) {
                    r.text = *text;
                    inlineLeft -= size;
                }
            } else if (rep.data) {
                const auto size = static_cast<std::int64_t>(rep.data->size());
                r.byteSize = size;
                if (detail == ClipDetail::raw && size <= inlineLeft) {
                    r.dataBase64 = CLIBase64::encode(std::string_view(
                        reinterpret_cast<const char*>(rep.data->data()), rep.data->size()));
                    inlineLeft -= size;
                }
            }
            dto.representations.push_back(std::move(r));
        }
        dto.bestText = ClipPasteboard::bestText(reps);
        if (dto.bestText && static_cast<std::int64_t>(dto.bestText->size()) > clipInlineBytes) {
            dto.bestText.reset();
        }
    }

    auto& pinboards = db.cached(
        "SELECT p.id, p.name FROM ClipPinboard cp JOIN Pinboard p ON p.id = cp.pinboard_id "
        "WHERE cp.clip_id = ?1 ORDER BY p.sortIndex, p.name");
    pinboards.bind(1, dto.id);
    while (pinboards.step()) {
        dto.pinboards.push_back({pinboards.text(0), pinboards.text(1)});
    }
    pinboards.reset();
    auto& tags = db.cached("SELECT t.id, t.name FROM ClipTag ct JOIN Tag t ON t.id = ct.tag_id "
                           "WHERE ct.clip_id = ?1 ORDER BY t.name COLLATE NOCASE");
    tags.bind(1, dto.id);
    while (tags.step()) {
        dto.tags.push_back({tags.text(0), tags.text(1)});
    }
    tags.reset();
    return dto;
}

DesktopActions& requireDesktop(CLICall& call, std::string_view what) {
    if (call.environment().desktop != nullptr) {
        return *call.environment().desktop;
    }
    const std::string verb(what);
    if (call.environment().headless) {
        throw CLIError(CLIErrorCode::capability,
                       "Can't " + verb +
                           ": Marlune is running without a display, so there is no clipboard "
                           "or application to " +
                           verb + " into.",
                       "Start Marlune in a desktop session to " + verb + ".");
    }
    throw CLIError(CLIErrorCode::capability,
                   "Can't " + verb + ": the clipboard and paste services are not running.",
                   "Quit and reopen Marlune in an X11 session.");
}

PasteStackModel& pasteStack(CLICall& call) {
    auto& environment = call.environment();
    if (!environment.pasteStack) {
        environment.pasteStack =
            PasteStackLibrary::open(environment.libraryDirectory, call.context());
    }
    return *environment.pasteStack;
}

UsageStats& usageStats(CLICall& call) {
    auto& environment = call.environment();
    if (!environment.usageStats) {
        environment.usageStats =
            std::make_shared<UsageStats>(environment.libraryDirectory / UsageStats::fileName);
    }
    return *environment.usageStats;
}

void recordExpansion(CLICall& call, std::string_view typed, std::string_view text) {
    usageStats(call).record(call.now(), Graphemes::count(text) - Graphemes::count(typed));
}

CLIError stackEmpty() {
    return CLIError(CLIErrorCode::notFound, "The Paste Stack is empty.",
                    "Queue items with `marlune stack push <ref…>`.");
}

std::string transformed(const std::optional<std::string>& transform, std::string text) {
    if (!transform) {
        return text;
    }
    const auto parsed = textTransformFromRaw(*transform);
    if (!parsed) {
        throw CLIError(CLIErrorCode::validation, "'" + *transform + "' is not a text transform.",
                       "Use pretty-json, minify-json, uppercase, lowercase, title-case, "
                       "snake-case, kebab-case, slug, single-line, base64, base64-decode, "
                       "strip-tracking or plain.");
    }
    return applyTextTransform(*parsed, text);
}

} // namespace marlune::CLIClipSupport
