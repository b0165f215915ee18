// The read side of the clipboard history: "clip.list", "clip.get" and "clip.search".

#include "Marlune/CLIListener.h"
#include "Marlune/CLIRecordMapping.h"
#include "Marlune/CLIResolvers.h"
#include "MarluneCLIProtocol/CLICommandName.h"
#include "MarluneCLIProtocol/CLIErrorCode.h"
#include "MarluneCLIProtocol/ClipRecords.h"
#include "MarluneCLIProtocol/CommonRecords.h"
#include "MarluneCLIProtocol/Paging.h"
#include "MarluneCore/ClipStore.h"

namespace marlune {

namespace {

// Long enough to tell a flavour apart in a listing, short enough for a terminal line.
constexpr std::size_t textPreviewCharacters = 200;

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

ClipFilter filterFrom(const std::optional<std::string>& kind, bool pinnedOnly) {
    ClipFilter filter;
    filter.pinnedOnly = pinnedOnly;
    if (kind) {
        filter.kind = clipKindFromRaw(*kind);
        if (!filter.kind) {
            throw CLIError(CLIErrorCode::validation, "'" + *kind + "' is not a kind of clip.",
                           "Use text, richText, url, image, file or color.");
        }
    }
    return filter;
}

// `full`: the whole text of each textual flavour, as "clip.get" shows it.
ClipDTO toDTO(ClipStore& store, const Clip& clip, bool full) {
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
    for (const auto& rep : store.representations(clip.id)) {
        RepresentationDTO r;
        r.utType = rep.utTypeIdentifier;
        std::optional<std::string> text = rep.text;
        if (!text && rep.textBlob) {
            text = std::string(rep.textBlob->begin(), rep.textBlob->end());
        }
        r.hasText = text.has_value();
        if (text) {
            r.textPreview = utf8Prefix(*text, textPreviewCharacters);
            r.byteSize = static_cast<std::int64_t>(text->size());
            if (full) {
                r.text = *text;
            }
        } else if (rep.data) {
            r.byteSize = static_cast<std::int64_t>(rep.data->size());
        }
        if (!dto.bestText && text) {
            dto.bestText = *text;
        }
        dto.representations.push_back(std::move(r));
    }
    if (!full) {
        dto.bestText.reset();
    }
    for (const auto& [id, name] : store.pinboardsOf(clip.id)) {
        dto.pinboards.push_back({id.string(), name});
    }
    for (const auto& [id, name] : store.tagsOf(clip.id)) {
        dto.tags.push_back({id.string(), name});
    }
    return dto;
}

// A clip is named by its id, or by the start of its id (as a listing shows it).
Clip resolveClip(ClipStore& store, const std::string& ref) {
    CLIResolvers::requireRef(ref, "A clip ref is required.");
    if (auto id = Uuid::parse(ref)) {
        if (auto found = store.clip(*id); found && found->isLive()) {
            return *found;
        }
        throw CLIResolvers::notFound("clip", ref);
    }
    const auto ids = store.idsWithPrefix(ref, 2);
    if (ids.empty()) {
        throw CLIResolvers::notFound("clip", ref);
    }
    if (ids.size() > 1) {
        throw CLIResolvers::ambiguous("clip", ref, ids.size());
    }
    return *store.clip(ids.front());
}

ClipStore storeFor(CLICall& call) {
    return ClipStore(call.context(), ClipStoreSettings::read(call.settings()));
}

Page<ClipDTO> listClips(const ListArgs& args, CLICall& call) {
    if (args.groupRef || args.tagRef || args.pinboardRef || args.sourceAppBundleID ||
        args.favoriteOnly.value_or(false) || args.trashed.value_or(false) || args.sort ||
        args.order) {
        throw CLIError(CLIErrorCode::usage,
                       "clip list filters by text, kind and pin only in this version.",
                       "Drop the other options, or use `marlune clip search`.");
    }
    auto store = storeFor(call);
    const ClipFilter filter = filterFrom(args.kind, args.pinnedOnly.value_or(false));
    if (args.query) {
        std::vector<ClipDTO> items;
        for (const auto& match : store.searchAll(*args.query, filter)) {
            items.push_back(toDTO(store, match.clip, false));
        }
        return Page<ClipDTO>::slice(std::move(items), args.limit, args.offset);
    }
    // Without a text filter the page is read straight from the recency index.
    Page<ClipDTO> page;
    const std::int64_t total = store.count(filter);
    const std::int64_t offset = std::max<std::int64_t>(0, args.offset);
    if (args.limit > 0 && offset < total) {
        for (const auto& clip : store.recent(filter, static_cast<std::size_t>(args.limit),
                                             static_cast<std::size_t>(offset))) {
            page.items.push_back(toDTO(store, clip, false));
        }
    }
    page.page.limit = args.limit;
    page.page.offset = offset;
    page.page.total = total;
    if (args.limit > 0 && offset + args.limit < total) {
        page.page.nextOffset = offset + args.limit;
    }
    return page;
}

ClipDTO getClip(const GetArgs& args, CLICall& call) {
    if (args.by && *args.by != "id") {
        throw CLIError(CLIErrorCode::usage, "Clips are found by id only.",
                       "Pass the clip's id, or the start of it as `marlune clip list` shows it.");
    }
    auto store = storeFor(call);
    return toDTO(store, resolveClip(store, args.ref), true);
}

Page<ClipDTO> searchClips(const SearchArgs& args, CLICall& call) {
    if (args.semantic) {
        throw CLIError(CLIErrorCode::capability,
                       "Search by meaning is not available yet: on-device AI is not set up.",
                       "Search by text instead (without --semantic).");
    }
    if (args.query.empty()) {
        throw CLIError(CLIErrorCode::usage, "Give the text to search for.");
    }
    auto store = storeFor(call);
    std::vector<ClipDTO> items;
    for (auto& match : store.searchAll(args.query, filterFrom(args.kind, false))) {
        auto dto = toDTO(store, match.clip, false);
        dto.matchType = "substring";
        dto.matchedIn = match.matchedIn;
        items.push_back(std::move(dto));
    }
    return Page<ClipDTO>::slice(std::move(items), args.limit, args.offset);
}

} // namespace

void registerClipCommands(CLIListener& listener) {
    listener.addTyped<ListArgs>(std::string(CLICommandName::clipList), listClips);
    listener.addTyped<GetArgs>(std::string(CLICommandName::clipGet), getClip);
    listener.addTyped<SearchArgs>(std::string(CLICommandName::clipSearch), searchClips);
}

} // namespace marlune
