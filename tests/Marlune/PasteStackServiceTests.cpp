#include "Marlune/PasteStackService.h"
#include "MarluneCore/BatchActions.h"
#include "MarluneCore/ClipStore.h"
#include "MarluneCore/SnippetStore.h"
#include "support/FakeDesktopActions.h"
#include "support/FakeHotKeys.h"
#include "support/LibraryFixture.h"
#include "support/ManualScheduler.h"

#include <gtest/gtest.h>

namespace marlune {
namespace {

using namespace std::chrono_literals;
using V = std::vector<std::string>;

class PasteStackServiceTest : public ::testing::Test {
protected:
    PasteStackServiceTest() {
        MainActor::adoptCurrentThread();
        service.setToast([this](std::string_view message) { toasts.emplace_back(message); });
    }

    ModelContext& context() { return library.context(); }

    PasteStackEntry clip(const std::string& text) {
        NewClip input;
        input.previewText = text;
        Representation plain;
        plain.utTypeIdentifier = "public.utf8-plain-text";
        plain.text = text;
        input.representations.push_back(plain);
        Representation html;
        html.utTypeIdentifier = "public.html";
        html.text = "<p>" + text + "</p>";
        input.representations.push_back(html);
        return PasteStackClip{ClipStore(context(), {}).record(input, test::testNow()).id};
    }

    // The text of each paste the desktop was asked for, in order.
    V pastedTexts() const {
        V out;
        for (const auto& paste : desktop.pastes) {
            const auto& data = paste.items.at(0).payloads.at(0).data;
            out.emplace_back(data.begin(), data.end());
        }
        return out;
    }

    // The user presses Ctrl+V and lets go; the paste follows once the key is up.
    void pressPaste() {
        ASSERT_TRUE(hotKeys.press(PasteStackService::pasteChord));
        scheduler.advance(PasteStackService::pasteDelay);
    }

    test::Library library;
    std::shared_ptr<PasteStackModel> model = std::make_shared<PasteStackModel>();
    test::FakeHotKeys hotKeys;
    test::FakeDesktopActions desktop;
    test::ManualScheduler scheduler;
    PasteStackService service{library.context(), model,     hotKeys,
                              desktop,           scheduler, [] { return test::testNow(); }};
    V toasts;
};

TEST_F(PasteStackServiceTest, EachPasteKeyTakesTheNextItemAndTheStackDisarmsWhenEmpty) {
    for (const auto* text : {"first", "second", "third"}) {
        ASSERT_TRUE(service.add(clip(text)));
    }
    EXPECT_EQ(toasts, (V{"Added to the Paste Stack", "Added to the Paste Stack",
                         "Added to the Paste Stack"}));
    EXPECT_FALSE(hotKeys.isRegistered(PasteStackService::pasteChord));
    ASSERT_EQ(service.start(), std::nullopt);
    EXPECT_TRUE(hotKeys.isRegistered(PasteStackService::pasteChord));

    pressPaste();
    // While our own paste goes through, the shortcut is not ours: it must reach the window.
    EXPECT_FALSE(hotKeys.isRegistered(PasteStackService::pasteChord));
    scheduler.advance(PasteStackService::rearmDelay);
    EXPECT_TRUE(hotKeys.isRegistered(PasteStackService::pasteChord));
    pressPaste();
    scheduler.advance(PasteStackService::rearmDelay);
    pressPaste();

    EXPECT_EQ(pastedTexts(), (V{"first", "second", "third"}));
    // Every flavour of the clip goes to the paste.
    EXPECT_EQ(desktop.pastes[0].items[0].payloads.size(), 2U);
    EXPECT_FALSE(service.isArmed());
    scheduler.advance(PasteStackService::rearmDelay);
    EXPECT_FALSE(hotKeys.isRegistered(PasteStackService::pasteChord));
}

TEST_F(PasteStackServiceTest, DeletedEntriesAreSkippedAndARefusedPasteKeepsTheItem) {
    const auto gone = clip("gone");
    service.add(gone);
    service.add(clip("kept"));
    BatchActions::deleteClips(context(), {std::get<PasteStackClip>(gone).id});
    service.start();

    desktop.pasteRefusal = "Another application holds the keyboard, so Marlune cannot paste now.";
    hotKeys.press(PasteStackService::pasteChord);
    // Tried again while the key may still be held, then the user is told.
    scheduler.advance(PasteStackService::pasteDelay * (PasteStackService::pasteAttempts + 1));
    EXPECT_EQ(toasts.back(), *desktop.pasteRefusal);
    ASSERT_EQ(model->count(), 1U);
    EXPECT_EQ(model->entries()[0].preview, "kept");
    EXPECT_TRUE(service.isArmed());

    desktop.pasteRefusal.reset();
    scheduler.advance(PasteStackService::rearmDelay);
    pressPaste();
    EXPECT_EQ(pastedTexts(), (V{"kept"}));
    EXPECT_FALSE(service.isArmed());
}

TEST_F(PasteStackServiceTest, StartRefusesAnEmptyStackOrATakenShortcut) {
    EXPECT_EQ(service.start(), "The Paste Stack is empty.");
    service.add(clip("x"));
    hotKeys.taken = "Ctrl+V is taken by another application.";
    EXPECT_EQ(service.start(), "Ctrl+V is taken by another application.");
    EXPECT_FALSE(service.isArmed());
    hotKeys.taken.reset();
    EXPECT_EQ(service.start(), std::nullopt);

    // Clearing, from the menu or from the command line, disarms.
    service.clear();
    EXPECT_FALSE(service.isArmed());
    EXPECT_FALSE(hotKeys.isRegistered(PasteStackService::pasteChord));
    service.add(clip("y"));
    service.start();
    model->clear();
    EXPECT_FALSE(service.isArmed());
}

TEST_F(PasteStackServiceTest, SnippetsPasteTheirRenderedTextAndAFullStackSaysSo) {
    Snippet snippet = Snippet::make(test::testNow());
    snippet.title = "Greeting";
    snippet.keyword = "hi";
    snippet.content = "Hello {@snippet|keyword=sig@}";
    snippet = SnippetStore(context()).create(snippet, test::testNow());
    Snippet sig = Snippet::make(test::testNow());
    sig.title = "Signature";
    sig.keyword = "sig";
    sig.content = "Ada";
    SnippetStore(context()).create(sig, test::testNow());
    service.add(PasteStackSnippet{snippet.id});
    EXPECT_EQ(model->entries()[0].preview, "Greeting");
    EXPECT_EQ(service.pasteNext(), std::nullopt);
    EXPECT_EQ(pastedTexts(), (V{"Hello Ada"}));

    for (std::size_t i = 0; i < PasteStackModel::capacity; ++i) {
        service.add(clip("c" + std::to_string(i)));
    }
    toasts.clear();
    EXPECT_FALSE(service.add(clip("one more")));
    EXPECT_EQ(toasts, (V{"The Paste Stack is full: it holds 20 items."}));
    EXPECT_FALSE(service.add(PasteStackClip{Uuid::random()}));
}

TEST(PasteStackLibrary, ReopenedQueueKeepsItsOrderAndMarksDeletedItems) {
    MainActor::adoptCurrentThread();
    test::Library library;
    std::vector<Uuid> ids;
    for (const auto* text : {"one", "two", "three"}) {
        NewClip input;
        input.previewText = text;
        Representation plain;
        plain.utTypeIdentifier = "public.utf8-plain-text";
        plain.text = text;
        input.representations.push_back(plain);
        ids.push_back(ClipStore(library.context(), {}).record(input, test::testNow()).id);
    }
    {
        auto model = PasteStackLibrary::open(library.dir.path(), library.context());
        for (const auto& id : ids) {
            model->push(PasteStackClip{id}, "", "");
        }
    }
    BatchActions::deleteClips(library.context(), {ids[1]});
    auto reopened = PasteStackLibrary::open(library.dir.path(), library.context());
    V previews;
    for (const auto& item : reopened->entries()) {
        previews.push_back(item.preview);
    }
    EXPECT_EQ(previews, (V{"one", "Deleted item", "three"}));
}

} // namespace
} // namespace marlune
