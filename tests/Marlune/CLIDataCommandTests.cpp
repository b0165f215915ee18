#include "CLIHarness.h"
#include "Marlune/LibraryPortability.h"
#include "MarluneCLIProtocol/CLICommandName.h"
#include "MarluneCLIProtocol/ClipRecords.h"
#include "MarluneCLIProtocol/DataRecords.h"
#include "MarluneCLIProtocol/SnippetRecords.h"
#include "MarluneCore/Uuid.h"

namespace marlune::test {
namespace {

class CLIDataCommands : public CLIHarness {
protected:
    SnippetDTO create(const std::string& title, const std::string& keyword) {
        SnippetCreateArgs args;
        args.title = title;
        args.keyword = keyword;
        args.content = "text of " + title;
        return ok<SnippetDTO>(CLICommandName::snippetCreate, args);
    }
};

TEST_F(CLIDataCommands, ExportTakesTheKindsAskedForOrEverything) {
    create("Signature", "sig");
    DataExportArgs none;
    const auto everything = ok<DataDocumentDTO>(CLICommandName::dataExport, none);
    EXPECT_EQ(everything.schemaVersion, 2);
    EXPECT_EQ(everything.snippets->size(), 1U);
    EXPECT_TRUE(everything.groups && everything.tags && everything.pinboards &&
                everything.profile && everything.settings);

    DataExportArgs tagsOnly;
    tagsOnly.tags = true;
    const auto some = ok<DataDocumentDTO>(CLICommandName::dataExport, tagsOnly);
    EXPECT_FALSE(some.snippets);
    EXPECT_TRUE(some.tags);
    EXPECT_FALSE(some.settings);
}

TEST_F(CLIDataCommands, ImportWarnsOncePerClashingKeyword) {
    create("Signature", "sig");
    create("Address", "addr");
    DataExportArgs snippetsOnly;
    snippetsOnly.snippets = true;
    auto document = ok<DataDocumentDTO>(CLICommandName::dataExport, snippetsOnly);
    // The same snippets under new ids: every keyword now has two holders.
    for (auto& snippet : *document.snippets) {
        snippet.id = Uuid::random().string();
    }
    DataImportArgs args;
    args.document = LibraryPortability::encode(document);
    args.merge = true;
    const auto response = send(CLICommandName::dataImport, args);
    ASSERT_TRUE(response.ok);
    ASSERT_EQ(response.warnings.size(), 2U);
    EXPECT_EQ(response.warnings[0].code, "W_DUPLICATE_KEYWORD");
    EXPECT_EQ(response.warnings[0].message,
              "The keyword ;addr would belong to two snippets — only one of them expands. Rename "
              "one after importing.");
    const auto result = std::get<DataImportResultDTO>(decodeResult<DataImportResultDTO>(response));
    EXPECT_EQ(result.createdSnippets, 2);
}

TEST_F(CLIDataCommands, ImportFailuresSayWhy) {
    const struct {
        const char* fault;
        DataImportArgs args;
        std::string code;
        std::string message;
    } cases[] = {
        {"not a document",
         {"{\"hello\": 1}", false, false, false},
         "E_VALIDATION",
         "That file isn't a valid Marlune export."},
        {"replace without snippets",
         {"{\"schemaVersion\": 2, \"tags\": []}", false, true, false},
         "E_VALIDATION",
         "Replacing needs a file with at least one snippet — otherwise every snippet would move "
         "to the Trash."},
        {"merge and replace",
         {"{\"schemaVersion\": 2}", true, true, false},
         "E_USAGE",
         "Choose merging or replacing, not both."},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fault);
        const auto error = fails(CLICommandName::dataImport, c.args);
        EXPECT_EQ(error.code, c.code);
        EXPECT_EQ(error.message, c.message);
    }
}

TEST_F(CLIDataCommands, ClipImportAddsToTheHistoryUnlessDryRun) {
    ClipDTO clip;
    clip.primaryKind = "text";
    RepresentationDTO text;
    text.utType = "public.utf8-plain-text";
    text.hasText = true;
    text.text = "imported words";
    clip.representations = {text};
    const auto count = [this] {
        auto stmt = context().db().prepare("SELECT count(*) FROM Clip");
        stmt.step();
        return stmt.int64(0);
    };
    CLIJSON args = {{"clips", CLIJSON::array({encodeWire(clip)})}, {"dryRun", true}};
    const auto request = [&] {
        CLIRequest r = makeRequest(CLICommandName::clipImport, EmptyArgs{}, "token");
        r.argsJSON = args.dump();
        return listener->dispatch(r);
    };
    ASSERT_TRUE(request().ok);
    EXPECT_EQ(count(), 0);
    args["dryRun"] = false;
    ASSERT_TRUE(request().ok);
    EXPECT_EQ(count(), 1);

    args["clips"][0]["primaryKind"] = "hologram";
    const auto refused = request();
    ASSERT_FALSE(refused.ok);
    EXPECT_EQ(refused.error->message, "Clip 1 has the unknown kind 'hologram'.");
}

} // namespace
} // namespace marlune::test
