// A library that cannot be written (a full disk) or cannot be read (a damaged page): reads keep
// working on the first, start-up stops with one message on the second, and neither shows SQL.
#include "CLIHarness.h"
#include "Marlune/LibraryBootstrap.h"
#include "MarluneCLIProtocol/BoardRecords.h"
#include "MarluneCLIProtocol/CLICommandName.h"
#include "MarluneCLIProtocol/ClipRecords.h"
#include "MarluneCLIProtocol/SnippetRecords.h"
#include "MarluneCLIProtocol/SystemRecords.h"
#include "MarluneCore/ClipStore.h"
#include "MarluneCore/SnippetStore.h"
#include "support/DamagedLibrary.h"
#include "support/FakeKeyring.h"

namespace marlune::test {
namespace {

namespace N = CLICommandName;
namespace fs = std::filesystem;

// Words of SQL and of SQLite's own reports that must never reach a user.
void expectNoSQL(const std::string& message) {
    for (const char* word : {"SELECT", "INSERT", "UPDATE", "RELEASE", "SAVEPOINT", "marlune_sp",
                             "Statement", "sqlite", "SQLite", "malformed"}) {
        EXPECT_EQ(message.find(word), std::string::npos) << "\"" << word << "\" in: " << message;
    }
}

class LibraryWithoutWrites : public CLIHarness {
protected:
    LibraryWithoutWrites() {
        Snippet snippet = Snippet::make(testNow());
        snippet.title = "Signature";
        snippet.keyword = "sig";
        snippet.content = "Kind regards, {name}";
        SnippetStore(context()).create(snippet, testNow());
        NewClip clip;
        clip.previewText = "copied words";
        Representation plain;
        plain.utTypeIdentifier = "public.utf8-plain-text";
        plain.text = "copied words";
        clip.representations.push_back(plain);
        clipID = ClipStore(context(), {}).record(clip, testNow()).id.string();
        // The profile is left without its record: reading it must not make one.
    }

    // No new page can be had, as on a full disk: a write that grows the file fails.
    void fillTheDisk() {
        auto count = context().db().prepare("PRAGMA page_count");
        count.step();
        context().db().execute("PRAGMA max_page_count = " + std::to_string(count.int64(0)));
    }
    // Every write fails, even one that would fit in a page already there.
    void refuseAllWrites() { context().db().execute("PRAGMA query_only = 1"); }

    std::string clipID;
};

enum class WriteBlock { diskFull, everyWriteRefused };

class ReadsWithoutWrites : public LibraryWithoutWrites,
                           public ::testing::WithParamInterface<WriteBlock> {};

TEST_P(ReadsWithoutWrites, ReadCommandsWorkWhenNothingCanBeWritten) {
    ListArgs list;
    list.limit = 50;
    SearchArgs search;
    search.query = "regards";
    auto byRef = [](const std::string& ref) {
        GetArgs args;
        args.ref = ref;
        return args;
    };
    ExpandArgs expand; // renders with the profile's values
    expand.ref = "sig";
    expand.noClipboard = true;
    struct Read {
        std::string_view command;
        CLIRequest request;
        std::string code; // what a working read answers; empty when it succeeds
    };
    auto read = [](std::string_view command, const auto& args, std::string code = "") {
        return Read{command, makeRequest(command, args, "token"), std::move(code)};
    };
    const std::vector<Read> reads = {
        read(N::snippetList, list),
        read(N::snippetGet, byRef("sig")),
        read(N::snippetSearch, search),
        read(N::snippetExpand, expand),
        read(N::clipList, list),
        read(N::clipGet, byRef(clipID)),
        read(N::groupList, list),
        read(N::tagList, list),
        read(N::pinboardList, list),
        read(N::profileList, EmptyArgs{}),
        read(N::profileGet, KeyArgs{"name"}, "E_NOT_FOUND"),
        read(N::configList, ConfigGetArgs{}),
        read(N::configGet, ConfigGetArgs{"keywordPrefix", false}),
        read(N::trashList, TrashListArgs{}),
        read(N::ruleList, EmptyArgs{}),
        read(N::boardSections, EmptyArgs{}),
        read(N::boardList, BoardListArgs{}),
    };
    if (GetParam() == WriteBlock::diskFull) {
        fillTheDisk();
    } else {
        refuseAllWrites();
    }
    for (const auto& r : reads) {
        SCOPED_TRACE(r.command);
        const auto response = listener->dispatch(r.request);
        if (r.code.empty()) {
            EXPECT_TRUE(response.ok) << (response.error ? response.error->message : "");
        } else {
            ASSERT_TRUE(response.error);
            EXPECT_EQ(response.error->code, r.code) << response.error->message;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Blocks, ReadsWithoutWrites,
                         ::testing::Values(WriteBlock::diskFull, WriteBlock::everyWriteRefused),
                         [](const auto& testInfo) {
                             return testInfo.param == WriteBlock::diskFull ? "DiskFull"
                                                                           : "EveryWriteRefused";
                         });

TEST_F(LibraryWithoutWrites, FullDiskReachesTheToolAsASentenceAndPassesWhenSpaceIsBack) {
    SnippetCreateArgs args;
    args.title = "Letter";
    args.keyword = "let";
    args.content = std::string(64 * 1024, 'w'); // needs pages of its own
    fillTheDisk();

    const auto error = fails(N::snippetCreate, args);
    EXPECT_EQ(error.code, "E_RUNTIME");
    EXPECT_EQ(error.message, "The library could not be saved because the disk is full. Free some "
                             "space on the disk and try again.");
    expectNoSQL(error.message);
    EXPECT_FALSE(SnippetStore(context()).liveSnippet("let")) << "a failed write left a trace";

    context().db().execute("PRAGMA max_page_count = 1073741823");
    EXPECT_EQ(ok<SnippetDTO>(N::snippetCreate, args).keyword, "let");
}

TEST_F(LibraryWithoutWrites, ProfileFirstSetMakesTheRecordAndUndoRemovesIt) {
    ok<ProfileVarDTO>(N::profileSet, ProfileSetArgs{"name", "Ada"});
    EXPECT_EQ(ok<ProfileVarDTO>(N::profileGet, KeyArgs{"name"}).value, "Ada");
    ok<ProfileVarDTO>(N::profileSet, ProfileSetArgs{"email", "ada@example.org"});
    EXPECT_EQ(ok<std::vector<ProfileVarDTO>>(N::profileList, EmptyArgs{}).size(), 2U);
    context().undoManager().undo();
    context().undoManager().undo();
    EXPECT_TRUE(ok<std::vector<ProfileVarDTO>>(N::profileList, EmptyArgs{}).empty());
}

// Start-up over a library with a damaged page of its snippets.
class DamagedLibraryStart : public ::testing::TestWithParam<PageDamage> {
protected:
    OpenedLibrary open() {
        return openLibrary(
            [this](std::string_view name) -> std::optional<std::string> {
                if (name == "MARLUNE_HOME") {
                    return home.string();
                }
                return std::nullopt;
            },
            &keyring, std::chrono::system_clock::now());
    }

    TempDir dir;
    fs::path home = dir.path() / "home";
    FakeKeyring keyring;
};

TEST_P(DamagedLibraryStart, StopsWithTheDamagedLibraryMessageAndLeavesTheFileAlone) {
    {
        auto library = open();
        SnippetStore snippets(library.container->mainContext());
        for (int i = 0; i < 60; ++i) {
            Snippet s = Snippet::make(dateNow());
            s.keyword = "k" + std::to_string(i);
            s.content = std::string(1500, 'x'); // a few snippets a page, so there are many pages
            snippets.create(s, dateNow());
        }
    }
    LiveModelContainer::publish(nullptr); // the last holder of the connection
    const fs::path file = home / "Marlune.store";
    damageTablePage(file, GetParam().object, GetParam().page);
    const auto before = readFileBytes(file);

    try {
        open();
        ADD_FAILURE() << "a damaged library opened";
    } catch (const MarluneStoreError& error) {
        EXPECT_EQ(error.kind(), MarluneStoreError::Kind::damaged);
        const std::string message = containerFailureMessage(error);
        EXPECT_EQ(message, "Failed to create Marlune model container: The library file " +
                               file.string() +
                               " is damaged (part of it cannot be read). It was left untouched; "
                               "restore it from a backup or move it aside to start a new library.");
        expectNoSQL(message);
    }
    LiveModelContainer::publish(nullptr);
    EXPECT_EQ(readFileBytes(file), before);
}

INSTANTIATE_TEST_SUITE_P(Pages, DamagedLibraryStart, ::testing::ValuesIn(snippetPageDamages),
                         [](const auto& testInfo) { return std::string(testInfo.param.name); });

} // namespace
} // namespace marlune::test
