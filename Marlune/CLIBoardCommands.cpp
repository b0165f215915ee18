// The Board on the command line: every "board.*" command. Items are named by id (or the start of
// one, as `marlune board list` shows it) or by their text; sections by name or id.

#include "ClipboardKit/SecretDetector.h"
#include "Marlune/BoardCaptureService.h"
#include "Marlune/CLIListener.h"
#include "Marlune/CLIRecordMapping.h"
#include "Marlune/CLIResolvers.h"
#include "Marlune/DesktopActions.h"
#include "MarluneCLIProtocol/BoardRecords.h"
#include "MarluneCLIProtocol/CLICommandName.h"
#include "MarluneCLIProtocol/CLIErrorCode.h"
#include "MarluneCLIProtocol/CommonRecords.h"
#include "MarluneCore/BoardAutoArchive.h"
#include "MarluneCore/BoardDatePreset.h"
#include "MarluneCore/BoardExporter.h"
#include "MarluneCore/BoardListFormatter.h"
#include "MarluneCore/BoardOrdering.h"
#include "MarluneCore/BoardStore.h"
#include "MarluneCore/ClipStore.h"
#include "MarluneCore/ContentLimits.h"
#include "MarluneCore/Log.h"

#include <algorithm>
#include <cstdlib>
#include <set>

namespace marlune {

namespace {

namespace fs = std::filesystem;

constexpr Logger boardLog{"board"};

const std::string listHint = "List them with `marlune board list`.";

// Typed text is checked for credentials whatever the clipboard's own policy says (the Board
// is synced and shown on screen); one-time codes are left alone, since a typed number is
// rarely one.
BoardStore storeFor(CLICall& call) {
    return BoardStore(call.context(), call.settings(), [](std::string_view text) {
        return SecretDetector::classify(text, SecretPolicy{true, false}).has_value();
    });
}

// Store and date refusals as the command line reports them.
template <class Body> auto guarded(Body body) {
    return [body](const auto& args, CLICall& call) {
        try {
            return body(args, call);
        } catch (const BoardError& error) {
            std::string_view code = CLIErrorCode::validation;
            switch (error.kind()) {
            case BoardError::Kind::notFound:
                code = CLIErrorCode::notFound;
                break;
            case BoardError::Kind::likelySecret:
                code = CLIErrorCode::likelySecret;
                break;
            case BoardError::Kind::invalid:
            case BoardError::Kind::refused:
                break;
            }
            throw CLIError(code, error.what(), error.hint());
        } catch (const BoardDateError& error) {
            throw CLIError(CLIErrorCode::validation, error.what(), error.hint());
        } catch (const ExportError& error) {
            const auto code = error.kind() == ExportError::Kind::fileExists ? CLIErrorCode::conflict
                              : error.kind() == ExportError::Kind::noVault  ? CLIErrorCode::notFound
                                                                            : CLIErrorCode::runtime;
            throw CLIError(code, error.what(), error.hint());
        }
    };
}

CLIError capabilityMissing(std::string message, std::optional<std::string> hint = std::nullopt) {
    return CLIError(CLIErrorCode::capability, std::move(message), std::move(hint));
}

CLIError panelMissing() {
    return capabilityMissing("The Board panel is not available in this version.",
                             "Use `marlune board list` to see the Board.");
}

CLIError aiMissing(std::string_view what) {
    return capabilityMissing(std::string(what) + " needs on-device AI, which is not set up.",
                             "Set ai.endpoint to a local model server with `marlune config set`.");
}

// Takes the item's text and tags: a listing converts thousands of items.
BoardItemDTO toDTO(BoardItem item) {
    const Clip& clip = item.clip;
    BoardItemDTO dto;
    dto.id = clip.id.string();
    dto.text = std::move(item.text);
    dto.kind = std::string(rawValue(clip.primaryKind));
    dto.isDone = clip.completedAt.has_value();
    if (clip.completedAt) {
        dto.completedAt = CLIRecordMapping::date(*clip.completedAt);
    }
    dto.createdAt = CLIRecordMapping::date(clip.createdAt);
    dto.sectionID = item.sectionID.isNil() ? std::string() : item.sectionID.string();
    dto.sectionName = item.sectionName;
    if (clip.sourceAppName) {
        dto.sourceApp = clip.sourceAppName;
    } else if (clip.sourceAppBundleID) {
        dto.sourceApp = clip.sourceAppBundleID;
    }
    dto.sourceTitle = clip.sourceTitle;
    dto.sourceURL = clip.sourceURL;
    dto.tags = std::move(item.tags);
    if (clip.boardPinnedAt) {
        dto.pinned = true;
    }
    if (clip.dueAt) {
        dto.dueAt = CLIRecordMapping::date(*clip.dueAt);
    }
    if (clip.snoozedUntil) {
        dto.snoozedUntil = CLIRecordMapping::date(*clip.snoozedUntil);
    }
    dto.note = clip.boardNote;
    return dto;
}

BoardItemDTO itemDTO(BoardStore& store, const Uuid& id) {
    if (auto item = store.item(id)) {
        return toDTO(*item);
    }
    throw CLIError(CLIErrorCode::notFound, "That item is no longer on the Board.", listHint);
}

BoardSectionDTO sectionDTO(const BoardSectionSummary& summary, const std::optional<Uuid>& active) {
    BoardSectionDTO dto;
    dto.id = summary.section.id.string();
    dto.name = summary.section.name;
    dto.itemCount = summary.itemCount;
    dto.doneCount = summary.doneCount;
    dto.isActive = active && *active == summary.section.id;
    dto.sortIndex = summary.section.sortIndex;
    dto.symbol = summary.section.iconSymbol;
    dto.colorRole = summary.section.colorRole;
    return dto;
}

Pinboard resolveSection(BoardStore& store, const std::string& ref) {
    CLIResolvers::requireRef(ref, "A section name is required.");
    if (auto id = Uuid::parse(ref)) {
        if (auto found = store.section(*id)) {
            return *found;
        }
    } else if (auto found = store.sectionNamed(ref)) {
        return *found;
    }
    throw CLIError(CLIErrorCode::notFound, "No Board section matches '" + ref + "'.",
                   "List them with `marlune board sections`, or create one with `marlune board "
                   "use NAME --create`.");
}

Pinboard sectionOrActive(BoardStore& store, const std::optional<std::string>& ref, Date now) {
    return ref ? resolveSection(store, *ref) : store.activeSection(now);
}

bool looksLikeID(std::string_view ref) {
    return !ref.empty() && ref.find_first_not_of("0123456789abcdefABCDEF-") == std::string::npos;
}

// An item by its id, the start of its id, its exact text (any case) or a part of its text.
Uuid resolveItem(BoardStore& store, const std::string& ref, Date now) {
    CLIResolvers::requireRef(ref, "Give at least one item id.");
    if (auto id = Uuid::parse(ref)) {
        if (store.isOnBoard(*id)) {
            return *id;
        }
        throw CLIError(CLIErrorCode::notFound, "No Board item matches '" + ref + "'.", listHint);
    }
    // A listing shows the start of each id, so a run of hex digits is read as one first.
    if (looksLikeID(ref)) {
        const auto ids = store.itemIDsWithPrefix(ref, 10'000);
        if (ids.size() == 1) {
            return ids.front();
        }
        if (ids.size() > 1) {
            throw CLIError(CLIErrorCode::ambiguous,
                           "'" + ref + "' matches " + std::to_string(ids.size()) +
                               " items; use more of the id.",
                           "Pass more of the id, as `marlune board list --json` shows it.");
        }
    }
    BoardStore::ListFilter every;
    every.includeSnoozed = true;
    const auto items = store.allItems(now, every);
    for (const bool exact : {true, false}) {
        std::set<Uuid> matches;
        for (const auto& item : items) {
            if (exact ? CLIResolvers::sameName(item.text, ref)
                      : CLIResolvers::nameContains(item.text, ref)) {
                matches.insert(item.clip.id);
            }
        }
        if (matches.size() == 1) {
            return *matches.begin();
        }
        if (matches.size() > 1) {
            throw CLIError(CLIErrorCode::ambiguous,
                           "'" + ref + "' matches " + std::to_string(matches.size()) +
                               " Board items.",
                           "Pass the item's id, as `marlune board list` shows it.");
        }
    }
    throw CLIError(CLIErrorCode::notFound, "No Board item matches '" + ref + "'.", listHint);
}

std::vector<Uuid> resolveItems(BoardStore& store, const std::vector<std::string>& refs, Date now) {
    if (refs.empty()) {
        throw CLIError(CLIErrorCode::usage, "Give at least one item id.");
    }
    std::vector<Uuid> ids;
    for (const auto& ref : refs) {
        const Uuid id = resolveItem(store, ref, now);
        if (std::find(ids.begin(), ids.end(), id) == ids.end()) {
            ids.push_back(id);
        }
    }
    return ids;
}

BoardMutationResultDTO mutation(std::string action, const std::vector<Uuid>& ids) {
    BoardMutationResultDTO result;
    result.action = std::move(action);
    result.count = static_cast<std::int64_t>(ids.size());
    for (const auto& id : ids) {
        result.ids.push_back(id.string());
    }
    return result;
}

// The Board's refresh: items done long enough ago move to the archive. Sync is not available
// on this platform yet, so the pass has always settled. A failure is logged, never shown.
void refresh(CLICall& call) {
    try {
        BoardAutoArchive::archiveFinishedItems(call.context(), call.settings(), call.now());
    } catch (const std::exception& error) {
        boardLog.error(std::string("Board auto-archive failed: ") + error.what());
    }
}

void copyToDesktop(CLICall& call, const std::string& text) {
    if (auto* desktop = call.environment().desktop) {
        PasteboardSnapshot::Item item;
        item.payloads.push_back(
            PasteboardSnapshot::Payload::fromText("text/plain;charset=utf-8", text));
        item.payloads.push_back(PasteboardSnapshot::Payload::fromText("UTF8_STRING", text));
        desktop->copyToClipboard(PasteboardSnapshot::fromItems({std::move(item)}));
    }
}

BoardListItem listItem(const BoardItem& item) {
    BoardListItem out;
    out.isDone = item.clip.completedAt.has_value();
    switch (item.clip.primaryKind) {
    case ClipKind::file:
        out.payload = BoardListItem::File{item.text};
        break;
    case ClipKind::image:
        out.payload = BoardListItem::Image{item.text, std::nullopt};
        break;
    default:
        out.payload = BoardListItem::Text{item.text};
    }
    return out;
}

// --- Commands

std::vector<BoardSectionDTO> sections(const EmptyArgs&, CLICall& call) {
    refresh(call);
    auto store = storeFor(call);
    const auto current = store.activeSectionIfAny();
    const Uuid active = current ? current->id : Uuid{};
    std::vector<BoardSectionDTO> out;
    for (const auto& summary : store.sectionSummaries()) {
        out.push_back(sectionDTO(summary, active));
    }
    return out;
}

BoardSectionDTO use(const BoardUseArgs& args, CLICall& call) {
    auto store = storeFor(call);
    const Pinboard section =
        args.create ? (CLIResolvers::requireRef(args.ref, "A section name is required."),
                       store.sectionForName(args.ref, call.now()))
                    : resolveSection(store, args.ref);
    store.setActiveSection(section.id);
    for (const auto& summary : store.sectionSummaries()) {
        if (summary.section.id == section.id) {
            return sectionDTO(summary, section.id);
        }
    }
    return sectionDTO({section, 0, 0}, section.id);
}

std::vector<BoardItemDTO> list(const BoardListArgs& args, CLICall& call) {
    refresh(call);
    auto store = storeFor(call);
    BoardStore::ListFilter filter;
    if (args.done) {
        filter.includeDone = *args.done;
        filter.includeOpen = !*args.done;
    }
    filter.snoozedOnly = args.snoozed;
    filter.tag = args.tag;
    if (args.type) {
        filter.kind = clipKindFromRaw(*args.type);
        if (!filter.kind) {
            throw CLIError(CLIErrorCode::validation, "'" + *args.type + "' is not a kind of item.",
                           "Use text, richText, url, image, file or color.");
        }
    }
    std::vector<BoardItem> items;
    if (args.all) {
        if (args.section) {
            throw CLIError(CLIErrorCode::usage, "Give a section or --all, not both.");
        }
        items = store.allItems(call.now(), filter);
    } else if (args.section) {
        items = store.items(resolveSection(store, *args.section), call.now(), filter);
    } else if (const auto active = store.activeSectionIfAny()) {
        items = store.items(*active, call.now(), filter);
    }
    std::vector<BoardItemDTO> out;
    out.reserve(items.size());
    for (auto& item : items) {
        out.push_back(toDTO(std::move(item)));
    }
    return out;
}

BoardItemDTO add(const BoardAddArgs& args, CLICall& call) {
    auto store = storeFor(call);
    const Pinboard section = sectionOrActive(store, args.section, call.now());
    BoardStore::Source source;
    if (args.from) {
        const auto name = args.from->substr(0, 100);
        if (name.find_first_not_of(" \t") == std::string::npos) {
            throw CLIError(CLIErrorCode::validation, "--from needs the agent's name.");
        }
        source.appName = std::string(BoardConstants::agentPrefix) + name;
    } else {
        source.appName = std::string(BoardConstants::composerSourceApp);
    }
    const auto result = store.addText(args.text, section, source, call.now());
    auto dto = itemDTO(store, result.clip.id);
    dto.sectionID = section.id.string();
    dto.sectionName = section.name;
    dto.bumped = result.outcome == BoardStore::CaptureOutcome::bumped;
    return dto;
}

BoardMutationResultDTO capture(const BoardCaptureArgs& args, CLICall& call) {
    auto& environment = call.environment();
    if (environment.desktop == nullptr || environment.boardCapture == nullptr) {
        throw capabilityMissing("Board capture needs Marlune's desktop session; this one runs "
                                "without a display.",
                                "Start marlune-app in your desktop session, without --headless.");
    }
    if (!environment.boardCapture->capture(args.choose)) {
        throw CLIError(CLIErrorCode::busy, "A Board capture is already under way.");
    }
    return mutation("capture", {});
}

BoardMutationResultDTO setDone(const BoardItemsArgs& args, CLICall& call, bool done) {
    auto store = storeFor(call);
    const auto ids = resolveItems(store, args.ids, call.now());
    store.setDone(ids, done, call.now());
    return mutation(done ? "check" : "uncheck", ids);
}

BoardMutationResultDTO setPinned(const BoardItemsArgs& args, CLICall& call, bool pinned) {
    auto store = storeFor(call);
    const auto ids = resolveItems(store, args.ids, call.now());
    store.setPinned(ids, pinned, call.now());
    return mutation(pinned ? "pin" : "unpin", ids);
}

BoardCopyResultDTO next(const BoardNextArgs& args, CLICall& call) {
    auto store = storeFor(call);
    const Pinboard section = sectionOrActive(store, args.section, call.now());
    BoardStore::ListFilter open;
    open.includeDone = false;
    const auto items = store.items(section, call.now(), open);
    if (items.empty()) {
        throw CLIError(CLIErrorCode::notFound, "Nothing is left to do on " + section.name + ".");
    }
    BoardCopyResultDTO result;
    result.count = 1;
    result.text = items.front().text;
    copyToDesktop(call, result.text);
    return result;
}

BoardCopyResultDTO copy(const BoardCopyArgs& args, CLICall& call) {
    auto store = storeFor(call);
    std::vector<BoardItem> items;
    if (args.ids.empty()) {
        items = store.items(store.activeSection(call.now()), call.now());
    } else {
        for (const auto& id : resolveItems(store, args.ids, call.now())) {
            if (auto item = store.item(id)) {
                items.push_back(std::move(*item));
            }
        }
    }
    std::vector<BoardListItem> list;
    for (const auto& item : items) {
        list.push_back(listItem(item));
    }
    BoardCopyResultDTO result;
    result.count = static_cast<std::int64_t>(list.size());
    result.asList = args.list || args.markdown;
    result.markdown = args.markdown;
    result.text = args.markdown ? BoardListFormatter::markdown(list)
                  : args.list   ? BoardListFormatter::plain(list)
                                : BoardListFormatter::joined(list);
    copyToDesktop(call, result.text);
    return result;
}

BoardMutationResultDTO remove(const BoardItemsArgs& args, CLICall& call) {
    auto store = storeFor(call);
    const auto ids = resolveItems(store, args.ids, call.now());
    store.removeSelection(ids);
    return mutation("remove", ids);
}

BoardMutationResultDTO file(const BoardFileArgs& args, CLICall& call) {
    auto store = storeFor(call);
    const auto ids = resolveItems(store, args.ids, call.now());
    CLIResolvers::requireRef(args.to, "A pinboard reference is required.");
    std::optional<Pinboard> target;
    if (auto id = Uuid::parse(args.to)) {
        if (auto section = store.section(*id)) {
            target = section;
        }
    }
    if (!target) {
        target = store.pinboardNamed(args.to);
    }
    if (!target && CLIResolvers::sameName(args.to, BoardConstants::archivePinboardName)) {
        target = store.createPinboard(BoardConstants::archivePinboardName,
                                      BoardConstants::archivePinboardSymbol, call.now());
    }
    if (!target) {
        throw CLIResolvers::notFound("pinboard", args.to);
    }
    store.fileSelection(ids, *target);
    return mutation("file", ids);
}

BoardMutationResultDTO snooze(const BoardSnoozeArgs& args, CLICall& call) {
    auto store = storeFor(call);
    const auto ids = resolveItems(store, args.ids, call.now());
    const Date until = BoardDates::parse(args.until, call.now(), BoardCalendar());
    store.snooze(ids, until);
    return mutation("snooze", ids);
}

BoardMutationResultDTO wake(const BoardItemsArgs& args, CLICall& call) {
    auto store = storeFor(call);
    const auto ids = resolveItems(store, args.ids, call.now());
    store.wake(ids);
    return mutation("wake", ids);
}

BoardMutationResultDTO due(const BoardDueArgs& args, CLICall& call) {
    auto store = storeFor(call);
    const auto ids = resolveItems(store, args.ids, call.now());
    std::optional<Date> at;
    if (args.at && !args.at->empty()) {
        at = BoardDates::parse(*args.at, call.now(), BoardCalendar());
    }
    store.setDue(ids, at);
    return mutation(at ? "due" : "clearDue", ids);
}

BoardItemDTO note(const BoardNoteArgs& args, CLICall& call) {
    if (args.text) {
        if (const auto refusal = ContentLimits::refusal("Board note", args.text->size(),
                                                        ContentLimits::boardNoteBytes)) {
            throw CLIError(CLIErrorCode::validation, *refusal,
                           "Shorten the note, or keep the long text in a snippet or a file.");
        }
    }
    auto store = storeFor(call);
    const Uuid id = resolveItem(store, args.id, call.now());
    std::optional<std::string> text = args.text;
    if (text && text->find_first_not_of(" \t\r\n") == std::string::npos) {
        text.reset(); // an empty note removes it
    }
    store.setNote(id, text);
    return itemDTO(store, id);
}

BoardItemDTO move(const BoardMoveArgs& args, CLICall& call) {
    auto store = storeFor(call);
    const Uuid id = resolveItem(store, args.id, call.now());
    const int given = (args.before ? 1 : 0) + (args.after ? 1 : 0) + (args.position ? 1 : 0);
    if (given != 1) {
        throw CLIError(CLIErrorCode::usage,
                       "Say where to move the item: --before ID, --after ID or --position "
                       "N|top|bottom.");
    }
    const auto item = store.item(id);
    const auto section = item ? store.section(item->sectionID) : std::nullopt;
    if (!section) {
        throw CLIError(CLIErrorCode::notFound, "No Board item matches '" + args.id + "'.",
                       listHint);
    }
    // The open items as the section shows them, without the one being moved.
    BoardStore::ListFilter open;
    open.includeDone = false;
    std::vector<Uuid> order;
    for (const auto& other : store.items(*section, call.now(), open)) {
        if (other.clip.id != id) {
            order.push_back(other.clip.id);
        }
    }
    const auto at = [&](std::size_t index) -> std::optional<Uuid> {
        return index < order.size() ? std::optional<Uuid>(order[index]) : std::nullopt;
    };
    std::optional<Uuid> before;
    std::optional<Uuid> after;
    if (args.position) {
        const std::string& position = *args.position;
        std::size_t index = 0;
        if (position == "top") {
            index = 0;
        } else if (position == "bottom") {
            index = order.size();
        } else {
            char* end = nullptr;
            const long n = std::strtol(position.c_str(), &end, 10);
            if (position.empty() || *end != '\0' || n < 1) {
                throw CLIError(CLIErrorCode::validation, "'" + position + "' is not a position.",
                               "Use top, bottom or a number from 1.");
            }
            index = std::min(static_cast<std::size_t>(n - 1), order.size());
        }
        before = at(index);
        after = index > 0 ? at(index - 1) : std::nullopt;
    } else {
        const std::string& ref = args.before ? *args.before : *args.after;
        const Uuid neighbour = resolveItem(store, ref, call.now());
        const auto found = std::find(order.begin(), order.end(), neighbour);
        if (found == order.end()) {
            throw CLIError(CLIErrorCode::validation,
                           "'" + ref + "' is not an open item of " + section->name + ".",
                           "Move items only among the open items of one section.");
        }
        const auto index = static_cast<std::size_t>(found - order.begin());
        if (args.before) {
            before = neighbour;
            after = index > 0 ? at(index - 1) : std::nullopt;
        } else {
            after = neighbour;
            before = at(index + 1);
        }
    }
    store.move(id, before, after, call.now());
    return itemDTO(store, id);
}

BoardMutationResultDTO clearCompleted(const BoardClearArgs& args, CLICall& call) {
    auto store = storeFor(call);
    const Pinboard section = sectionOrActive(store, args.section, call.now());
    return mutation("clearCompleted", store.clearCompleted(section));
}

std::vector<BoardSearchHitDTO> search(const BoardSearchArgs& args, CLICall& call) {
    if (args.query.find_first_not_of(" \t") == std::string::npos) {
        throw CLIError(CLIErrorCode::usage, "Give the text to search for.");
    }
    auto store = storeFor(call);
    BoardStore::ListFilter every;
    every.includeSnoozed = true;
    std::vector<BoardSearchHitDTO> hits;
    std::set<Uuid> seen;
    for (const auto& item : store.allItems(call.now(), every)) {
        if (CLIResolvers::nameContains(item.text, args.query) && seen.insert(item.clip.id).second) {
            hits.push_back({toDTO(item), true});
        }
    }
    if (args.history) {
        ClipStore clips(call.context(), ClipStoreSettings::read(call.settings()));
        for (const auto& match : clips.searchAll(args.query, {})) {
            if (seen.insert(match.clip.id).second) {
                BoardItem item;
                item.clip = match.clip;
                item.text = store.text(match.clip);
                hits.push_back({toDTO(item), false});
            }
        }
    }
    if (args.limit && *args.limit >= 0 && hits.size() > static_cast<std::size_t>(*args.limit)) {
        hits.resize(static_cast<std::size_t>(*args.limit));
    }
    return hits;
}

BoardItemDTO merge(const BoardItemsArgs& args, CLICall& call) {
    auto store = storeFor(call);
    const auto ids = resolveItems(store, args.ids, call.now());
    const Clip merged = store.mergeSelection(ids, call.now());
    return itemDTO(store, merged.id);
}

fs::path homeFolder() {
    const char* home = std::getenv("HOME");
    return home && *home ? fs::path(home) : fs::path("/");
}

fs::path configFolder() {
    const char* config = std::getenv("XDG_CONFIG_HOME");
    return config && *config ? fs::path(config) : homeFolder() / ".config";
}

std::string percentDecoded(std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() &&
            std::isxdigit(static_cast<unsigned char>(text[i + 1])) &&
            std::isxdigit(static_cast<unsigned char>(text[i + 2]))) {
            out += static_cast<char>(std::stoi(std::string(text.substr(i + 1, 2)), nullptr, 16));
            i += 2;
        } else {
            out += text[i];
        }
    }
    return out;
}

BoardExporter::Section exportSection(BoardStore& store, ClipStore& clips, const Pinboard& section,
                                     Date now) {
    BoardExporter::Section out;
    out.name = section.name;
    BoardStore::ListFilter every;
    every.includeSnoozed = true;
    for (const auto& item : store.items(section, now, every)) {
        BoardListItem entry = listItem(item);
        if (item.clip.primaryKind == ClipKind::file || item.clip.primaryKind == ClipKind::image) {
            BoardExporter::Attachment attachment;
            std::optional<std::vector<std::uint8_t>> imageBytes;
            std::string extension = ".png";
            for (auto& rep : clips.representations(item.clip.id)) {
                if (rep.utTypeIdentifier == BoardConstants::fileURLType && rep.text &&
                    rep.text->starts_with("file://")) {
                    attachment.sourceURL = fs::path(percentDecoded(rep.text->substr(7)));
                } else if (rep.data && !imageBytes) {
                    imageBytes = std::move(rep.data);
                    extension = rep.utTypeIdentifier == "public.jpeg"   ? ".jpg"
                                : rep.utTypeIdentifier == "public.tiff" ? ".tiff"
                                                                        : ".png";
                }
            }
            if (attachment.sourceURL) {
                attachment.name = attachment.sourceURL->filename().string();
            } else if (imageBytes) {
                attachment.name = item.clip.id.string().substr(0, 8) + extension;
                attachment.bytes = std::move(imageBytes);
            }
            if (!attachment.name.empty()) {
                if (auto* image = std::get_if<BoardListItem::Image>(&entry.payload)) {
                    image->name = attachment.name;
                } else if (auto* f = std::get_if<BoardListItem::File>(&entry.payload)) {
                    f->name = attachment.name;
                }
                out.attachments.push_back(std::move(attachment));
            }
        }
        out.items.push_back(std::move(entry));
    }
    return out;
}

BoardExportResultDTO exportBoard(const BoardExportArgs& args, CLICall& call) {
    auto store = storeFor(call);
    if (args.all && args.section) {
        throw CLIError(CLIErrorCode::usage, "Give a section or --all, not both.");
    }
    if (args.obsidian && args.dir) {
        throw CLIError(CLIErrorCode::usage, "Give --dir or --obsidian, not both.");
    }
    fs::path folder;
    if (args.obsidian) {
        folder = BoardExporter::obsidianVault(
                     configFolder() / "obsidian",
                     call.settings().string(BoardSettingKeys::obsidianVaultOverride, "")) /
                 BoardExporter::vaultFolder;
    } else if (args.dir) {
        folder = *args.dir;
    } else {
        const auto chosen = call.settings().string(BoardSettingKeys::exportDirectory, "");
        folder = chosen.empty() ? homeFolder() / "Documents" / "Marlune Board" : fs::path(chosen);
    }
    std::vector<Pinboard> sections;
    if (args.all) {
        sections = store.sections();
    } else {
        sections.push_back(sectionOrActive(store, args.section, call.now()));
    }
    ClipStore clips(call.context(), ClipStoreSettings::read(call.settings()));
    BoardExportResultDTO result;
    result.obsidian = args.obsidian;
    for (const auto& section : sections) {
        const auto written = BoardExporter::write(exportSection(store, clips, section, call.now()),
                                                  folder, call.now(), args.force, args.obsidian);
        result.files.push_back(written.file.string());
        result.attachments += written.attachments;
    }
    return result;
}

BoardMutationResultDTO tag(const BoardTagArgs& args, CLICall& call) {
    if (args.suggest) {
        throw aiMissing("Suggesting tags");
    }
    if (args.add.empty() && args.remove.empty()) {
        throw CLIError(CLIErrorCode::usage,
                       "Say which tags to add or remove: --add NAME or --remove NAME.");
    }
    auto store = storeFor(call);
    const auto ids = resolveItems(store, args.ids, call.now());
    for (const auto& name : args.add) {
        store.setTag(name, true, ids, call.now());
    }
    for (const auto& name : args.remove) {
        store.setTag(name, false, ids, call.now());
    }
    return mutation("tag", ids);
}

} // namespace

void registerBoardCommands(CLIListener& listener) {
    using namespace CLICommandName;
    listener.addTyped<BoardShowArgs>(
        std::string(boardShow),
        [](const BoardShowArgs&, CLICall&) -> BoardMutationResultDTO { throw panelMissing(); });
    for (auto name : {boardHide, boardToggle}) {
        listener.addTyped<EmptyArgs>(
            std::string(name),
            [](const EmptyArgs&, CLICall&) -> BoardMutationResultDTO { throw panelMissing(); });
    }
    listener.addTyped<EmptyArgs>(
        std::string(boardDraw), [](const EmptyArgs&, CLICall&) -> BoardMutationResultDTO {
            throw capabilityMissing("Drawing on the Board is not available in this version.");
        });
    listener.addTyped<BoardTransformArgs>(
        std::string(boardTransform),
        [](const BoardTransformArgs&, CLICall&) -> BoardMutationResultDTO {
            throw aiMissing("Rewriting Board items");
        });
    listener.addTyped<BoardAskArgs>(std::string(boardAsk),
                                    [](const BoardAskArgs&, CLICall&) -> BoardMutationResultDTO {
                                        throw aiMissing("Asking the Board");
                                    });
    listener.addTyped<EmptyArgs>(std::string(boardSections), guarded(sections));
    listener.addTyped<BoardUseArgs>(std::string(boardUse), guarded(use));
    listener.addTyped<BoardListArgs>(std::string(boardList), guarded(list));
    listener.addTyped<BoardAddArgs>(std::string(boardAdd), guarded(add));
    listener.addTyped<BoardCaptureArgs>(std::string(boardCapture), guarded(capture));
    listener.addTyped<BoardItemsArgs>(
        std::string(boardCheck),
        guarded([](const BoardItemsArgs& a, CLICall& c) { return setDone(a, c, true); }));
    listener.addTyped<BoardItemsArgs>(
        std::string(boardUncheck),
        guarded([](const BoardItemsArgs& a, CLICall& c) { return setDone(a, c, false); }));
    listener.addTyped<BoardNextArgs>(std::string(boardNext), guarded(next));
    listener.addTyped<BoardCopyArgs>(std::string(boardCopy), guarded(copy));
    listener.addTyped<BoardItemsArgs>(std::string(boardRemove), guarded(remove));
    listener.addTyped<BoardFileArgs>(std::string(boardFile), guarded(file));
    listener.addTyped<BoardItemsArgs>(
        std::string(boardPin),
        guarded([](const BoardItemsArgs& a, CLICall& c) { return setPinned(a, c, true); }));
    listener.addTyped<BoardItemsArgs>(
        std::string(boardUnpin),
        guarded([](const BoardItemsArgs& a, CLICall& c) { return setPinned(a, c, false); }));
    listener.addTyped<BoardSnoozeArgs>(std::string(boardSnooze), guarded(snooze));
    listener.addTyped<BoardItemsArgs>(std::string(boardWake), guarded(wake));
    listener.addTyped<BoardDueArgs>(std::string(boardDue), guarded(due));
    listener.addTyped<BoardNoteArgs>(std::string(boardNote), guarded(note));
    listener.addTyped<BoardMoveArgs>(std::string(boardMove), guarded(move));
    listener.addTyped<BoardClearArgs>(std::string(boardClearCompleted), guarded(clearCompleted));
    listener.addTyped<BoardSearchArgs>(std::string(boardSearch), guarded(search));
    listener.addTyped<BoardItemsArgs>(std::string(boardMerge), guarded(merge));
    listener.addTyped<BoardExportArgs>(std::string(boardExport), guarded(exportBoard));
    listener.addTyped<BoardTagArgs>(std::string(boardTag), guarded(tag));
}

} // namespace marlune
