// The clipboard history on the command line: listing, reading and searching clips, copying
// and pasting them, pinning, deleting, promoting them to snippets, and purging the history.

#include "Marlune/CLIClipSupport.h"
#include "Marlune/CLIListener.h"
#include "Marlune/CLIRecordMapping.h"
#include "Marlune/CLIResolvers.h"
#include "Marlune/ClipPasteboard.h"
#include "Marlune/DesktopActions.h"
#include "MarluneCLIProtocol/CLICommandName.h"
#include "MarluneCLIProtocol/CLIDateFormat.h"
#include "MarluneCLIProtocol/CLIErrorCode.h"
#include "MarluneCLIProtocol/ClipRecords.h"
#include "MarluneCLIProtocol/CommonRecords.h"
#include "MarluneCLIProtocol/Paging.h"
#include "MarluneCLIProtocol/SnippetRecords.h"
#include "MarluneCore/BatchActions.h"
#include "MarluneCore/ClipQuery.h"
#include "MarluneCore/ClipStore.h"
#include "MarluneCore/SnippetStore.h"

#include <algorithm>
#include <charconv>

namespace marlune {

namespace {

using namespace CLIClipSupport;

std::optional<ClipKind> kindArg(const std::optional<std::string>& kind) {
    if (!kind) {
        return std::nullopt;
    }
    if (auto parsed = clipKindFromRaw(*kind)) {
        return parsed;
    }
    throw CLIError(CLIErrorCode::validation, "'" + *kind + "' is not a kind of clip.",
                   "Use text, richText, url, image, file or color.");
}

ClipQuery queryFrom(const ListArgs& args, ModelContext& context) {
    if (args.groupRef) {
        throw CLIError(CLIErrorCode::usage, "Clips are not in groups; groups hold snippets.",
                       "Filter clips with --tag or --pinboard instead.");
    }
    if (args.favoriteOnly.value_or(false)) {
        throw CLIError(CLIErrorCode::usage, "Clips are not marked as favourites.",
                       "Use --pinned for the clips you keep.");
    }
    ClipQuery query;
    query.kind = kindArg(args.kind);
    query.pinnedOnly = args.pinnedOnly.value_or(false);
    query.trashed = args.trashed.value_or(false);
    if (args.tagRef) {
        query.tagID = CLIResolvers::tag(context, *args.tagRef).id;
    }
    if (args.pinboardRef) {
        query.pinboardID = resolvePinboard(context, *args.pinboardRef).id;
    }
    if (args.sourceAppBundleID) {
        query.sourceAppBundleID = args.sourceAppBundleID;
    }
    const std::string sort = args.sort.value_or("recent");
    if (sort == "recent") {
        query.sort = ClipSort::recent;
    } else if (sort == "created") {
        query.sort = ClipSort::created;
    } else if (sort == "mostRecopied") {
        query.sort = ClipSort::mostRecopied;
    } else {
        throw CLIError(CLIErrorCode::usage, "'" + sort + "' is not a way to sort clips.",
                       "Use recent, created or mostRecopied.");
    }
    if (args.order && *args.order != "asc" && *args.order != "desc") {
        throw CLIError(CLIErrorCode::usage, "'" + *args.order + "' is not an order.",
                       "Use asc or desc.");
    }
    query.ascending = args.order.value_or("desc") == "asc";
    return query;
}

std::size_t sizeArg(std::int64_t value) {
    return static_cast<std::size_t>(std::max<std::int64_t>(0, value));
}

Page<ClipDTO> searchPage(ModelContext& context, std::string_view needle, const ClipQuery& query,
                         std::int64_t limit, std::int64_t offset, bool describeMatch) {
    const auto found = ClipQueries(context).search(needle, query, sizeArg(limit), sizeArg(offset));
    Page<ClipDTO> page;
    page.page = PageInfo::of(found.total, limit, offset);
    ClipMapper mapper(context);
    for (const auto& hit : found.hits) {
        auto dto = mapper.map(hit.clip, ClipDetail::listing);
        dto.matchedIn = hit.matchedIn;
        if (describeMatch) {
            dto.matchType = hit.matchType;
            dto.score = std::round(hit.score * 1000.0) / 1000.0;
        }
        page.items.push_back(std::move(dto));
    }
    return page;
}

Page<ClipDTO> listClips(const ListArgs& args, CLICall& call) {
    auto& context = call.context();
    const ClipQuery query = queryFrom(args, context);
    if (args.query) {
        return searchPage(context, *args.query, query, args.limit, args.offset, false);
    }
    ClipQueries queries(context);
    Page<ClipDTO> page;
    page.page = PageInfo::of(queries.count(query), args.limit, args.offset);
    if (args.limit > 0 && page.page.offset < page.page.total) {
        ClipMapper mapper(context);
        for (const auto& clip : queries.page(query, sizeArg(args.limit), sizeArg(args.offset))) {
            page.items.push_back(mapper.map(clip, ClipDetail::listing));
        }
    }
    return page;
}

void refuseBy(const std::optional<std::string>& by) {
    if (by && *by != "id") {
        throw CLIError(CLIErrorCode::usage, "Clips are found by id only.",
                       "Pass the clip's id, or the start of it as `marlune clip list` shows it.");
    }
}

ClipDTO getClip(const GetArgs& args, CLICall& call) {
    refuseBy(args.by);
    auto& context = call.context();
    const auto clip = resolveClip(context, args.ref);
    if (args.representation) {
        return ClipMapper(context).piece(clip, *args.representation, args.byteOffset.value_or(0));
    }
    return ClipMapper(context).map(clip, args.raw ? ClipDetail::raw : ClipDetail::full);
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
    ClipQuery query;
    query.kind = kindArg(args.kind);
    return searchPage(call.context(), args.query, query, args.limit, args.offset, true);
}

// --- copy and paste -----------------------------------------------------------------------

// What one clip puts on the clipboard: every flavour, or the one asked for, as is or with its
// text transformed.
struct Payload {
    PasteboardSnapshot pasteboard;
    std::optional<std::string> text;
};

Payload payloadOf(CLICall& call, const Clip& clip, const std::optional<std::string>& flavour,
                  const std::optional<std::string>& transform) {
    const auto reps = clipStore(call).representations(clip.id);
    std::vector<Representation> chosen = reps;
    if (flavour) {
        const auto* rep = ClipPasteboard::find(reps, *flavour);
        if (rep == nullptr) {
            std::string offered;
            for (const auto& r : reps) {
                offered += (offered.empty() ? "" : ", ") + r.utTypeIdentifier;
            }
            throw CLIError(CLIErrorCode::notFound, "The clip has no '" + *flavour + "' flavour.",
                           "It has: " + offered + ".");
        }
        chosen = {*rep};
    }
    Payload payload;
    payload.text =
        flavour ? ClipPasteboard::textOf(chosen.front()) : ClipPasteboard::bestText(reps);
    if (transform) {
        if (!payload.text) {
            throw CLIError(CLIErrorCode::validation,
                           "Only text can be transformed, and this clip has none.",
                           "Copy it without --transform.");
        }
        payload.text = transformed(transform, *payload.text);
        // The transformed text replaces every flavour: the others would say something else.
        Representation plain;
        plain.utTypeIdentifier =
            flavour ? chosen.front().utTypeIdentifier : std::string("public.utf8-plain-text");
        plain.text = payload.text;
        chosen = {plain};
    }
    payload.pasteboard = ClipPasteboard::snapshot(chosen);
    if (payload.pasteboard.empty()) {
        throw CLIError(CLIErrorCode::validation, "This clip has nothing the clipboard can take.");
    }
    return payload;
}

// A used clip comes back to the top of the history, as a copy of it would.
void markUsed(CLICall& call, const Clip& clip) {
    call.context()
        .db()
        .cached("UPDATE Clip SET lastUsedAt = ?2 WHERE id = ?1")
        .bind(1, clip.id.string())
        .bind(2, toStorage(call.now()))
        .run();
}

std::optional<PasteTargetDTO> activateTarget(DesktopActions& desktop,
                                             const std::optional<std::string>& into) {
    if (!into) {
        return std::nullopt;
    }
    if (auto missing = desktop.activate(*into)) {
        throw CLIError(CLIErrorCode::notFound, *missing,
                       "Open the application first, or leave out --into to paste into the "
                       "frontmost one.");
    }
    return PasteTargetDTO{*into, std::nullopt};
}

ClipActionResultDTO copyClip(const ClipCopyArgs& args, CLICall& call) {
    refuseBy(args.by);
    if (args.into) {
        throw CLIError(CLIErrorCode::usage, "--into is for pasting.",
                       "Use `marlune clip paste --into APP`.");
    }
    const Clip clip = resolveClip(call.context(), args.ref);
    const auto payload = payloadOf(call, clip, args.representation, args.transform);
    ClipActionResultDTO result;
    result.clipId = clip.id.string();
    result.representation = args.representation;
    result.transform = args.transform;
    result.bytes = payload.pasteboard.totalBytes;
    result.text = payload.text;
    if (auto* desktop = call.environment().desktop) {
        desktop->copyToClipboard(payload.pasteboard);
        markUsed(call, clip);
        result.copied = true;
    } else {
        // Scripts still get the text to use themselves.
        call.warn("W_NO_CLIPBOARD", "Marlune is running without a display, so nothing was put "
                                    "on the clipboard.");
    }
    return result;
}

ClipActionResultDTO pasteClip(const ClipCopyArgs& args, CLICall& call) {
    refuseBy(args.by);
    auto& desktop = requireDesktop(call, "paste");
    const Clip clip = resolveClip(call.context(), args.ref);
    const auto payload = payloadOf(call, clip, args.representation, args.transform);
    ClipActionResultDTO result;
    result.clipId = clip.id.string();
    result.representation = args.representation;
    result.transform = args.transform;
    result.bytes = payload.pasteboard.totalBytes;
    result.pasteTarget = activateTarget(desktop, args.into);
    if (auto refusal = desktop.paste(payload.pasteboard)) {
        desktop.copyToClipboard(payload.pasteboard);
        result.copied = true;
        call.warn("W_PASTE_FAILED", *refusal + " The clip was copied to the clipboard instead.");
    } else {
        result.pasted = true;
    }
    markUsed(call, clip);
    return result;
}

ClipPasteStackResultDTO pasteClips(const ClipPasteStackArgs& args, CLICall& call) {
    refuseBy(args.by);
    if (args.refs.empty()) {
        throw CLIError(CLIErrorCode::usage, "Provide at least one clip ref.");
    }
    auto& desktop = requireDesktop(call, "paste");
    std::vector<Clip> clips;
    for (const auto& ref : args.refs) {
        clips.push_back(resolveClip(call.context(), ref));
    }
    ClipPasteStackResultDTO result;
    PasteboardSnapshot pasteboard;
    if (clips.size() == 1) {
        pasteboard = payloadOf(call, clips.front(), std::nullopt, args.transform).pasteboard;
    } else {
        // Several clips go in as one text, a line each, in the order given.
        std::string joined;
        for (const auto& clip : clips) {
            const auto text = ClipPasteboard::bestText(clipStore(call).representations(clip.id));
            if (!text) {
                throw CLIError(CLIErrorCode::validation,
                               "Clip " + clip.id.string().substr(0, 8) +
                                   " has no text, so it can't be pasted with others.",
                               "Paste it on its own with `marlune clip paste`.");
            }
            joined += (joined.empty() ? "" : "\n") + transformed(args.transform, *text);
        }
        Representation plain;
        plain.utTypeIdentifier = "public.utf8-plain-text";
        plain.text = std::move(joined);
        pasteboard = ClipPasteboard::snapshot({plain});
    }
    for (const auto& clip : clips) {
        result.clipIds.push_back(clip.id.string());
    }
    result.bytes = pasteboard.totalBytes;
    result.pasteTarget = activateTarget(desktop, args.into);
    if (auto refusal = desktop.paste(pasteboard)) {
        desktop.copyToClipboard(pasteboard);
        result.copiedFallback = true;
        call.warn("W_PASTE_FAILED", *refusal + " The clips were copied to the clipboard instead.");
    } else {
        result.pastedCount = static_cast<std::int64_t>(clips.size());
    }
    for (const auto& clip : clips) {
        markUsed(call, clip);
    }
    return result;
}

// --- changes ------------------------------------------------------------------------------

ClipDTO setPinned(const RefArgs& args, CLICall& call, bool pinned) {
    refuseBy(args.by);
    auto& context = call.context();
    Clip clip = resolveClip(context, args.ref);
    if (!args.dryRun && clip.isPinned != pinned) {
        BatchActions::setClipsPinned(context, {clip.id}, pinned);
    }
    clip.isPinned = pinned;
    return ClipMapper(context).map(clip, ClipDetail::listing);
}

DeleteResultDTO deleteClip(const RefArgs& args, CLICall& call) {
    refuseBy(args.by);
    auto& context = call.context();
    const Clip clip = resolveClip(context, args.ref);
    if (!args.dryRun) {
        if (args.now.value_or(false)) {
            BatchActions::deleteClips(context, {clip.id});
        } else {
            BatchActions::moveClipsToTrash(context, {clip.id}, call.now());
        }
    }
    return {1, args.dryRun, {clip.id.string()}};
}

std::string firstLine(const std::string& text) {
    std::string line = text.substr(0, text.find('\n'));
    const auto first = line.find_first_not_of(" \t\r");
    const auto last = line.find_last_not_of(" \t\r");
    line = first == std::string::npos ? std::string() : line.substr(first, last - first + 1);
    // At most 60 characters, cut on a character boundary.
    std::size_t i = 0;
    for (int count = 0; i < line.size() && count < 60; ++count) {
        const auto lead = static_cast<unsigned char>(line[i]);
        i += lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    }
    return line.substr(0, std::min(i, line.size()));
}

SnippetDTO promoteClip(const ClipPromoteArgs& args, CLICall& call) {
    refuseBy(args.by);
    auto& context = call.context();
    const Clip clip = resolveClip(context, args.ref);
    const auto text = ClipPasteboard::bestText(clipStore(call).representations(clip.id));
    if (!text || text->empty()) {
        throw CLIError(CLIErrorCode::validation, "This clip has no text to make a snippet from.");
    }
    Snippet snippet = Snippet::make(call.now());
    snippet.content = *text;
    snippet.title = args.title.value_or(firstLine(clip.previewText));
    if (snippet.title.empty()) {
        snippet.title = "Untitled clip";
    }
    if (args.keyword) {
        std::string keyword = *args.keyword;
        const std::string prefix = CLIRecordMapping::keywordPrefix(call.settings());
        if (!prefix.empty() && keyword.starts_with(prefix)) {
            keyword.erase(0, prefix.size());
        }
        if (keyword.find_first_of(" \t\r\n") != std::string::npos) {
            throw CLIError(CLIErrorCode::validation, "A keyword can't contain spaces.",
                           "Typed text is split at spaces, so such a keyword would never expand.");
        }
        snippet.keyword = keyword;
    }
    if (args.groupRef) {
        snippet.groupID = CLIResolvers::group(context, *args.groupRef).id;
    }
    ClipStore store = clipStore(call);
    Snippet created = SnippetStore(context).create(std::move(snippet), call.now());
    store.markPromotionHandled(clip.id);
    return CLIRecordMapping(context, call.settings()).snippet(created);
}

// "+7d", "7d", "36h", "90m", "2w" (seconds, minutes, hours, days, weeks), or a date: ISO 8601
// with time ("2026-03-04T05:06:07Z") or a day ("2026-03-04", midnight UTC).
Date cutoffArg(const std::string& text, Date now) {
    std::string_view age = text;
    if (age.starts_with('+')) {
        age.remove_prefix(1);
    }
    std::int64_t amount = 0;
    const auto [end, error] = std::from_chars(age.data(), age.data() + age.size(), amount);
    if (error == std::errc() && end + 1 == age.data() + age.size() && amount >= 0) {
        std::int64_t unit = 0;
        switch (*end) {
        case 's':
            unit = 1;
            break;
        case 'm':
            unit = 60;
            break;
        case 'h':
            unit = 3'600;
            break;
        case 'd':
            unit = 86'400;
            break;
        case 'w':
            unit = 7 * 86'400;
            break;
        default:
            break;
        }
        if (unit > 0 && amount <= std::int64_t{100} * 366 * 86'400 / unit) {
            return now - std::chrono::seconds(amount * unit);
        }
    }
    if (auto date = CLIDateFormat::parse(text)) {
        return std::chrono::time_point_cast<std::chrono::microseconds>(*date);
    }
    if (text.size() == 10) {
        if (auto date = CLIDateFormat::parse(text + "T00:00:00Z")) {
            return std::chrono::time_point_cast<std::chrono::microseconds>(*date);
        }
    }
    throw CLIError(CLIErrorCode::validation, "'" + text + "' is neither an age nor a date.",
                   "Give an age such as +7d, 36h or 2w, or a date such as 2026-03-04.");
}

DeleteResultDTO purgeClips(const ClipPurgeArgs& args, CLICall& call) {
    if (!args.keepLast && !args.olderThan) {
        throw CLIError(CLIErrorCode::usage,
                       "Say what to purge: --keep-last N, --older-than AGE, or both.");
    }
    if (args.keepLast && *args.keepLast < 0) {
        throw CLIError(CLIErrorCode::validation, "--keep-last can't be negative.");
    }
    std::optional<Date> cutoff;
    if (args.olderThan) {
        cutoff = cutoffArg(*args.olderThan, call.now());
    }
    auto& context = call.context();
    const auto ids = ClipQueries(context).purgeCandidates(args.keepLast, cutoff);
    if (!args.dryRun && !ids.empty()) {
        BatchActions::deleteClips(context, ids);
    }
    DeleteResultDTO result;
    result.deletedCount = static_cast<std::int64_t>(ids.size());
    result.dryRun = args.dryRun;
    for (const auto& id : ids) {
        result.affected.push_back(id.string());
    }
    return result;
}

} // namespace

void registerClipCommands(CLIListener& listener) {
    namespace N = CLICommandName;
    listener.addTyped<ListArgs>(std::string(N::clipList), listClips);
    listener.addTyped<GetArgs>(std::string(N::clipGet), getClip);
    listener.addTyped<SearchArgs>(std::string(N::clipSearch), searchClips);
    listener.addTyped<ClipCopyArgs>(std::string(N::clipCopy), copyClip);
    listener.addTyped<ClipCopyArgs>(std::string(N::clipPaste), pasteClip);
    listener.addTyped<ClipPasteStackArgs>(std::string(N::clipPasteStack), pasteClips);
    listener.addTyped<RefArgs>(std::string(N::clipPin),
                               [](const RefArgs& a, CLICall& c) { return setPinned(a, c, true); });
    listener.addTyped<RefArgs>(std::string(N::clipUnpin),
                               [](const RefArgs& a, CLICall& c) { return setPinned(a, c, false); });
    listener.addTyped<RefArgs>(std::string(N::clipDelete), deleteClip);
    listener.addTyped<ClipPromoteArgs>(std::string(N::clipPromote), promoteClip);
    listener.addTyped<ClipPurgeArgs>(std::string(N::clipPurge), purgeClips);
}

} // namespace marlune
