#include "AppUI/QtClipboardAccess.h"
#include "support/Desktop.h"
#include "support/Process.h"
#include "support/TempDir.h"

#include <QBuffer>
#include <QClipboard>
#include <QGuiApplication>
#include <QImage>
#include <algorithm>
#include <chrono>
#include <future>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace marlune {
namespace {

using namespace std::chrono_literals;
using Payload = PasteboardSnapshot::Payload;

QGuiApplication* application = nullptr;

std::string pngBytes() {
    QImage image(5, 4, QImage::Format_ARGB32);
    image.fill(QColor(20, 120, 200, 90));
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes.toStdString();
}

// A 1×1 GIF, written out by hand: no image library of ours reads or writes GIF, so only its
// bytes can bring it back.
std::string gifBytes() {
    static constexpr unsigned char gif[] = {
        0x47, 0x49, 0x46, 0x38, 0x39, 0x61, 0x01, 0x00, 0x01, 0x00, 0x80, 0x00, 0x00, 0xff, 0xff,
        0xff, 0x00, 0x00, 0x00, 0x21, 0xf9, 0x04, 0x01, 0x00, 0x00, 0x00, 0x00, 0x2c, 0x00, 0x00,
        0x00, 0x00, 0x01, 0x00, 0x01, 0x00, 0x00, 0x02, 0x02, 0x44, 0x01, 0x00, 0x3b};
    return {reinterpret_cast<const char*>(gif), sizeof gif};
}

// Several MiB of lines, not all ASCII.
std::string longText(std::size_t size) {
    std::string text;
    text.reserve(size + 64);
    for (int line = 0; text.size() < size; ++line) {
        text += "Zeile " + std::to_string(line) +
                ": Gr\xc3\xbc\xc3\x9f"
                "e aus K\xc3\xb6ln\n";
    }
    text.resize(size);
    return text;
}

std::string describe(const std::optional<std::string>& bytes) {
    if (!bytes) {
        return "nothing";
    }
    return bytes->size() > 80 ? std::to_string(bytes->size()) + " bytes" : '"' + *bytes + '"';
}

class DesktopClipboardTargets : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        application = test::startQtOnTestDisplay("DesktopClipboardTargetsTests");
    }
    static void TearDownTestSuite() {
        delete application;
        application = nullptr;
    }

    void SetUp() override {
        if (application == nullptr) {
            GTEST_SKIP() << "DISPLAY is not set: run through scripts/test-session.sh, which "
                            "starts an X server.";
        }
        xclip_ = test::findProgram("xclip");
        if (xclip_.empty()) {
            GTEST_SKIP() << "xclip is not installed.";
        }
        clipboard = std::make_unique<QtClipboardAccess>();
        clipboard->setPullHandler([this] { ++pulls; });
    }

    void TearDown() override {
        owners.clear(); // ends every owner we started
    }

    // Another application takes the clipboard (or PRIMARY) with one target, through xclip.
    void xclipOwner(const std::string& type, const std::string& bytes,
                    const std::string& selection = "clipboard") {
        const auto file = dir / ("copy-" + std::to_string(owners.size()));
        test::writeFileBytes(file, bytes);
        startOwner({xclip_, "-selection", selection, "-t", type, "-quiet", file.string()},
                   selection == "clipboard");
    }
    void startOwner(const std::vector<std::string>& argv, bool clipboardOwner = true) {
        const std::int64_t before = clipboard->changeCount();
        const int selectionsBefore = selectionChanges;
        const auto log = dir / ("owner-" + std::to_string(owners.size()) + ".log");
        owners.push_back(std::make_unique<test::BackgroundProcess>(
            argv, std::map<std::string, std::string>{}, log));
        ASSERT_TRUE(test::pumpUntil(
            [&] {
                return clipboardOwner ? clipboard->changeCount() != before
                                      : selectionChanges != selectionsBefore;
            },
            10s))
            << "the owner never took the selection: " << owners.back()->log();
    }

    // What a client reading the selection gets for `target`; nothing when the read fails.
    // xclip waits for the owner's answer and the owner may be this process, so it runs
    // beside the event loop.
    std::optional<std::string> read(const std::string& target,
                                    const std::string& selection = "clipboard") {
        const std::vector<std::string> argv{xclip_, "-o", "-selection", selection, "-t", target};
        auto reading = std::async(std::launch::async, [argv] { return test::runProcess(argv); });
        EXPECT_TRUE(
            test::pumpUntil([&] { return reading.wait_for(0s) == std::future_status::ready; }, 20s))
            << "xclip never finished reading " << target;
        const test::ProcessResult result = reading.get();
        if (result.exitStatus != 0) {
            return std::nullopt;
        }
        return result.out;
    }

    // The content targets on offer, protocol targets aside.
    std::set<std::string> offered() {
        std::set<std::string> targets;
        std::istringstream lines(read("TARGETS").value_or(""));
        for (std::string line; std::getline(lines, line);) {
            if (line != "TARGETS" && line != "TIMESTAMP" && line != "MULTIPLE" &&
                line != "SAVE_TARGETS") {
                targets.insert(line);
            }
        }
        return targets;
    }

    test::TempDir dir;
    std::unique_ptr<QtClipboardAccess> clipboard;
    int pulls = 0;
    int selectionChanges = 0;
    std::vector<std::unique_ptr<test::BackgroundProcess>> owners;
    std::string xclip_;
};

TEST_F(DesktopClipboardTargets, EveryTextTargetAnswersWithItsTextAndCountsAsAPull) {
    struct Case {
        const char* name;
        std::vector<Payload> payloads;
        std::map<std::string, std::string> answers; // target → bytes
    };
    const std::string utf8 = "na\xc3\xafve caf\xc3\xa9 \xe2\x82\xac"; // naïve café €
    const std::string latin1 = "na\xefve caf\xe9 ?";                  // € is not Latin-1
    const Case cases[] = {
        {"UTF-8 text with the concealment markers",
         {Payload::fromText("text/plain;charset=utf-8", utf8),
          Payload::fromText("x-kde-passwordManagerHint", "secret"),
          Payload::fromText("org.nspasteboard.ConcealedType", "")},
         {{"UTF8_STRING", utf8},
          {"text/plain", utf8},
          {"text/plain;charset=utf-8", utf8},
          {"STRING", latin1},
          {"TEXT", latin1},
          {"x-kde-passwordManagerHint", "secret"},
          {"org.nspasteboard.ConcealedType", ""}}},
        {"STRING with bytes of its own",
         {Payload::fromText("UTF8_STRING", utf8), Payload::fromText("STRING", "naive cafe EUR")},
         {{"UTF8_STRING", utf8},
          {"text/plain", utf8},
          {"text/plain;charset=utf-8", utf8},
          {"STRING", "naive cafe EUR"},
          {"TEXT", latin1}}},
        {"Latin-1 text only",
         {Payload::fromText("STRING", "caf\xe9")},
         {{"UTF8_STRING", "caf\xc3\xa9"},
          {"text/plain", "caf\xc3\xa9"},
          {"text/plain;charset=utf-8", "caf\xc3\xa9"},
          {"STRING", "caf\xe9"},
          {"TEXT", "caf\xe9"}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        clipboard->write(PasteboardSnapshot::fromItems({{c.payloads}}));
        const auto targets = offered();
        for (const auto& [target, bytes] : c.answers) {
            SCOPED_TRACE(target);
            EXPECT_TRUE(targets.contains(target));
            const int before = pulls;
            EXPECT_EQ(read(target), bytes);
            EXPECT_TRUE(test::pumpUntil([&] { return pulls > before; }, 2s))
                << "reading " << target << " was not noticed as a pull";
        }
    }
}

TEST_F(DesktopClipboardTargets, SavedClipboardComesBackTargetForTargetByteForByte) {
    const std::string path = MARLUNE_CLIPBOARD_OWNER;
    struct Case {
        const char* name;
        std::vector<std::string> owner; // empty: xclip with `type` and `bytes`
        std::string type;
        std::string bytes;
    };
    const Case cases[] = {
        {"UTF-8 text",
         {},
         "UTF8_STRING",
         "Gr\xc3\xbc\xc3\x9f"
         "e aus K\xc3\xb6ln \xf0\x9f\x98\x80"},
        {"PNG image", {}, "image/png", pngBytes()},
        {"GIF image", {}, "image/gif", gifBytes()},
        {"files copied in a file manager",
         {path, "text/uri-list=file:///tmp/report.pdf\r\nfile:///tmp/notes%20draft.txt\r\n",
          "x-special/gnome-copied-files=copy\nfile:///tmp/report.pdf\nfile:///tmp/"
          "notes%20draft.txt"},
         "",
         ""},
        {"9 MB of text", {}, "UTF8_STRING", longText(9'000'000)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        if (c.owner.empty()) {
            xclipOwner(c.type, c.bytes);
        } else {
            startOwner(c.owner);
        }
        const auto originalTargets = offered();
        ASSERT_FALSE(originalTargets.empty());
        std::map<std::string, std::optional<std::string>> original;
        for (const auto& target : originalTargets) {
            original[target] = read(target);
        }

        const ClipboardSave save = clipboard->saveWhole();
        ASSERT_TRUE(std::holds_alternative<PasteboardSnapshot>(save))
            << std::get<ClipboardSaveFailed>(save).message;
        const auto& saved = std::get<PasteboardSnapshot>(save);
        std::set<std::string> savedTypes;
        for (const auto& payload : saved.items.at(0).payloads) {
            savedTypes.insert(payload.type);
        }
        EXPECT_EQ(savedTypes, originalTargets);

        clipboard->write(PasteboardSnapshot::fromItems(
            {{{Payload::fromText("text/plain;charset=utf-8", "expanded snippet")}}}));
        EXPECT_EQ(read("UTF8_STRING"), "expanded snippet");
        clipboard->write(saved);

        const auto restoredTargets = offered();
        for (const auto& [target, bytes] : original) {
            SCOPED_TRACE(target);
            EXPECT_TRUE(restoredTargets.contains(target));
            const auto again = read(target);
            EXPECT_TRUE(again == bytes) << describe(again) << " instead of " << describe(bytes);
        }
    }
}

TEST_F(DesktopClipboardTargets, EmptyClipboardIsSavedEmptyAndPutBackEmpty) {
    QGuiApplication::clipboard()->clear(QClipboard::Clipboard);
    ASSERT_EQ(read("TARGETS"), std::nullopt) << "something still holds the clipboard";

    const ClipboardSave save = clipboard->saveWhole();
    ASSERT_TRUE(std::holds_alternative<PasteboardSnapshot>(save));
    EXPECT_TRUE(std::get<PasteboardSnapshot>(save).empty());

    clipboard->write(PasteboardSnapshot::fromItems(
        {{{Payload::fromText("text/plain;charset=utf-8", "expanded snippet")}}}));
    ASSERT_EQ(read("UTF8_STRING"), "expanded snippet");
    clipboard->write(std::get<PasteboardSnapshot>(save));
    EXPECT_EQ(read("TARGETS"), std::nullopt);
    EXPECT_FALSE(QGuiApplication::clipboard()->ownsClipboard());
}

TEST_F(DesktopClipboardTargets, ClipboardThatCannotBeKeptWholeFailsTheSave) {
    const std::string path = MARLUNE_CLIPBOARD_OWNER;
    const auto half = dir / "half";
    test::writeFileBytes(half, std::string(33 << 20, 'x'));
    struct Case {
        const char* name;
        std::vector<std::string> owner; // empty: xclip with 65 MiB
        const char* message;
    };
    const Case cases[] = {
        {"one target over the limit", {}, "more than 64 MiB"},
        {"two targets over the limit together",
         {path, "--from-file", "application/octet-stream=" + half.string(), "--from-file",
          "application/x-other=" + half.string()},
         "more than 64 MiB"},
        {"an owner that never answers", {path, "--freeze", "text/plain=stuck"}, "in time"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        if (c.owner.empty()) {
            xclipOwner("application/octet-stream", std::string(65 << 20, 'y'));
        } else {
            startOwner(c.owner);
        }
        const ClipboardSave save = clipboard->saveWhole();
        ASSERT_TRUE(std::holds_alternative<ClipboardSaveFailed>(save));
        EXPECT_NE(std::get<ClipboardSaveFailed>(save).message.find(c.message), std::string::npos)
            << std::get<ClipboardSaveFailed>(save).message;
    }
}

TEST_F(DesktopClipboardTargets, OwnerWithholdingItsDataCostsTheMainThreadOneShortWaitAtMost) {
    startOwner({MARLUNE_CLIPBOARD_OWNER, "--withhold-data", "text/plain=withheld"});
    const auto timed = [](auto read) {
        const auto started = std::chrono::steady_clock::now();
        read();
        return std::chrono::steady_clock::now() - started;
    };
    ClipboardSave save;
    // The first read waits out the budget, for all targets together...
    const auto first = timed([&] { save = clipboard->saveWhole(); });
    ASSERT_TRUE(std::holds_alternative<ClipboardSaveFailed>(save));
    EXPECT_NE(std::get<ClipboardSaveFailed>(save).message.find("in time"), std::string::npos);
    EXPECT_LT(first, QtClipboardAccess::mainThreadReadBudget + 500ms);
    // ...and the owner, still holding the clipboard, is not waited for again.
    const auto second = timed([&] { save = clipboard->saveWhole(); });
    EXPECT_TRUE(std::holds_alternative<ClipboardSaveFailed>(save));
    PasteboardSnapshot snapshot;
    const auto third = timed([&] { snapshot = clipboard->snapshot(); });
    EXPECT_TRUE(snapshot.empty());
    EXPECT_LT(second + third, 200ms);

    // Another owner's copy is read as usual.
    xclipOwner("UTF8_STRING", "answered");
    save = clipboard->saveWhole();
    ASSERT_TRUE(std::holds_alternative<PasteboardSnapshot>(save));
    EXPECT_EQ(std::get<PasteboardSnapshot>(save).items.at(0).payloads.at(0).type, "UTF8_STRING");
}

TEST_F(DesktopClipboardTargets, TextOverTheCaptureCapIsLeftOutAndItsOwnerStillServesOthers) {
    // xclip sends it in pieces and serves nobody else until the last one is taken.
    const std::string text = longText(9'000'000);
    xclipOwner("UTF8_STRING", text);
    std::optional<ClipboardCaptureRead> captured;
    clipboard->readForCapture({}, [&](ClipboardCaptureRead done) { captured = std::move(done); });
    ASSERT_TRUE(test::pumpUntil([&] { return captured.has_value(); }, 5s));
    EXPECT_EQ(captured->outcome, ClipboardCaptureRead::Outcome::read);
    EXPECT_TRUE(captured->snapshot.empty());
    ASSERT_EQ(captured->leftOut.size(), 1U);
    EXPECT_EQ(captured->leftOut[0].type, "UTF8_STRING");
    EXPECT_GT(captured->leftOut[0].size, captured->leftOut[0].limit);
    EXPECT_TRUE(read("UTF8_STRING") == text) << "the owner no longer hands over its text";
}

TEST_F(DesktopClipboardTargets, ClosingWhileACaptureReadWaitsOnAHungOwnerDoesNotWaitItOut) {
    startOwner({MARLUNE_CLIPBOARD_OWNER, "--withhold-data", "text/plain=withheld"});
    bool answered = false;
    clipboard->readForCapture({}, [&](ClipboardCaptureRead) { answered = true; });
    test::pumpUntil([] { return false; }, 300ms); // the read is waiting on the owner by now
    const auto started = std::chrono::steady_clock::now();
    clipboard.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - started, 500ms);
    test::pumpUntil([] { return false; }, 200ms);
    EXPECT_FALSE(answered) << "a read answered after its clipboard was gone";
}

TEST_F(DesktopClipboardTargets, SavingOurOwnClipboardIsNotAPull) {
    const PasteboardSnapshot ours = PasteboardSnapshot::fromItems(
        {{{Payload::fromText("text/plain;charset=utf-8", "expanded snippet"),
           Payload::fromText("image/gif", gifBytes())}}});
    clipboard->write(ours);

    const ClipboardSave save = clipboard->saveWhole();
    ASSERT_TRUE(std::holds_alternative<PasteboardSnapshot>(save))
        << std::get<ClipboardSaveFailed>(save).message;
    const auto& payloads = std::get<PasteboardSnapshot>(save).items.at(0).payloads;
    for (const auto& payload : ours.items[0].payloads) {
        EXPECT_NE(std::find(payloads.begin(), payloads.end(), payload), payloads.end())
            << payload.type;
    }
    test::pumpUntil([] { return false; }, 300ms); // queued pull notices would have run
    EXPECT_EQ(pulls, 0);
}

TEST_F(DesktopClipboardTargets, SelectionTextReadsPrimaryWithoutMovingTheClipboardCount) {
    QObject watcher;
    QObject::connect(QGuiApplication::clipboard(), &QClipboard::changed, &watcher,
                     [this](QClipboard::Mode mode) {
                         if (mode == QClipboard::Selection) {
                             ++selectionChanges;
                         }
                     });
    const std::int64_t count = clipboard->changeCount();
    EXPECT_EQ(clipboard->selectionText(), std::nullopt) << "nothing is selected yet";

    struct Case {
        const char* name;
        const char* type; // nullptr: this process selects the text
        std::string selected;
        std::optional<std::string> expected;
    };
    const Case cases[] = {
        {"UTF-8 text", "UTF8_STRING", "selected w\xc3\xb6rds", "selected w\xc3\xb6rds"},
        {"Latin-1 text only", "STRING", "caf\xe9", "caf\xc3\xa9"},
        {"more text than a clipboard read takes", "UTF8_STRING", std::string((8 << 20) + 1, 'z'),
         std::nullopt},
        {"text selected in this process", nullptr, "held here", "held here"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        if (c.type != nullptr) {
            xclipOwner(c.type, c.selected, "primary");
        } else {
            QGuiApplication::clipboard()->setText(QString::fromStdString(c.selected),
                                                  QClipboard::Selection);
        }
        EXPECT_EQ(clipboard->selectionText(), c.expected);
    }
    EXPECT_EQ(clipboard->changeCount(), count);
}

} // namespace
} // namespace marlune
