#include "CLIHarness.h"
#include "MarluneCLIProtocol/CLICommandName.h"
#include "MarluneCLIProtocol/LibraryRecords.h"
#include "MarluneCLIProtocol/SnippetRecords.h"

namespace marlune::test {
namespace {

namespace N = CLICommandName;

class ResolverTest : public CLIHarness {
protected:
    ResolverTest() {
        sig = create("Email signature", "sig");
        create("Signature for letters", "sigl");
        create("Address", "addr");
        create("sig", "home"); // a title equal to another snippet's keyword
    }
    SnippetDTO create(const std::string& title, const std::string& keyword) {
        SnippetCreateArgs args;
        args.title = title;
        args.keyword = keyword;
        args.content = "Body of " + title;
        return ok<SnippetDTO>(N::snippetCreate, args);
    }
    SnippetDTO sig;
};

TEST_F(ResolverTest, SnippetReferencesFollowIdKeywordTitleSubstringOrder) {
    struct Row {
        const char* name;
        std::string ref;
        std::optional<std::string> by;
        std::string title; // expected match; empty when an error is expected
        std::string code;
        std::string message;
    };
    const std::vector<Row> rows = {
        {"id", sig.id, {}, "Email signature", "", ""},
        {"lower-case id", "", {}, "Email signature", "", ""},
        {"keyword beats an equal title", "sig", {}, "Email signature", "", ""},
        {"keyword ignores case", "SIG", {}, "Email signature", "", ""},
        {"by title skips keywords", "sig", "title", "sig", "", ""},
        {"exact title ignores case", "ADDRESS", {}, "Address", "", ""},
        {"title substring", "letters", {}, "Signature for letters", "", ""},
        {"substring on two titles is ambiguous",
         "Signature",
         {},
         "",
         "E_AMBIGUOUS",
         "'Signature' matches 2 snippets."},
        {"by keyword does not search titles", "Address", "keyword", "", "E_NOT_FOUND",
         "No snippet matches 'Address'."},
        {"by id refuses a keyword", "sig", "id", "", "E_NOT_FOUND", "No snippet matches 'sig'."},
        {"nothing matches", "zzz", {}, "", "E_NOT_FOUND", "No snippet matches 'zzz'."},
        {"empty ref", "", {}, "", "E_USAGE", "A snippet ref is required."},
        {"unknown by", "sig", "name", "", "E_USAGE", "'name' is not a way to name a snippet."},
    };
    for (auto row : rows) {
        SCOPED_TRACE(row.name);
        if (std::string(row.name) == "lower-case id") {
            row.ref = sig.id;
            std::transform(row.ref.begin(), row.ref.end(), row.ref.begin(), ::tolower);
        }
        GetArgs args{row.ref, row.by, true};
        if (row.code.empty()) {
            EXPECT_EQ(ok<SnippetDTO>(N::snippetGet, args).title, row.title);
        } else {
            const auto error = fails(N::snippetGet, args);
            EXPECT_EQ(error.code, row.code);
            EXPECT_EQ(error.message, row.message);
        }
    }
}

TEST_F(ResolverTest, ErrorsCarryTheirHints) {
    const auto missing = fails(N::snippetGet, GetArgs{"zzz", {}, true});
    EXPECT_EQ(missing.hint, "List them with `marlune snippet list`.");
    const auto ambiguous = fails(N::snippetGet, GetArgs{"Signature", {}, true});
    EXPECT_EQ(ambiguous.hint, "Pass an id, or disambiguate with --by.");
}

TEST_F(ResolverTest, TrashedSnippetsAreNotResolved) {
    ok<DeleteResultDTO>(N::snippetDelete, RefArgs{"addr", {}, false, {}});
    EXPECT_EQ(fails(N::snippetGet, GetArgs{"addr", {}, true}).code, "E_NOT_FOUND");
}

TEST_F(ResolverTest, GroupAndTagAmbiguityNamesThePluralKind) {
    for (const auto* name : {"Work", "Workshop"}) {
        GroupWriteArgs group;
        group.name = name;
        ok<GroupDTO>(N::groupCreate, group);
        TagWriteArgs tag;
        tag.name = name;
        ok<TagDTO>(N::tagCreate, tag);
    }
    EXPECT_EQ(ok<GroupDTO>(N::groupGet, GetArgs{"work", {}, false}).name, "Work");
    EXPECT_EQ(fails(N::groupGet, GetArgs{"Wor", {}, false}).message, "'Wor' matches 2 groups.");
    EXPECT_EQ(fails(N::tagGet, GetArgs{"Wor", {}, false}).message, "'Wor' matches 2 tags.");
    const auto missing = fails(N::tagGet, GetArgs{"Home", {}, false});
    EXPECT_EQ(missing.message, "No tag matches 'Home'.");
    EXPECT_EQ(missing.hint, "List them with `marlune tag list`.");
    EXPECT_EQ(fails(N::groupGet, GetArgs{" ", {}, false}).message, "A group ref is required.");
    EXPECT_EQ(fails(N::tagDelete, RefArgs{"", {}, false, {}}).message, "A tag ref is required.");
}

TEST_F(ResolverTest, NamesCompareByUnicodeCaseFolding) {
    create("Émile's note", "emile");
    EXPECT_EQ(ok<SnippetDTO>(N::snippetGet, GetArgs{"ÉMILE'S NOTE", {}, true}).keyword, "emile");
}

TEST_F(ResolverTest, CommandNamesAreCaseSensitive) {
    for (const auto* name : {"Ping", "PING", "snippet.List", "Snippet.get"}) {
        SCOPED_TRACE(name);
        const auto error = fails(name, EmptyArgs{});
        EXPECT_EQ(error.code, "E_USAGE");
        EXPECT_EQ(error.message, "Unknown command '" + std::string(name) + "'.");
    }
}

} // namespace
} // namespace marlune::test
