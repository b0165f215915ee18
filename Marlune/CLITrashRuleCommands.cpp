// The Trash (trashed snippets and clips: list, restore, empty) and the capture rules (the
// applications whose copies stay out of the history).

#include "Marlune/CLIClipSupport.h"
#include "Marlune/CLIListener.h"
#include "Marlune/CLIRecordMapping.h"
#include "Marlune/CLIResolvers.h"
#include "MarluneCLIProtocol/CLICommandName.h"
#include "MarluneCLIProtocol/CLIErrorCode.h"
#include "MarluneCLIProtocol/ClipRecords.h"
#include "MarluneCLIProtocol/LibraryRecords.h"
#include "MarluneCLIProtocol/Paging.h"
#include "MarluneCLIProtocol/SnippetRecords.h"
#include "MarluneCore/CaptureRuleStore.h"
#include "MarluneCore/SnippetStore.h"
#include "MarluneCore/TrashPolicy.h"

#include <cctype>

namespace marlune {

namespace {

using namespace CLIClipSupport;

// --- Trash -------------------------------------------------------------------------------

constexpr std::size_t labelCharacters = 80;

std::string label(std::string text) {
    text = text.substr(0, text.find('\n'));
    std::size_t i = 0;
    for (std::size_t count = 0; i < text.size() && count < labelCharacters; ++count) {
        const auto lead = static_cast<unsigned char>(text[i]);
        i += lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    }
    return text.substr(0, std::min(i, text.size()));
}

// Newest in the Trash first; snippets and clips together.
constexpr std::string_view trashedRows =
    "SELECT 'snippet', id, CASE WHEN title = '' THEN keyword ELSE title END, deletedAt "
    "FROM Snippet WHERE deletedAt IS NOT NULL "
    "UNION ALL SELECT 'clip', id, previewText, deletedAt FROM Clip WHERE deletedAt IS NOT NULL "
    "ORDER BY 4 DESC, 2";

Page<TrashItemDTO> listTrash(const TrashListArgs& args, CLICall& call) {
    auto& context = call.context();
    auto& db = context.db();
    auto counts = db.prepare("SELECT (SELECT count(*) FROM Snippet WHERE deletedAt IS NOT NULL) + "
                             "(SELECT count(*) FROM Clip WHERE deletedAt IS NOT NULL)");
    counts.step();
    Page<TrashItemDTO> page;
    page.page = PageInfo::of(counts.int64(0), args.limit, args.offset);
    auto rows = db.prepare(std::string(trashedRows) + " LIMIT ?1 OFFSET ?2");
    rows.bind(1, std::max<std::int64_t>(0, args.limit)).bind(2, page.page.offset);
    const Date now = call.now();
    while (rows.step()) {
        TrashItemDTO item;
        item.kind = rows.text(0);
        item.id = rows.text(1);
        item.label = label(item.kind == "clip"
                               ? context.crypto().readText(rows.textView(2)).value_or(std::string())
                               : rows.text(2));
        const Date deletedAt = fromStorage(rows.int64(3));
        item.deletedAt = CLIRecordMapping::date(deletedAt);
        item.daysLeft = TrashPolicy::daysLeft(deletedAt, now);
        page.items.push_back(std::move(item));
    }
    return page;
}

struct TrashedRef {
    std::string kind;
    Uuid id;
};

// A trashed record by id, the start of its id, or (for snippets) its exact title or keyword.
TrashedRef resolveTrashed(ModelContext& context, const std::string& ref) {
    CLIResolvers::requireRef(ref, "A ref of an item in the Trash is required.");
    auto& db = context.db();
    std::string upper = ref;
    for (auto& c : upper) {
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    std::vector<TrashedRef> matches;
    auto byID = db.prepare("SELECT 'snippet', id FROM Snippet WHERE deletedAt IS NOT NULL AND "
                           "id >= ?1 AND id < ?1 || '~' UNION ALL "
                           "SELECT 'clip', id FROM Clip WHERE deletedAt IS NOT NULL AND "
                           "id >= ?1 AND id < ?1 || '~' LIMIT 3");
    byID.bind(1, upper);
    while (byID.step()) {
        if (byID.textView(1).starts_with(upper)) {
            matches.push_back({byID.text(0), Uuid::parse(byID.textView(1)).value_or(Uuid())});
        }
    }
    if (matches.empty()) {
        for (const auto& snippet : SnippetStore(context).list(SnippetSortMode::manual, true)) {
            if (CLIResolvers::sameName(snippet.title, ref) ||
                (!snippet.keyword.empty() && CLIResolvers::sameName(snippet.keyword, ref))) {
                matches.push_back({"snippet", snippet.id});
            }
        }
    }
    if (matches.empty()) {
        throw CLIError(CLIErrorCode::notFound, "Nothing in the Trash matches '" + ref + "'.",
                       "List it with `marlune trash list`.");
    }
    if (matches.size() > 1) {
        throw CLIError(CLIErrorCode::ambiguous,
                       "'" + ref + "' matches " + std::to_string(matches.size()) +
                           " items in the Trash.",
                       "Pass more of the id, as `marlune trash list` shows it.");
    }
    return matches.front();
}

CLIResponse restoreFromTrash(CLIListener& listener, const CLIRequest& request) {
    auto decoded = decodeArgs<TrashRestoreArgs>(request);
    if (auto* error = std::get_if<CLIErrorPayload>(&decoded)) {
        return CLIResponse::failure(std::move(*error));
    }
    CLICall call(request, listener.environment());
    auto& context = call.context();
    const auto found = resolveTrashed(context, std::get<TrashRestoreArgs>(decoded).ref);
    if (found.kind == "snippet") {
        const Snippet restored = SnippetStore(context).restore(found.id, call.now());
        return successResponse(CLIRecordMapping(context, call.settings()).snippet(restored),
                               call.takeWarnings());
    }
    context.performUndoable("Restore Clip", [&] {
        context.db()
            .prepare("UPDATE Clip SET deletedAt = NULL WHERE id = ?1")
            .bind(1, found.id.string())
            .run();
    });
    const auto clip = clipStore(call).clip(found.id);
    return successResponse(ClipMapper(context).map(*clip, ClipDetail::listing),
                           call.takeWarnings());
}

DeleteResultDTO emptyTrash(const TrashEmptyArgs& args, CLICall& call) {
    auto& context = call.context();
    DeleteResultDTO result;
    result.dryRun = args.dryRun;
    auto rows = context.db().prepare(std::string(trashedRows));
    while (rows.step()) {
        result.affected.push_back(rows.text(1));
    }
    result.deletedCount = static_cast<std::int64_t>(result.affected.size());
    if (!args.dryRun && result.deletedCount > 0) {
        context.performUndoable("Empty Trash", [&] {
            context.db().execute("DELETE FROM Snippet WHERE deletedAt IS NOT NULL");
            context.db().execute("DELETE FROM Clip WHERE deletedAt IS NOT NULL");
        });
    }
    return result;
}

// --- capture rules -----------------------------------------------------------------------

CaptureRuleDTO ruleDTO(const CaptureRule& rule) {
    return {rule.id.string(), rule.bundleID, rule.appName, rule.isEnabled,
            CLIRecordMapping::date(rule.createdAt)};
}

Page<CaptureRuleDTO> listRules(const EmptyArgs&, CLICall& call) {
    std::vector<CaptureRuleDTO> items;
    for (const auto& rule : CaptureRuleStore(call.context()).list()) {
        items.push_back(ruleDTO(rule));
    }
    const auto total = static_cast<std::int64_t>(items.size());
    return Page<CaptureRuleDTO>::slice(std::move(items), total, 0);
}

std::string bundleIDArg(const std::string& bundleID) {
    const auto first = bundleID.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) {
        throw CLIError(CLIErrorCode::usage, "An application is required.",
                       "Name it by its window class, e.g. `marlune rule add keepassxc`.");
    }
    const auto last = bundleID.find_last_not_of(" \t\r\n");
    return bundleID.substr(first, last - first + 1);
}

CaptureRuleDTO addRule(const CaptureRuleWriteArgs& args, CLICall& call) {
    CaptureRuleStore store(call.context());
    CaptureRule rule = store.add(bundleIDArg(args.bundleID), args.appName, call.now());
    if (rule.isEnabled != args.enabled) {
        store.setEnabled(rule.id, args.enabled);
        rule.isEnabled = args.enabled;
    }
    return ruleDTO(rule);
}

DeleteResultDTO removeRule(const CaptureRuleWriteArgs& args, CLICall& call) {
    const std::string wanted = bundleIDArg(args.bundleID);
    CaptureRuleStore store(call.context());
    const auto id = Uuid::parse(wanted);
    for (const auto& rule : store.list()) {
        const bool same = id ? rule.id == *id : CLIResolvers::sameName(rule.bundleID, wanted);
        if (same) {
            store.remove(rule.id);
            return {1, false, {rule.id.string()}};
        }
    }
    throw CLIError(CLIErrorCode::notFound, "No capture rule matches '" + wanted + "'.",
                   "List them with `marlune rule list`.");
}

} // namespace

void registerTrashAndRuleCommands(CLIListener& listener) {
    namespace N = CLICommandName;
    listener.addTyped<TrashListArgs>(std::string(N::trashList), listTrash);
    listener.add(std::string(N::trashRestore), [&listener](const CLIRequest& request) {
        return restoreFromTrash(listener, request);
    });
    listener.addTyped<TrashEmptyArgs>(std::string(N::trashEmpty), emptyTrash);
    listener.addTyped<EmptyArgs>(std::string(N::ruleList), listRules);
    listener.addTyped<CaptureRuleWriteArgs>(std::string(N::ruleAdd), addRule);
    listener.addTyped<CaptureRuleWriteArgs>(std::string(N::ruleRemove), removeRule);
}

} // namespace marlune
