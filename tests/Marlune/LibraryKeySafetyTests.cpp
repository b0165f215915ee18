// A library whose content key has gone missing must not be opened with a new one: every sealed
// value would read as empty text, and the first edit would write it over the ciphertext.
#include "Marlune/LibraryBootstrap.h"
#include "MarluneCore/ContentKeyArchive.h"
#include "MarluneCore/Database.h"
#include "MarluneCore/SnippetStore.h"
#include "support/FakeKeyring.h"
#include "support/TempDir.h"

#include <filesystem>
#include <gtest/gtest.h>

namespace marlune {
namespace {

namespace fs = std::filesystem;

class LibraryKeySafety : public ::testing::Test {
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

    // The sealed body as stored, read without the library's code.
    std::string storedBody() {
        Database db = Database::open(home / "Marlune.store", Database::OpenMode::readOnly);
        auto row = db.prepare("SELECT content FROM Snippet");
        return row.step() ? row.text(0) : std::string();
    }

    test::TempDir dir;
    fs::path home = dir.path() / "home";
    test::FakeKeyring keyring;
};

TEST_F(LibraryKeySafety, MovedKeyFileStopsTheStartAndLeavesTheContentAsItWas) {
    keyring.unavailable = true;
    {
        auto library = open();
        auto snippet = Snippet::make(dateNow());
        snippet.title = "Signature";
        snippet.keyword = "sig";
        snippet.content = "Kind regards, Ada";
        SnippetStore(library.container->mainContext()).create(snippet, dateNow());
    }
    const std::string sealed = storedBody();
    ASSERT_FALSE(sealed.empty());
    fs::rename(home / "content-key", dir / "saved-content-key");

    try {
        open();
        ADD_FAILURE() << "opened with a new key";
    } catch (const ContentKeyError& error) {
        const std::string message = error.what();
        EXPECT_NE(message.find("content key that is not here"), std::string::npos) << message;
        EXPECT_NE(message.find((home / "content-key").string()), std::string::npos) << message;
        EXPECT_NE(message.find("--start-new-library"), std::string::npos) << message;
    }
    EXPECT_EQ(storedBody(), sealed);
    EXPECT_FALSE(fs::exists(home / "content-key")) << "the key made at that start is gone";

    // The key brought back opens the library as before.
    fs::rename(dir / "saved-content-key", home / "content-key");
    auto library = open();
    const auto snippets =
        SnippetStore(library.container->mainContext()).list(SnippetSortMode::lastEdited);
    ASSERT_EQ(snippets.size(), 1U);
    EXPECT_EQ(snippets[0].content, "Kind regards, Ada");
}

TEST_F(LibraryKeySafety, StartingANewLibraryKeepsTheOldOneAsideUntouched) {
    keyring.unavailable = true;
    {
        auto library = open();
        auto snippet = Snippet::make(dateNow());
        snippet.title = "Old";
        snippet.content = "sealed under the lost key";
        SnippetStore(library.container->mainContext()).create(snippet, dateNow());
    }
    const std::string sealed = storedBody();
    fs::remove(home / "content-key");
    EXPECT_THROW(open(), ContentKeyError);

    const auto aside = setLibraryAside(
        [this](std::string_view name) -> std::optional<std::string> {
            return name == "MARLUNE_HOME" ? std::optional<std::string>(home.string())
                                          : std::nullopt;
        },
        std::chrono::system_clock::now());
    ASSERT_FALSE(aside.empty());
    EXPECT_NE(aside.filename().string().find("(set aside "), std::string::npos);
    {
        Database db = Database::open(aside / "Marlune.store", Database::OpenMode::readOnly);
        auto row = db.prepare("SELECT content FROM Snippet");
        ASSERT_TRUE(row.step());
        EXPECT_EQ(row.text(0), sealed);
    }
    auto library = open();
    EXPECT_TRUE(
        SnippetStore(library.container->mainContext()).list(SnippetSortMode::lastEdited).empty());
}

TEST_F(LibraryKeySafety, ANewLibraryStillGetsANewKey) {
    keyring.unavailable = true;
    auto library = open();
    EXPECT_EQ(library.keySource, ContentKeySource::fileCreated);
    EXPECT_TRUE(fs::exists(home / "content-key"));
}

} // namespace
} // namespace marlune
