#include "CLIHarness.h"
#include "MarluneCLIProtocol/CLICommandName.h"
#include "MarluneCLIProtocol/LibraryRecords.h"
#include "MarluneCLIProtocol/SnippetRecords.h"
#include "MarluneCLIProtocol/SystemRecords.h"
#include "MarluneCore/ClipCrypto.h"
#include "MarluneCore/Database.h"
#include "MarluneCore/SnippetStore.h"
#include "MarluneCore/SymmetricKey.h"
#include "support/FakeDesktopActions.h"

namespace marlune::test {
namespace {

namespace N = CLICommandName;

class SnippetCommandTest : public CLIHarness {
protected:
    SnippetDTO create(const std::string& title, const std::string& keyword,
                      const std::string& content = "text") {
        SnippetCreateArgs args;
        args.title = title;
        args.keyword = keyword;
        args.content = content;
        return ok<SnippetDTO>(N::snippetCreate, args);
    }
    std::vector<std::string> titles(const Page<SnippetDTO>& page) {
        std::vector<std::string> out;
        for (const auto& s : page.items) {
            out.push_back(s.title);
        }
        return out;
    }
    ListArgs list(std::int64_t limit, std::int64_t offset) {
        ListArgs args;
        args.sort = "title";
        args.limit = limit;
        args.offset = offset;
        return args;
    }
};

TEST_F(SnippetCommandTest, CreateReportsTheStoredSnippet) {
    TagWriteArgs tag;
    tag.name = "Mail";
    ok<TagDTO>(N::tagCreate, tag);
    GroupWriteArgs group;
    group.name = "Replies";
    ok<GroupDTO>(N::groupCreate, group);

    SnippetCreateArgs args;
    args.title = "Thanks";
    args.keyword = ";ty"; // typed with the prefix
    args.content = "Thanks {@text|name=Who@}! {@ai|prompt=sign off|fallback=Bye@}";
    args.contentType = "markdown";
    args.groupRef = "replies";
    args.tagRefs = {"mail", "Mail"};
    args.favorite = true;
    const auto dto = ok<SnippetDTO>(N::snippetCreate, args);
    EXPECT_EQ(dto.keyword, "ty");
    EXPECT_EQ(dto.keywordTrigger, ";ty");
    EXPECT_EQ(dto.contentType, "markdown");
    EXPECT_TRUE(dto.isFavorite);
    EXPECT_EQ(dto.createdAt, "2026-09-21T14:13:20Z");
    ASSERT_TRUE(dto.group);
    EXPECT_EQ(dto.group->name, "Replies");
    ASSERT_EQ(dto.tags.size(), 1U);
    EXPECT_EQ(dto.fillInCount, 1);
    EXPECT_TRUE(dto.hasAI);
}

TEST_F(SnippetCommandTest, WritesAreRefusedWithTheirCodes) {
    create("Signature", "sig");
    struct Row {
        const char* name;
        SnippetCreateArgs args;
        std::string code;
        std::string message;
    };
    auto make = [](std::string title, std::string keyword, std::string content = "") {
        SnippetCreateArgs a;
        a.title = std::move(title);
        a.keyword = std::move(keyword);
        a.content = std::move(content);
        return a;
    };
    auto withType = make("T", "t1");
    withType.contentType = "html";
    auto validated = make("T", "t2", "{@bogus@}");
    validated.validate = true;
    auto unique = make("signature", "t3");
    unique.unique = true;
    auto missingGroup = make("T", "t4");
    missingGroup.groupRef = "Nowhere";
    const std::vector<Row> rows = {
        {"keyword in use", make("Other", "sig"), "E_CONFLICT",
         "The keyword \"sig\" is already used by the snippet \"Signature\". Choose another "
         "keyword, or change that snippet's keyword first."},
        {"blank title", make("  ", "x"), "E_VALIDATION", "A snippet needs a title."},
        {"keyword with a space", make("T", "a b"), "E_VALIDATION",
         "A keyword can't contain spaces."},
        {"keyword holding the prefix", make("T", "a;b"), "E_VALIDATION",
         "A keyword can't contain the keyword prefix ';'."},
        {"keyword with a no-break space", make("T", "a\u00a0b"), "E_VALIDATION",
         "A keyword can't contain spaces."},
        {"keyword with an ideographic space", make("T", "日\u3000本"), "E_VALIDATION",
         "A keyword can't contain spaces."},
        {"keyword starting with a combining mark", make("T", "\u0301x"), "E_VALIDATION",
         "A keyword can't start with a combining mark."},
        {"keyword that is only the prefix", make("T", ";"), "E_VALIDATION",
         "A keyword can't be only the keyword prefix ';'."},
        {"unknown content type", withType, "E_VALIDATION", "'html' is not a content type."},
        {"invalid body when validating", validated, "E_VALIDATION",
         "The body uses the unknown placeholder type 'bogus'."},
        {"unique title taken", unique, "E_CONFLICT",
         "A snippet titled \"Signature\" already exists."},
        {"group that does not exist", missingGroup, "E_NOT_FOUND", "No group matches 'Nowhere'."},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const auto error = fails(N::snippetCreate, row.args);
        EXPECT_EQ(error.code, row.code);
        EXPECT_EQ(error.message, row.message);
    }
    EXPECT_EQ(SnippetStore(context()).list(SnippetSortMode::lastEdited).size(), 1U);
}

TEST_F(SnippetCommandTest, KeywordOfATrashedSnippetIsAllowedWithAWarning) {
    create("Old", "sig");
    ok<DeleteResultDTO>(N::snippetDelete, RefArgs{"sig", {}, false, {}});
    SnippetCreateArgs args;
    args.title = "New";
    args.keyword = "sig";
    const auto response = send(N::snippetCreate, args);
    ASSERT_TRUE(response.ok);
    ASSERT_EQ(response.warnings.size(), 1U);
    EXPECT_EQ(response.warnings[0].code, "W_DUPLICATE_KEYWORD");
}

TEST_F(SnippetCommandTest, UpdateChangesOnlyWhatIsGiven) {
    create("Greeting", "hi", "Hello");
    TagWriteArgs tag;
    tag.name = "Chat";
    ok<TagDTO>(N::tagCreate, tag);

    SnippetUpdateArgs args;
    args.ref = "hi";
    args.title = "Hello there";
    args.addTagRefs = {"chat"};
    auto dto = ok<SnippetDTO>(N::snippetUpdate, args);
    EXPECT_EQ(dto.title, "Hello there");
    EXPECT_EQ(dto.content, "Hello");
    EXPECT_EQ(dto.keyword, "hi");
    ASSERT_EQ(dto.tags.size(), 1U);

    SnippetUpdateArgs untag;
    untag.ref = "hi";
    untag.removeTagRefs = {"Chat"};
    EXPECT_TRUE(ok<SnippetDTO>(N::snippetUpdate, untag).tags.empty());

    SnippetUpdateArgs nothing;
    nothing.ref = "hi";
    EXPECT_EQ(fails(N::snippetUpdate, nothing).code, "E_USAGE");

    SnippetUpdateArgs both;
    both.ref = "hi";
    both.groupRef = "x";
    both.ungroup = true;
    EXPECT_EQ(fails(N::snippetUpdate, both).message, "Pass either a group or --ungroup, not both.");
}

TEST_F(SnippetCommandTest, DuplicateFavoriteMoveAndDelete) {
    const auto original = create("Letter", "let", "Dear");
    const auto copy = ok<SnippetDTO>(N::snippetDuplicate, SnippetDuplicateArgs{"let", {}, {}});
    EXPECT_NE(copy.id, original.id);
    EXPECT_EQ(copy.title, "Letter copy");
    EXPECT_EQ(copy.keyword, "");
    EXPECT_EQ(copy.content, "Dear");
    const auto named =
        ok<SnippetDTO>(N::snippetDuplicate, SnippetDuplicateArgs{"let", {}, "Letter 2"});
    EXPECT_EQ(named.title, "Letter 2");

    EXPECT_TRUE(ok<SnippetDTO>(N::snippetFavorite, FavoriteArgs{"let", {}, true}).isFavorite);

    GroupWriteArgs group;
    group.name = "Post";
    ok<GroupDTO>(N::groupCreate, group);
    EXPECT_EQ(fails(N::snippetMove, SnippetMoveArgs{"let", {}, {}, false}).message,
              "A group ref is required.");
    auto moved = ok<SnippetDTO>(N::snippetMove, SnippetMoveArgs{"let", {}, "post", false});
    ASSERT_TRUE(moved.group);
    EXPECT_EQ(moved.group->name, "Post");
    EXPECT_FALSE(ok<SnippetDTO>(N::snippetMove, SnippetMoveArgs{"let", {}, {}, true}).group);

    const auto dry = ok<DeleteResultDTO>(N::snippetDelete, RefArgs{"let", {}, true, {}});
    EXPECT_EQ(dry, (DeleteResultDTO{1, true, {original.id}}));
    EXPECT_EQ(ok<SnippetDTO>(N::snippetGet, GetArgs{"let", {}, true}).id, original.id);

    ok<DeleteResultDTO>(N::snippetDelete, RefArgs{"let", {}, false, {}});
    SnippetStore store(context());
    auto trashed = store.snippet(*Uuid::parse(original.id));
    ASSERT_TRUE(trashed);
    EXPECT_FALSE(trashed->isLive());

    ok<DeleteResultDTO>(N::snippetDelete, RefArgs{"Letter 2", {}, false, true});
    EXPECT_FALSE(store.snippet(*Uuid::parse(named.id)));
}

TEST_F(SnippetCommandTest, ListPagesTheWholeSortedList) {
    for (const auto* title : {"delta", "Alpha", "charlie", "Bravo", "echo"}) {
        create(title, std::string("k") + title);
    }
    struct Row {
        std::int64_t limit, offset;
        std::vector<std::string> titles;
        std::optional<std::int64_t> next;
    };
    const std::vector<Row> rows = {
        {2, 0, {"Alpha", "Bravo"}, 2},
        {2, 2, {"charlie", "delta"}, 4},
        {2, 4, {"echo"}, std::nullopt},
        {5, 0, {"Alpha", "Bravo", "charlie", "delta", "echo"}, std::nullopt},
        {2, 5, {}, std::nullopt},
        {2, 9, {}, std::nullopt},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::Message() << row.limit << "@" << row.offset);
        const auto page = ok<Page<SnippetDTO>>(N::snippetList, list(row.limit, row.offset));
        EXPECT_EQ(titles(page), row.titles);
        EXPECT_EQ(page.page.total, 5);
        EXPECT_EQ(page.page.nextOffset, row.next);
    }
    auto reversed = list(2, 0);
    reversed.order = "desc";
    EXPECT_EQ(titles(ok<Page<SnippetDTO>>(N::snippetList, reversed)),
              (std::vector<std::string>{"echo", "delta"}));
}

TEST_F(SnippetCommandTest, ListFiltersAndRefusals) {
    create("Alpha", "a", "first body");
    create("Beta", "b", "second BODY");
    ok<SnippetDTO>(N::snippetFavorite, FavoriteArgs{"b", {}, true});
    create("Gamma", "g");
    ok<DeleteResultDTO>(N::snippetDelete, RefArgs{"g", {}, false, {}});

    auto query = list(10, 0);
    query.query = "body";
    EXPECT_EQ(titles(ok<Page<SnippetDTO>>(N::snippetList, query)),
              (std::vector<std::string>{"Alpha", "Beta"}));
    auto favorites = list(10, 0);
    favorites.favoriteOnly = true;
    EXPECT_EQ(titles(ok<Page<SnippetDTO>>(N::snippetList, favorites)),
              (std::vector<std::string>{"Beta"}));
    auto trash = list(10, 0);
    trash.trashed = true;
    EXPECT_EQ(titles(ok<Page<SnippetDTO>>(N::snippetList, trash)),
              (std::vector<std::string>{"Gamma"}));

    auto badSort = list(10, 0);
    badSort.sort = "colour";
    EXPECT_EQ(fails(N::snippetList, badSort).code, "E_USAGE");
    auto clipFilter = list(10, 0);
    clipFilter.pinnedOnly = true;
    EXPECT_EQ(fails(N::snippetList, clipFilter).code, "E_USAGE");
}

TEST_F(SnippetCommandTest, SearchRanksKeywordThenTitleThenContent) {
    create("Notes", "mtg", "see the meeting notes");
    create("Meeting agenda", "agenda");
    create("Standup", "meeting");
    SearchArgs args;
    args.query = "meeting";
    args.limit = 10;
    const auto page = ok<Page<SnippetDTO>>(N::snippetSearch, args);
    ASSERT_EQ(page.items.size(), 3U);
    EXPECT_EQ(page.items[0].title, "Standup");
    EXPECT_EQ(page.items[0].matchType, "keyword");
    EXPECT_EQ(page.items[1].matchType, "title");
    EXPECT_EQ(page.items[2].matchType, "content");

    args.semantic = true;
    EXPECT_EQ(fails(N::snippetSearch, args).code, "E_CAPABILITY");
}

class ExpandTest : public SnippetCommandTest {
protected:
    ExpandArgs expand(const std::string& ref) {
        ExpandArgs args;
        args.ref = ref;
        args.timezone = "UTC";
        args.locale = "en_US";
        return args;
    }
};

TEST_F(ExpandTest, RendersWithEveryInputOfTheArguments) {
    ok<ProfileVarDTO>(N::profileSet, ProfileSetArgs{"name", "Ada"});
    ok<ProfileVarDTO>(N::profileSet, ProfileSetArgs{"city", "Paris"});
    create("Inner", "inner", "[in]");
    create("All", "all",
           "{@var|key=name@}/{@var|key=city@} {@clipboard@} {@selection|transform=uppercase@} "
           "{@date|format=yyyy-MM-dd HH:mm@} {@counter@}{@counter@} {@snippet|keyword=inner@} "
           "{@text|name=Who@}{@cursor@}.");
    auto args = expand("all");
    args.vars = {{"city", "Oslo"}};
    args.clipboard = "clip";
    args.selection = "sel";
    args.now = "2026-03-04T05:06:07Z";
    args.timezone = "Asia/Tokyo";
    args.counterStart = 7;
    args.fills = {{"Who", "Bob"}};
    const auto result = ok<ExpandResultDTO>(N::snippetExpand, args);
    EXPECT_EQ(result.text, "Ada/Oslo clip SEL 2026-03-04 14:06 78 [in] Bob.");
    EXPECT_EQ(result.cursorOffset, 46);
    EXPECT_TRUE(result.unresolvedFills.empty());
    EXPECT_TRUE(result.actions.stdOut);
    EXPECT_FALSE(result.usageRecorded);

    args.noClipboard = true;
    EXPECT_EQ(ok<ExpandResultDTO>(N::snippetExpand, args).text->substr(9, 2), " S");
}

TEST_F(ExpandTest, SeedMakesRandomRepeatable) {
    create("Dice", "dice", "{@random|min=1|max=1000000@}");
    auto args = expand("dice");
    args.seed = 42;
    EXPECT_EQ(ok<ExpandResultDTO>(N::snippetExpand, args).text,
              ok<ExpandResultDTO>(N::snippetExpand, args).text);
}

TEST_F(ExpandTest, FillsAreListedCheckedAndReported) {
    create("Order", "order", "{@text|name=Who|default=there@} {@select|name=Size|options=S,M,L@}");
    auto args = expand("order");
    args.listFills = true;
    args.fills = {{"Size", "M"}, {"Colour", "red"}};
    const auto response = send(N::snippetExpand, args);
    ASSERT_TRUE(response.ok);
    ASSERT_EQ(response.warnings.size(), 1U);
    EXPECT_EQ(response.warnings[0].code, "W_UNKNOWN_FILL");
    const auto listed = std::get<ExpandResultDTO>(decodeResult<ExpandResultDTO>(response));
    EXPECT_FALSE(listed.text);
    ASSERT_EQ(listed.fills.size(), 2U);
    EXPECT_EQ(listed.fills[0],
              (FillDTO{"Who", "text", std::nullopt, "there", std::nullopt, false}));
    EXPECT_EQ(listed.fills[1], (FillDTO{"Size", "choice", std::vector<std::string>{"S", "M", "L"},
                                        std::nullopt, "M", true}));
    EXPECT_EQ(listed.unresolvedFills, std::vector<std::string>{"Who"});

    args.listFills = false;
    EXPECT_EQ(ok<ExpandResultDTO>(N::snippetExpand, args).text, "there M");
    args.strictFills = true;
    const auto error = fails(N::snippetExpand, args);
    EXPECT_EQ(error.code, "E_VALIDATION");
    EXPECT_EQ(error.message, "No value was given for: Who.");
}

TEST_F(ExpandTest, AIPlaceholdersFallBackOrFailWhenStrict) {
    create("Reply", "reply", "Hi {@ai|prompt=greet|fallback=friend@}");
    auto args = expand("reply");
    const auto response = send(N::snippetExpand, args);
    ASSERT_TRUE(response.ok);
    EXPECT_EQ(response.warnings.size(), 1U);
    const auto result = std::get<ExpandResultDTO>(decodeResult<ExpandResultDTO>(response));
    EXPECT_EQ(result.text, "Hi friend");
    ASSERT_EQ(result.ai.size(), 1U);
    EXPECT_TRUE(result.ai[0].usedFallback);
    EXPECT_FALSE(result.ai[0].resolved);

    args.noAI = true;
    EXPECT_TRUE(send(N::snippetExpand, args).warnings.empty());
    args.noAI = false;
    args.strictAI = true;
    EXPECT_EQ(fails(N::snippetExpand, args).code, "E_CAPABILITY");
}

TEST_F(ExpandTest, DesktopActionsAndBadInputsAreRefused) {
    create("Plain", "plain", "x");
    struct Row {
        const char* name;
        std::function<void(ExpandArgs&)> change;
        std::string code;
    };
    const std::vector<Row> rows = {
        {"paste", [](ExpandArgs& a) { a.paste = true; }, "E_CAPABILITY"},
        {"copy", [](ExpandArgs& a) { a.copy = true; }, "E_CAPABILITY"},
        {"into", [](ExpandArgs& a) { a.into = "gedit"; }, "E_CAPABILITY"},
        {"date", [](ExpandArgs& a) { a.now = "yesterday"; }, "E_VALIDATION"},
        {"zone", [](ExpandArgs& a) { a.timezone = "Mars/Olympus"; }, "E_VALIDATION"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        auto args = expand("plain");
        row.change(args);
        const auto error = fails(N::snippetExpand, args);
        EXPECT_EQ(error.code, row.code);
        EXPECT_TRUE(error.message.ends_with(".")) << error.message;
    }
    auto paste = expand("plain");
    paste.paste = true;
    EXPECT_NE(fails(N::snippetExpand, paste).message.find("without a display"), std::string::npos);
}

struct DeliveryRow {
    const char* name;
    std::function<void(ExpandArgs&)> change;
    bool copied;
    bool pasted;
    std::vector<std::string> activated;
};

TEST_F(ExpandTest, WithADesktopTheTextIsCopiedOrPastedWhereAsked) {
    create("Greeting", "hi", "Hello there");
    FakeDesktopActions desktop;
    listener->environment().desktop = &desktop;
    const std::vector<DeliveryRow> rows = {
        {"copy", [](ExpandArgs& a) { a.copy = true; }, true, false, {}},
        {"paste", [](ExpandArgs& a) { a.paste = true; }, false, true, {}},
        {"into", [](ExpandArgs& a) { a.into = "gedit"; }, false, true, {"gedit"}},
        {"copy and paste", [](ExpandArgs& a) { a.copy = a.paste = true; }, true, true, {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        desktop = FakeDesktopActions();
        auto args = expand("hi");
        row.change(args);
        const auto result = ok<ExpandResultDTO>(N::snippetExpand, args);
        EXPECT_EQ(result.actions.copied, row.copied);
        EXPECT_EQ(result.actions.pasted, row.pasted);
        EXPECT_EQ(desktop.activations, row.activated);
        const auto& delivered = row.pasted ? desktop.pastes : desktop.copies;
        ASSERT_EQ(delivered.size(), 1U);
        const auto& payload = delivered[0].items.at(0).payloads.at(0);
        EXPECT_EQ(std::string(payload.data.begin(), payload.data.end()), "Hello there");
    }

    auto missing = expand("hi");
    missing.into = "nowhere";
    desktop.missingApplication = "nowhere";
    EXPECT_EQ(fails(N::snippetExpand, missing).code, "E_NOT_FOUND");
    auto refused = expand("hi");
    refused.paste = true;
    desktop.pasteRefusal = "Another application holds the keyboard, so Marlune cannot paste now.";
    const auto error = fails(N::snippetExpand, refused);
    EXPECT_EQ(error.code, "E_CAPABILITY");
    EXPECT_NE(error.message.find("holds the keyboard"), std::string::npos) << error.message;
}

TEST_F(ExpandTest, RecordUsageCountsAUse) {
    create("Used", "used", "x");
    auto args = expand("used");
    args.recordUsage = true;
    EXPECT_TRUE(ok<ExpandResultDTO>(N::snippetExpand, args).usageRecorded);
    const auto dto = ok<SnippetDTO>(N::snippetGet, GetArgs{"used", {}, true});
    EXPECT_EQ(dto.usageCount, 1);
    EXPECT_EQ(dto.lastUsedAt, "2026-09-21T14:13:20Z");
}

TEST_F(ExpandTest, GetRendersUnlessRaw) {
    ok<ProfileVarDTO>(N::profileSet, ProfileSetArgs{"name", "Ada"});
    create("Sign", "sign", "— {@var|key=name@}");
    EXPECT_EQ(ok<SnippetDTO>(N::snippetGet, GetArgs{"sign", {}, true}).content,
              "— {@var|key=name@}");
    EXPECT_EQ(ok<SnippetDTO>(N::snippetGet, GetArgs{"sign", {}, false}).content, "— Ada");
}

} // namespace
} // namespace marlune::test

namespace marlune::test {
namespace {

// A body sealed under a key that is not here must neither come out as "" nor be written over.
TEST_F(SnippetCommandTest, BodyTheKeyHereCannotOpenIsRefusedAndKeptThroughEdits) {
    const auto made = create("Letter", ";let", "Dear Ada");
    const std::string foreign = ClipCrypto(SymmetricKey::random()).sealText("Dear Ada");
    context().db().prepare("UPDATE Snippet SET content = ?1").bind(1, foreign).step();

    ExpandArgs expand;
    expand.ref = made.id;
    GetArgs get;
    get.ref = made.id;
    SnippetDuplicateArgs duplicate;
    duplicate.ref = made.id;
    duplicate.title = "Copy";
    for (const auto& error : {fails(N::snippetExpand, expand), fails(N::snippetGet, get),
                              fails(N::snippetDuplicate, duplicate)}) {
        EXPECT_EQ(error.code, "E_RUNTIME");
        EXPECT_NE(error.message.find("could not be opened"), std::string::npos) << error.message;
    }

    SnippetUpdateArgs rename;
    rename.ref = made.id;
    rename.title = "Renamed";
    ok<SnippetDTO>(N::snippetUpdate, rename);
    auto row = context().db().prepare("SELECT content, title FROM Snippet");
    ASSERT_TRUE(row.step());
    EXPECT_EQ(row.text(0), foreign);
}

} // namespace
} // namespace marlune::test
