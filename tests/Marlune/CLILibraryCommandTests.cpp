#include "CLIHarness.h"
#include "MarluneCLIProtocol/CLICommandName.h"
#include "MarluneCLIProtocol/LibraryRecords.h"
#include "MarluneCLIProtocol/SnippetRecords.h"
#include "MarluneCore/SnippetStore.h"

namespace marlune::test {
namespace {

namespace N = CLICommandName;

class LibraryCommandTest : public CLIHarness {
protected:
    GroupDTO group(const std::string& name, std::optional<std::string> parent = {}) {
        GroupWriteArgs args;
        args.name = name;
        args.parentRef = std::move(parent);
        return ok<GroupDTO>(N::groupCreate, args);
    }
    TagDTO tag(const std::string& name) {
        TagWriteArgs args;
        args.name = name;
        return ok<TagDTO>(N::tagCreate, args);
    }
    void snippet(const std::string& keyword, std::optional<std::string> groupRef,
                 std::vector<std::string> tags = {}) {
        SnippetCreateArgs args;
        args.title = keyword;
        args.keyword = keyword;
        args.groupRef = std::move(groupRef);
        args.tagRefs = std::move(tags);
        ok<SnippetDTO>(N::snippetCreate, args);
    }
};

TEST_F(LibraryCommandTest, GroupsReportParentsCountsAndOrder) {
    const auto work = group("Work");
    const auto mail = group("Mail", "Work");
    group("Home");
    snippet("a", "Work");
    snippet("b", "Mail");
    snippet("c", "Mail");
    snippet("d", "Mail");
    ok<DeleteResultDTO>(N::snippetDelete, RefArgs{"d", {}, false, {}});

    EXPECT_EQ(mail.parent, (GroupRefDTO{work.id, "Work"}));
    EXPECT_EQ(mail.iconSymbol, "folder");
    const auto got = ok<GroupDTO>(N::groupGet, GetArgs{"mail", {}, false});
    EXPECT_EQ(got.snippetCount, 2) << "snippets in the Trash are not counted";

    ListArgs list;
    list.limit = 10;
    list.sort = "name";
    const auto page = ok<Page<GroupDTO>>(N::groupList, list);
    ASSERT_EQ(page.items.size(), 3U);
    EXPECT_EQ(page.items[0].name, "Home");
    EXPECT_EQ(page.items[2].name, "Work");
    list.offset = 3;
    const auto past = ok<Page<GroupDTO>>(N::groupList, list);
    EXPECT_TRUE(past.items.empty());
    EXPECT_EQ(past.page.total, 3);
    EXPECT_FALSE(past.page.nextOffset);
}

TEST_F(LibraryCommandTest, GroupWritesAreChecked) {
    group("Work");
    group("Mail", "Work");
    struct Row {
        const char* name;
        std::string command;
        GroupWriteArgs args;
        std::string code;
        std::string message;
    };
    auto args = [](std::optional<std::string> ref, std::optional<std::string> name) {
        GroupWriteArgs a;
        a.ref = std::move(ref);
        a.name = std::move(name);
        return a;
    };
    auto colour = args({}, "Colourful");
    colour.colorRole = "magenta";
    auto cycle = args("Work", {});
    cycle.parentRef = "Mail";
    const std::vector<Row> rows = {
        {"no name", std::string(N::groupCreate), args({}, "  "), "E_VALIDATION",
         "A group needs a name."},
        {"name taken among siblings", std::string(N::groupCreate), args({}, "work"), "E_CONFLICT",
         "A group named \"Work\" already exists there."},
        {"unknown colour role", std::string(N::groupCreate), colour, "E_VALIDATION",
         "'magenta' is not a colour role."},
        {"update without ref", std::string(N::groupUpdate), args({}, "X"), "E_USAGE",
         "A group ref is required."},
        {"group inside its own child", std::string(N::groupUpdate), cycle, "E_VALIDATION",
         "A group can't be put inside itself."},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const auto error = fails(row.command, row.args);
        EXPECT_EQ(error.code, row.code);
        EXPECT_EQ(error.message, row.message);
    }
    // The same name under another parent is fine.
    group("Work", "Mail");
}

TEST_F(LibraryCommandTest, GroupUpdateAndDeleteWithSubGroups) {
    group("Work");
    group("Mail", "Work");
    group("Old", "Mail");
    snippet("a", "Old");
    GroupWriteArgs update;
    update.ref = "Mail";
    update.name = "Post";
    update.colorRole = "teal";
    update.iconSymbol = "envelope";
    const auto updated = ok<GroupDTO>(N::groupUpdate, update);
    EXPECT_EQ(updated.name, "Post");
    EXPECT_EQ(updated.colorRole, "teal");
    EXPECT_EQ(updated.iconSymbol, "envelope");

    const auto dry = ok<DeleteResultDTO>(N::groupDelete, RefArgs{"Post", {}, true, {}});
    EXPECT_EQ(dry.deletedCount, 2);
    EXPECT_TRUE(dry.dryRun);
    EXPECT_EQ(SnippetStore(context()).groups().size(), 3U);

    ok<DeleteResultDTO>(N::groupDelete, RefArgs{"Post", {}, false, {}});
    EXPECT_EQ(SnippetStore(context()).groups().size(), 1U);
    EXPECT_FALSE(ok<SnippetDTO>(N::snippetGet, GetArgs{"a", {}, true}).group);
}

TEST_F(LibraryCommandTest, TagsCountSnippetsAndRefuseDuplicates) {
    tag("Mail");
    snippet("a", {}, {"Mail"});
    snippet("b", {}, {"mail"});
    EXPECT_EQ(ok<TagDTO>(N::tagGet, GetArgs{"MAIL", {}, false}).snippetCount, 2);
    TagWriteArgs duplicate;
    duplicate.name = "mail";
    EXPECT_EQ(fails(N::tagCreate, duplicate).code, "E_CONFLICT");

    TagWriteArgs rename;
    rename.ref = "Mail";
    rename.name = "Post";
    rename.colorRole = "amber";
    const auto renamed = ok<TagDTO>(N::tagUpdate, rename);
    EXPECT_EQ(renamed.name, "Post");
    EXPECT_EQ(renamed.colorRole, "amber");

    ListArgs list;
    list.limit = 1;
    list.query = "os";
    const auto page = ok<Page<TagDTO>>(N::tagList, list);
    ASSERT_EQ(page.items.size(), 1U);
    EXPECT_EQ(page.page.total, 1);

    EXPECT_EQ(ok<DeleteResultDTO>(N::tagDelete, RefArgs{"Post", {}, false, {}}).deletedCount, 1);
    EXPECT_TRUE(ok<SnippetDTO>(N::snippetGet, GetArgs{"a", {}, true}).tags.empty());
    EXPECT_EQ(fails(N::tagGet, GetArgs{"Post", {}, false}).code, "E_NOT_FOUND");
}

} // namespace
} // namespace marlune::test
