#include "ExpansionEngine/KeywordRules.h"
#include "ExpansionEngine/SnippetBodyValidator.h"
#include "ExpansionEngine/SnippetRenderer.h"
#include "Marlune/CLIClipSupport.h"
#include "Marlune/CLIListener.h"
#include "Marlune/CLIRecordMapping.h"
#include "Marlune/CLIResolvers.h"
#include "Marlune/DesktopActions.h"
#include "MarluneCLIProtocol/CLICommandName.h"
#include "MarluneCLIProtocol/CLIDateFormat.h"
#include "MarluneCLIProtocol/Paging.h"
#include "MarluneCLIProtocol/SnippetRecords.h"
#include "MarluneCore/BatchActions.h"
#include "MarluneCore/ContentLimits.h"
#include "MarluneCore/LibraryQueries.h"
#include "MarluneCore/ProfileStore.h"
#include "MarluneCore/SnippetStore.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <random>
#include <unicode/locid.h>
#include <unicode/timezone.h>
#include <unicode/unistr.h>

namespace marlune {

namespace {

SnippetContentType contentTypeArg(const std::string& raw) {
    if (auto type = snippetContentTypeFromRaw(raw)) {
        return *type;
    }
    throw CLIError(CLIErrorCode::validation, "'" + raw + "' is not a content type.",
                   "Use plainText, markdown or richText.");
}

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// Keywords are stored without the prefix; a keyword typed with it (";sig" for "sig") is
// taken without it. A keyword that the matcher could never see is refused here rather than
// saved to sit silent.
std::string keywordArg(std::string keyword, const std::string& prefix) {
    if (!prefix.empty() && keyword.starts_with(prefix)) {
        keyword.erase(0, prefix.size());
        if (keyword.empty()) {
            const auto refusal = KeywordRules::refusalForPrefixOnly(prefix);
            throw CLIError(CLIErrorCode::validation, refusal.message, refusal.hint);
        }
    }
    if (const auto refusal = KeywordRules::check(keyword, prefix)) {
        throw CLIError(CLIErrorCode::validation, refusal->message, refusal->hint);
    }
    return keyword;
}

void requireTitle(const std::string& title) {
    if (std::all_of(title.begin(), title.end(), isSpace)) {
        throw CLIError(CLIErrorCode::validation, "A snippet needs a title.",
                       "Pass one with --title.");
    }
}

std::string describe(const SnippetBodyValidator::Issue& issue) {
    return std::visit(
        [](const auto& i) -> std::string {
            using I = std::decay_t<decltype(i)>;
            if constexpr (std::is_same_v<I, SnippetBodyValidator::UnknownType>) {
                return "The body uses the unknown placeholder type '" + i.type + "'.";
            } else if constexpr (std::is_same_v<I, SnippetBodyValidator::EmptyOptions>) {
                return "A " + i.type + " field in the body offers no options.";
            } else {
                return "The body has a placeholder mark \"{@\" or \"@}\" without its partner.";
            }
        },
        issue);
}

void validateBody(const std::string& body) {
    const auto result = SnippetBodyValidator::validate(body);
    if (result.issues.empty()) {
        return;
    }
    std::string hint = "Fix the body, or save it without --validate.";
    if (result.issues.size() > 1) {
        hint = std::to_string(result.issues.size() - 1) + " more problem" +
               (result.issues.size() > 2 ? "s" : "") + " after this one. " + hint;
    }
    throw CLIError(CLIErrorCode::validation, describe(result.issues.front()), hint);
}

std::vector<Uuid> tagIDs(ModelContext& context, const std::vector<std::string>& refs) {
    std::vector<Uuid> ids;
    for (const auto& ref : refs) {
        const auto id = CLIResolvers::tag(context, ref).id;
        if (std::find(ids.begin(), ids.end(), id) == ids.end()) {
            ids.push_back(id);
        }
    }
    return ids;
}

// A new keyword that a snippet in the Trash also has: both may exist, but the one in the
// Trash can't come back while this one keeps the keyword.
void warnAboutTrashedKeyword(CLICall& call, const std::string& keyword) {
    if (keyword.empty()) {
        return;
    }
    for (const auto& name : LibraryQueries::snippetNames(call.context(), true)) {
        if (name.keyword == keyword) {
            call.warn("W_DUPLICATE_KEYWORD",
                      "The snippet \"" + name.title + "\" in the Trash also has the keyword \"" +
                          keyword + "\"; it can't be restored while this one keeps it.");
            return;
        }
    }
}

// --- rendering --------------------------------------------------------------------------

std::string icuID(const icu::UnicodeString& id) {
    std::string out;
    id.toUTF8String(out);
    return out;
}

std::string timeZoneArg(const std::optional<std::string>& name) {
    if (!name) {
        std::unique_ptr<icu::TimeZone> zone(icu::TimeZone::createDefault());
        icu::UnicodeString id;
        return icuID(zone->getID(id));
    }
    std::unique_ptr<icu::TimeZone> zone(
        icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(*name)));
    if (!zone || *zone == icu::TimeZone::getUnknown()) {
        throw CLIError(CLIErrorCode::validation, "'" + *name + "' is not a time zone.",
                       "Use an IANA name such as Europe/Paris or UTC.");
    }
    return *name;
}

std::string localeArg(const std::optional<std::string>& name) {
    if (!name) {
        return icu::Locale::getDefault().getName();
    }
    std::string underscored = *name;
    std::replace(underscored.begin(), underscored.end(), '-', '_');
    const auto locale = icu::Locale::createFromName(underscored.c_str());
    if (locale.isBogus() || std::string_view(locale.getLanguage()).empty()) {
        throw CLIError(CLIErrorCode::validation, "'" + *name + "' is not a locale.",
                       "Use a locale identifier such as en_US or fr_FR.");
    }
    return locale.getName();
}

Date nowArg(const std::optional<std::string>& text, Date fallback) {
    if (!text) {
        return fallback;
    }
    if (auto date = CLIDateFormat::parse(*text)) {
        return *date;
    }
    throw CLIError(CLIErrorCode::validation, "'" + *text + "' is not a date.",
                   "Use ISO 8601, such as 2026-03-04T05:06:07Z.");
}

// What a render may consult, from the command's arguments: the library supplies other
// snippets and the profile; everything else of the outside world comes from the arguments
// alone, so that a script gets the same text every time it passes the same values.
struct RenderInputs {
    std::map<std::string, std::string> fills;
    std::map<std::string, std::string> vars;
    std::optional<std::string> clipboard;
    std::optional<std::string> selection;
    std::optional<std::string> now;
    std::optional<std::string> timezone;
    std::optional<std::string> locale;
    std::optional<std::int64_t> seed;
    std::optional<std::int64_t> counterStart;
};

ExpansionContext expansionContext(CLICall& call, const RenderInputs& inputs) {
    ExpansionContext context;
    context.now = std::chrono::time_point_cast<std::chrono::system_clock::duration>(
        nowArg(inputs.now, call.now()));
    context.timeZone = timeZoneArg(inputs.timezone);
    context.locale = localeArg(inputs.locale);
    if (inputs.clipboard) {
        context.clipboard = [text = *inputs.clipboard] { return std::optional<std::string>(text); };
    }
    if (inputs.selection) {
        context.selection = [text = *inputs.selection] { return std::optional<std::string>(text); };
    }
    context.fillInValues.insert(inputs.fills.begin(), inputs.fills.end());
    for (const auto& [key, value] : ProfileStore(call.context()).profile().values) {
        context.variables[key] = value;
    }
    for (const auto& [key, value] : inputs.vars) {
        context.variables[key] = value;
    }
    auto counter = std::make_shared<std::int64_t>(inputs.counterStart.value_or(1));
    context.nextCounter = [counter] { return (*counter)++; };
    auto engine = std::make_shared<std::mt19937_64>(
        inputs.seed ? static_cast<std::uint64_t>(*inputs.seed) : std::random_device{}());
    context.randomInt = [engine](std::int64_t low, std::int64_t high) {
        return std::uniform_int_distribution<std::int64_t>(low, high)(*engine);
    };
    ModelContext* library = &call.context();
    context.resolveSnippet = [library](std::string_view keyword) -> std::optional<std::string> {
        if (auto found = SnippetStore(*library).liveSnippet(keyword)) {
            return found->content;
        }
        return std::nullopt;
    };
    return context;
}

// --- listing ----------------------------------------------------------------------------

using SnippetOrder = std::function<bool(const Snippet&, const Snippet&)>;

// The orders offered, each with its natural direction (`true` for descending).
std::pair<SnippetOrder, bool> snippetOrder(const std::optional<std::string>& sort) {
    const std::string name = sort.value_or("lastEdited");
    if (name == "lastEdited") {
        return {[](const Snippet& a, const Snippet& b) { return a.updatedAt < b.updatedAt; }, true};
    }
    if (name == "title") {
        return {[](const Snippet& a, const Snippet& b) {
                    return CLIResolvers::foldCase(a.title) < CLIResolvers::foldCase(b.title);
                },
                false};
    }
    if (name == "keyword") {
        return {[](const Snippet& a, const Snippet& b) { return a.keyword < b.keyword; }, false};
    }
    if (name == "created") {
        return {[](const Snippet& a, const Snippet& b) { return a.createdAt < b.createdAt; }, true};
    }
    if (name == "mostUsed") {
        return {[](const Snippet& a, const Snippet& b) { return a.usageCount < b.usageCount; },
                true};
    }
    if (name == "recentlyUsed") {
        return {[](const Snippet& a, const Snippet& b) {
                    return a.lastUsedAt.value_or(Date{}) < b.lastUsedAt.value_or(Date{});
                },
                true};
    }
    if (name == "manual") {
        return {[](const Snippet& a, const Snippet& b) { return a.sortIndex < b.sortIndex; },
                false};
    }
    throw CLIError(CLIErrorCode::usage, "'" + name + "' is not a way to sort snippets.",
                   "Use lastEdited, title, keyword, created, mostUsed, recentlyUsed or manual.");
}

bool descending(const std::optional<std::string>& order, bool natural) {
    if (!order) {
        return natural;
    }
    if (*order == "asc") {
        return false;
    }
    if (*order == "desc") {
        return true;
    }
    throw CLIError(CLIErrorCode::usage, "'" + *order + "' is not an order.", "Use asc or desc.");
}

void sortSnippets(std::vector<Snippet>& snippets, const std::optional<std::string>& sort,
                  const std::optional<std::string>& order) {
    auto [less, natural] = snippetOrder(sort);
    const bool down = descending(order, natural);
    // Stable over the store's order, so equal keys keep a fixed order from page to page.
    std::stable_sort(snippets.begin(), snippets.end(),
                     [&, compare = less](const Snippet& a, const Snippet& b) {
                         return down ? compare(b, a) : compare(a, b);
                     });
}

Page<SnippetDTO> listSnippets(const ListArgs& args, CLICall& call) {
    if (args.pinboardRef || args.sourceAppBundleID || args.pinnedOnly.value_or(false)) {
        throw CLIError(CLIErrorCode::usage,
                       "Snippets can't be filtered by pinboard, source app or pin.",
                       "Those filters are for `marlune clip list`.");
    }
    auto& context = call.context();
    std::optional<Uuid> groupID;
    if (args.groupRef) {
        groupID = CLIResolvers::group(context, *args.groupRef).id;
    }
    std::optional<Uuid> tagID;
    if (args.tagRef) {
        tagID = CLIResolvers::tag(context, *args.tagRef).id;
    }
    std::optional<SnippetContentType> kind;
    if (args.kind) {
        kind = contentTypeArg(*args.kind);
    }
    auto snippets =
        SnippetStore(context).list(SnippetSortMode::lastEdited, args.trashed.value_or(false));
    std::erase_if(snippets, [&](const Snippet& s) {
        if (groupID && s.groupID != groupID) {
            return true;
        }
        if (tagID && std::find(s.tagIDs.begin(), s.tagIDs.end(), *tagID) == s.tagIDs.end()) {
            return true;
        }
        if (kind && s.contentType != *kind) {
            return true;
        }
        if (args.favoriteOnly.value_or(false) && !s.isFavorite) {
            return true;
        }
        if (args.query && !CLIResolvers::nameContains(s.title, *args.query) &&
            !CLIResolvers::nameContains(s.keyword, *args.query) &&
            !CLIResolvers::nameContains(s.content, *args.query)) {
            return true;
        }
        return false;
    });
    sortSnippets(snippets, args.sort, args.order);
    const CLIRecordMapping mapping(context, call.settings());
    std::vector<SnippetDTO> items;
    items.reserve(snippets.size());
    for (const auto& s : snippets) {
        items.push_back(mapping.snippet(s));
    }
    return Page<SnippetDTO>::slice(std::move(items), args.limit, args.offset);
}

Page<SnippetDTO> searchSnippets(const SearchArgs& args, CLICall& call) {
    if (args.semantic) {
        throw CLIError(CLIErrorCode::capability,
                       "Search by meaning isn't available: on-device AI is not set up on this "
                       "machine.",
                       "Search by text instead (leave out --semantic).");
    }
    if (std::all_of(args.query.begin(), args.query.end(), isSpace)) {
        throw CLIError(CLIErrorCode::usage, "A search query is required.");
    }
    std::optional<SnippetContentType> kind;
    if (args.kind) {
        kind = contentTypeArg(*args.kind);
    }
    auto& context = call.context();
    const std::string query = CLIResolvers::foldCase(args.query);
    struct Hit {
        Snippet snippet;
        int rank;
        std::string title;
    };
    std::vector<Hit> hits;
    for (auto& s : SnippetStore(context).list(SnippetSortMode::lastEdited)) {
        if (kind && s.contentType != *kind) {
            continue;
        }
        const auto keyword = CLIResolvers::foldCase(s.keyword);
        const auto title = CLIResolvers::foldCase(s.title);
        int rank = -1;
        if (keyword == query) {
            rank = 0;
        } else if (title.find(query) != std::string::npos) {
            rank = 1;
        } else if (keyword.find(query) != std::string::npos) {
            rank = 2;
        } else if (CLIResolvers::foldCase(s.content).find(query) != std::string::npos) {
            rank = 3;
        }
        if (rank >= 0) {
            hits.push_back({std::move(s), rank, title});
        }
    }
    std::stable_sort(hits.begin(), hits.end(), [](const Hit& a, const Hit& b) {
        return a.rank != b.rank ? a.rank < b.rank : a.title < b.title;
    });
    static constexpr std::string_view matchTypes[] = {"keyword", "title", "keyword", "content"};
    const CLIRecordMapping mapping(context, call.settings());
    std::vector<SnippetDTO> items;
    for (const auto& hit : hits) {
        auto dto = mapping.snippet(hit.snippet);
        dto.matchType = std::string(matchTypes[hit.rank]);
        items.push_back(std::move(dto));
    }
    return Page<SnippetDTO>::slice(std::move(items), args.limit, args.offset);
}

// --- writing ----------------------------------------------------------------------------

void requireBodyWithinLimit(const std::string& body) {
    if (const auto refusal =
            ContentLimits::refusal("snippet body", body.size(), ContentLimits::snippetBodyBytes)) {
        throw CLIError(CLIErrorCode::validation, *refusal,
                       "Shorten the body, or split it into several snippets.");
    }
}

SnippetDTO createSnippet(const SnippetCreateArgs& args, CLICall& call) {
    auto& context = call.context();
    requireTitle(args.title);
    if (args.content) {
        requireBodyWithinLimit(*args.content);
    }
    const auto prefix = CLIRecordMapping::keywordPrefix(call.settings());
    Snippet snippet = Snippet::make(call.now());
    snippet.title = args.title;
    snippet.keyword = keywordArg(args.keyword.value_or(""), prefix);
    snippet.content = args.content.value_or("");
    if (args.contentType) {
        snippet.contentType = contentTypeArg(*args.contentType);
    }
    if (args.groupRef) {
        snippet.groupID = CLIResolvers::group(context, *args.groupRef).id;
    }
    snippet.tagIDs = tagIDs(context, args.tagRefs);
    snippet.isFavorite = args.favorite;
    if (args.validate) {
        validateBody(snippet.content);
    }
    if (args.unique) {
        for (const auto& name : LibraryQueries::snippetNames(context)) {
            if (CLIResolvers::sameName(name.title, snippet.title)) {
                throw CLIError(CLIErrorCode::conflict,
                               "A snippet titled \"" + name.title + "\" already exists.",
                               "Choose another title, or leave out --unique.");
            }
        }
    }
    auto created = SnippetStore(context).create(std::move(snippet), call.now());
    warnAboutTrashedKeyword(call, created.keyword);
    return CLIRecordMapping(context, call.settings()).snippet(created);
}

std::optional<Uuid> groupChoice(ModelContext& context, const std::optional<std::string>& groupRef,
                                bool ungroup) {
    if (groupRef && ungroup) {
        throw CLIError(CLIErrorCode::usage, "Pass either a group or --ungroup, not both.");
    }
    if (groupRef) {
        return CLIResolvers::group(context, *groupRef).id;
    }
    return std::nullopt;
}

SnippetDTO updateSnippet(const SnippetUpdateArgs& args, CLICall& call) {
    auto& context = call.context();
    Snippet snippet = CLIResolvers::snippet(context, args.ref, args.by);
    const bool anything = args.title || args.keyword || args.content || args.contentType ||
                          args.groupRef || args.ungroup || !args.addTagRefs.empty() ||
                          !args.removeTagRefs.empty() || args.favorite;
    if (!anything) {
        throw CLIError(CLIErrorCode::usage,
                       "Nothing to change: pass at least one field to update.");
    }
    if (args.title) {
        requireTitle(*args.title);
        snippet.title = *args.title;
    }
    const std::string oldKeyword = snippet.keyword;
    if (args.keyword) {
        snippet.keyword =
            keywordArg(*args.keyword, CLIRecordMapping::keywordPrefix(call.settings()));
    }
    if (args.content) {
        requireBodyWithinLimit(*args.content);
        snippet.content = *args.content;
    }
    if (args.contentType) {
        snippet.contentType = contentTypeArg(*args.contentType);
    }
    if (args.groupRef || args.ungroup) {
        snippet.groupID = groupChoice(context, args.groupRef, args.ungroup);
    }
    for (const auto& id : tagIDs(context, args.addTagRefs)) {
        if (std::find(snippet.tagIDs.begin(), snippet.tagIDs.end(), id) == snippet.tagIDs.end()) {
            snippet.tagIDs.push_back(id);
        }
    }
    for (const auto& id : tagIDs(context, args.removeTagRefs)) {
        std::erase(snippet.tagIDs, id);
    }
    if (args.favorite) {
        snippet.isFavorite = *args.favorite;
    }
    if (args.validate) {
        validateBody(snippet.content);
    }
    auto updated = SnippetStore(context).update(std::move(snippet), call.now());
    if (updated.keyword != oldKeyword) {
        warnAboutTrashedKeyword(call, updated.keyword);
    }
    return CLIRecordMapping(context, call.settings()).snippet(updated);
}

// A body sealed under a key that is not here reads as empty; using it would print, paste or
// copy nothing as if that were the text.
void refuseUnreadable(const Snippet& snippet) {
    if (snippet.contentUnreadable) {
        throw CLIError(CLIErrorCode::runtime,
                       "The body of \"" + snippet.title +
                           "\" could not be opened with the content key here; it is kept as it "
                           "was sealed.",
                       "Bring back the content key it was sealed with (the keyring item or the "
                       "content-key file) and start Marlune again, or give it a new body with "
                       "`marlune snippet update --content`.");
    }
}

SnippetDTO duplicateSnippet(const SnippetDuplicateArgs& args, CLICall& call) {
    auto& context = call.context();
    const Snippet original = CLIResolvers::snippet(context, args.ref, args.by);
    refuseUnreadable(original);
    std::vector<Uuid> copies;
    if (args.title) {
        requireTitle(*args.title);
        // The copy is built here rather than renamed after the fact, so that it is one step
        // to undo. Like every copy it starts without a keyword and without a history of use.
        Snippet copy = Snippet::make(call.now());
        copy.title = *args.title;
        copy.content = original.content;
        copy.contentType = original.contentType;
        copy.isFavorite = original.isFavorite;
        copy.sortIndex = original.sortIndex;
        copy.groupID = original.groupID;
        copy.tagIDs = original.tagIDs;
        copies.push_back(SnippetStore(context).create(std::move(copy), call.now()).id);
    } else {
        BatchActions::duplicateSnippets(context, {original.id}, call.now(), &copies);
    }
    auto copy = copies.empty() ? std::nullopt : SnippetStore(context).snippet(copies.front());
    if (!copy) {
        throw CLIError(CLIErrorCode::runtime, "The copy of the snippet could not be read back.");
    }
    return CLIRecordMapping(context, call.settings()).snippet(*copy);
}

SnippetDTO favoriteSnippet(const FavoriteArgs& args, CLICall& call) {
    auto& context = call.context();
    Snippet snippet = CLIResolvers::snippet(context, args.ref, args.by);
    if (snippet.isFavorite != args.favorite) {
        snippet.isFavorite = args.favorite;
        snippet = SnippetStore(context).update(std::move(snippet), call.now());
    }
    return CLIRecordMapping(context, call.settings()).snippet(snippet);
}

SnippetDTO moveSnippet(const SnippetMoveArgs& args, CLICall& call) {
    auto& context = call.context();
    if (!args.groupRef && !args.ungroup) {
        throw CLIError(CLIErrorCode::usage, "A group ref is required.",
                       "Name the group to move into, or pass --ungroup.");
    }
    Snippet snippet = CLIResolvers::snippet(context, args.ref, args.by);
    snippet.groupID = groupChoice(context, args.groupRef, args.ungroup);
    snippet = SnippetStore(context).update(std::move(snippet), call.now());
    return CLIRecordMapping(context, call.settings()).snippet(snippet);
}

DeleteResultDTO deleteSnippet(const RefArgs& args, CLICall& call) {
    auto& context = call.context();
    const Snippet snippet = CLIResolvers::snippet(context, args.ref, args.by);
    DeleteResultDTO result{1, args.dryRun, {snippet.id.string()}};
    if (args.dryRun) {
        return result;
    }
    SnippetStore store(context);
    if (args.now.value_or(false)) {
        store.deletePermanently(snippet.id);
    } else {
        store.moveToTrash(snippet.id, call.now());
    }
    return result;
}

SnippetDTO getSnippet(const GetArgs& args, CLICall& call) {
    auto& context = call.context();
    const Snippet snippet = CLIResolvers::snippet(context, args.ref, args.by);
    refuseUnreadable(snippet);
    auto dto = CLIRecordMapping(context, call.settings()).snippet(snippet);
    if (!args.raw) {
        dto.content =
            SnippetRenderer::render(snippet.content, expansionContext(call, {}), snippet.keyword)
                .text;
    }
    return dto;
}

// --- expansion --------------------------------------------------------------------------

void refuseDesktopActions(const ExpandArgs& args, CLICall& call) {
    if (!args.paste && !args.copy && !args.into) {
        return;
    }
    const std::string what = args.copy && !args.paste && !args.into ? "copy" : "paste";
    if (call.environment().desktop == nullptr) {
        throw CLIError(CLIErrorCode::capability,
                       "Can't " + what +
                           ": Marlune is running without a display, so there is no clipboard "
                           "or application to " +
                           what + " into.",
                       "Leave out --paste, --copy and --into to print the text instead.");
    }
}

// Copies or pastes the expanded text through the desktop, as the flags ask; `--into` pastes.
void deliverExpansion(const ExpandArgs& args, const std::string& text, CLICall& call,
                      ExpandResultDTO& result) {
    auto* desktop = call.environment().desktop;
    if (desktop == nullptr || (!args.paste && !args.copy && !args.into)) {
        return;
    }
    PasteboardSnapshot content = PasteboardSnapshot::fromItems(
        {{{PasteboardSnapshot::Payload::fromText("text/plain;charset=utf-8", text)}}});
    if (args.copy) {
        desktop->copyToClipboard(content);
        result.actions.copied = true;
    }
    if (!args.paste && !args.into) {
        return;
    }
    if (args.into) {
        if (auto missing = desktop->activate(*args.into)) {
            throw CLIError(CLIErrorCode::notFound, *missing,
                           "Open the application first, or leave out --into to paste into the "
                           "frontmost one.");
        }
        result.actions.pasteTarget = PasteTargetDTO{*args.into, std::nullopt};
    }
    if (auto refusal = desktop->paste(content)) {
        throw CLIError(CLIErrorCode::capability, "Can't paste: " + *refusal,
                       "Use --copy to put the text on the clipboard instead.");
    }
    result.actions.pasted = true;
}

ExpandResultDTO expandSnippet(const ExpandArgs& args, CLICall& call) {
    auto& context = call.context();
    const Snippet snippet = CLIResolvers::snippet(context, args.ref, args.by);
    refuseUnreadable(snippet);
    refuseDesktopActions(args, call);
    RenderInputs inputs{args.fills,     args.vars, args.noClipboard ? std::nullopt : args.clipboard,
                        args.selection, args.now,  args.timezone,
                        args.locale,    args.seed, args.counterStart};
    const auto rendered =
        SnippetRenderer::render(snippet.content, expansionContext(call, inputs), snippet.keyword);

    ExpandResultDTO result;
    result.snippetId = snippet.id.string();
    result.keyword = snippet.keyword;
    result.title = snippet.title;
    for (const auto& field : rendered.fillIns) {
        auto fill = CLIRecordMapping::fill(field, args.fills);
        if (!fill.filled) {
            result.unresolvedFills.push_back(fill.name);
        }
        result.fills.push_back(std::move(fill));
    }
    for (const auto& fillEntry : args.fills) {
        const std::string& name = fillEntry.first;
        const bool known = std::any_of(rendered.fillIns.begin(), rendered.fillIns.end(),
                                       [&](const FillInField& f) { return f.name == name; });
        if (!known) {
            call.warn("W_UNKNOWN_FILL", "The snippet has no fill-in field named \"" + name + "\".");
        }
    }
    if (args.listFills) {
        return result;
    }
    if (args.strictFills && !result.unresolvedFills.empty()) {
        std::string names;
        for (const auto& name : result.unresolvedFills) {
            names += (names.empty() ? "" : ", ") + name;
        }
        throw CLIError(CLIErrorCode::validation, "No value was given for: " + names + ".",
                       "Pass each with --fill NAME=VALUE, or list them with --list-fills.");
    }
    // No model answers on this machine, so every AI placeholder gets its fallback text.
    if (args.strictAI && !rendered.aiRequests.empty()) {
        throw CLIError(CLIErrorCode::capability,
                       "On-device AI isn't available, so the snippet's AI placeholders can't be "
                       "answered.",
                       "Leave out --strict-ai to use their fallback text.");
    }
    for (const auto& request : rendered.aiRequests) {
        auto dto = CLIRecordMapping::aiRequest(request);
        dto.usedFallback = true;
        dto.value = request.fallback;
        result.ai.push_back(std::move(dto));
    }
    if (!rendered.aiRequests.empty() && !args.noAI) {
        call.warn("W_AI_UNAVAILABLE",
                  "On-device AI isn't available; the AI placeholders used their fallback text.");
    }
    result.text = rendered.text;
    result.cursorOffset = rendered.cursorOffset;
    result.actions.stdOut = true;
    deliverExpansion(args, rendered.text, call, result);
    if (args.recordUsage.value_or(false)) {
        SnippetStore(context).recordUse(snippet.id, call.now());
        CLIClipSupport::recordExpansion(
            call, CLIRecordMapping::keywordPrefix(call.settings()) + snippet.keyword,
            rendered.text);
        result.usageRecorded = true;
    }
    return result;
}

} // namespace

void registerSnippetCommands(CLIListener& listener) {
    namespace N = CLICommandName;
    listener.addTyped<ListArgs>(std::string(N::snippetList), listSnippets);
    listener.addTyped<GetArgs>(std::string(N::snippetGet), getSnippet);
    listener.addTyped<SearchArgs>(std::string(N::snippetSearch), searchSnippets);
    listener.addTyped<SnippetCreateArgs>(std::string(N::snippetCreate), createSnippet);
    listener.addTyped<SnippetUpdateArgs>(std::string(N::snippetUpdate), updateSnippet);
    listener.addTyped<SnippetDuplicateArgs>(std::string(N::snippetDuplicate), duplicateSnippet);
    listener.addTyped<FavoriteArgs>(std::string(N::snippetFavorite), favoriteSnippet);
    listener.addTyped<SnippetMoveArgs>(std::string(N::snippetMove), moveSnippet);
    listener.addTyped<RefArgs>(std::string(N::snippetDelete), deleteSnippet);
    listener.addTyped<ExpandArgs>(std::string(N::snippetExpand), expandSnippet);
}

} // namespace marlune
