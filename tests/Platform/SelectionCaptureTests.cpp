#include "MarluneCore/ContentLimits.h"
#include "Platform/SelectionCapture.h"

#include <chrono>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace marlune {
namespace {

using namespace std::chrono_literals;
using Outcome = ClipboardCaptureRead::Outcome;
using Transfer = SelectionTransfer::Outcome;

// An owner whose every answer is scripted, on a clock that moves only by the time its answers
// take. An answer that would end past the caller's deadline times out at the deadline, as the
// X11 reader's waits do.
class ScriptedOwner : public SelectionSource {
public:
    struct Answer {
        std::string name;
        std::string bytes;
        std::chrono::milliseconds takes{0};
        Transfer outcome = Transfer::data;
        std::uint64_t size = 0; // for `tooLarge`
        bool handsOver = false; // another owner takes the selection after this answer
    };

    Clock::time_point now() const override { return clock; }
    std::uint32_t owner(std::uint32_t) override { return current; }

    Targets targets(std::uint32_t, Clock::time_point deadline) override {
        ++listRequests;
        if (clock + listTakes > deadline) {
            clock = deadline;
            return Transfer::timedOut;
        }
        clock += listTakes;
        std::vector<SelectionTarget> targets;
        for (std::size_t i = 0; i < answers.size(); ++i) {
            targets.push_back({static_cast<std::uint32_t>(i + 1), answers[i].name});
        }
        return targets;
    }

    SelectionTransfer fetch(std::uint32_t, std::uint32_t target, std::size_t limit,
                            Clock::time_point deadline) override {
        const Answer& answer = answers.at(target - 1);
        fetched.push_back(answer.name);
        limits.push_back(limit);
        deadlines.push_back(deadline);
        if (clock + answer.takes > deadline) {
            clock = deadline;
            return {Transfer::timedOut, {}, 0};
        }
        clock += answer.takes;
        if (answer.handsOver) {
            current += 1;
        }
        if (answer.outcome != Transfer::data) {
            return {answer.outcome, {}, answer.size};
        }
        if (answer.bytes.size() > limit) {
            return {Transfer::tooLarge, {}, answer.bytes.size()};
        }
        return {Transfer::data, {answer.bytes.begin(), answer.bytes.end()}, 0};
    }

    std::vector<Answer> answers;
    std::chrono::milliseconds listTakes{5};
    std::uint32_t current = 0x400001;
    Clock::time_point clock{};
    int listRequests = 0;
    std::vector<std::string> fetched;
    std::vector<std::size_t> limits;
    std::vector<Clock::time_point> deadlines;
};

std::vector<std::string> typesOf(const PasteboardSnapshot& snapshot) {
    std::vector<std::string> types;
    for (const auto& item : snapshot.items) {
        for (const auto& payload : item.payloads) {
            types.push_back(payload.type);
        }
    }
    return types;
}

TEST(SelectionCapture, ReadKeepsTheBestOfEachContentWithinOneBudgetForAllTypes) {
    const std::uint64_t imageLimit = ContentLimits::clipFlavourBytes;
    const std::uint64_t seventyMiB = std::uint64_t{70} << 20;
    using Answer = ScriptedOwner::Answer;
    struct Case {
        const char* name;
        std::vector<Answer> answers;
        Outcome outcome;
        std::vector<std::string> fetched;
        std::vector<std::string> kept;
        std::vector<ClipboardCaptureRead::Oversize> leftOut = {};
        std::chrono::milliseconds listTakes = 5ms;
    };
    const Case cases[] = {
        {"every type within the budget",
         {{"UTF8_STRING", "hi", 600ms},
          {"text/html", "<b>hi</b>", 600ms},
          {"image/png", "P", 600ms}},
         Outcome::read,
         {"UTF8_STRING", "text/html", "image/png"},
         {"UTF8_STRING", "text/html", "image/png"}},
        {"types each within the budget but not all together",
         {{"UTF8_STRING", "hi", 800ms},
          {"text/html", "<b>hi</b>", 800ms},
          {"image/png", "P", 800ms}},
         Outcome::timedOut,
         {"UTF8_STRING", "text/html", "image/png"},
         {}},
        {"one type that never comes",
         {{"UTF8_STRING", "hi", 1h}},
         Outcome::timedOut,
         {"UTF8_STRING"},
         {}},
        {"a target list that never comes",
         {{"UTF8_STRING", "hi"}},
         Outcome::timedOut,
         {},
         {},
         {},
         1h},
        {"of the text targets only the best, in the owner's place",
         {{"image/png", "P"},
          {"STRING", "hi"},
          {"TEXT", "hi"},
          {"UTF8_STRING", "hi"},
          {"text/plain", "hi"}},
         Outcome::read,
         {"image/png", "UTF8_STRING"},
         {"image/png", "UTF8_STRING"}},
        {"the next text target when the best one refuses",
         {{"UTF8_STRING", "", 0ms, Transfer::refused}, {"text/plain", "hi"}, {"STRING", "hi"}},
         Outcome::read,
         {"UTF8_STRING", "text/plain"},
         {"text/plain"}},
        {"of the image formats only the one the history prefers",
         {{"image/bmp", "B"}, {"image/jpeg", "J"}, {"image/png", "P"}, {"image/tiff", "T"}},
         Outcome::read,
         {"image/png"},
         {"image/png"}},
        {"a concealed copy is never fetched",
         {{"UTF8_STRING", "hunter2"}, {"x-kde-passwordManagerHint", "secret"}},
         Outcome::read,
         {},
         {"x-kde-passwordManagerHint"}},
        {"types the history never keeps are not fetched",
         {{"application/x-qt-image", "Q"},
          {"SAVE_TARGETS", ""},
          {"application/x-foo", "F"},
          {"text/plain", "hi"}},
         Outcome::read,
         {"text/plain"},
         {"text/plain"}},
        {"an image over the flavour limit is left out, its caption kept",
         {{"image/png", "", 0ms, Transfer::tooLarge, seventyMiB}, {"text/plain", "caption"}},
         Outcome::read,
         {"image/png", "text/plain"},
         {"text/plain"},
         {{"image/png", seventyMiB, imageLimit}}},
        {"text over the text cap is left out",
         {{"UTF8_STRING", std::string((8 << 20) + 1, 'x')}},
         Outcome::read,
         {"UTF8_STRING"},
         {},
         {{"UTF8_STRING", (8 << 20) + 1, 8 << 20}}},
        {"an owner that hands over half-way voids the read",
         {{"UTF8_STRING", "hi"}, {"text/html", "<b>new</b>", 0ms, Transfer::data, 0, true}},
         Outcome::changed,
         {"UTF8_STRING", "text/html"},
         {}},
        {"a broken connection",
         {{"UTF8_STRING", "", 0ms, Transfer::broken}},
         Outcome::failed,
         {"UTF8_STRING"},
         {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ScriptedOwner owner;
        owner.answers = c.answers;
        owner.listTakes = c.listTakes;
        const auto deadline = owner.clock + ClipboardAccess::captureReadBudget;
        const SelectionCapture capture = captureSelection(owner, {1, deadline, {}, {}});
        EXPECT_EQ(capture.read.outcome, c.outcome);
        EXPECT_EQ(owner.fetched, c.fetched);
        EXPECT_EQ(typesOf(capture.read.snapshot), c.kept);
        EXPECT_EQ(capture.read.leftOut, c.leftOut);
        EXPECT_EQ(capture.read.owner, 0x400001U);
        EXPECT_LE(owner.clock, deadline);
        for (const auto& given : owner.deadlines) {
            EXPECT_EQ(given, deadline) << "a type was given a budget of its own";
        }
        for (std::size_t i = 0; i < owner.fetched.size(); ++i) {
            EXPECT_LE(owner.limits[i], ContentLimits::clipFlavourBytes) << owner.fetched[i];
        }
    }
}

TEST(SelectionCapture, LatinOneOnlyOwnerTextIsKeptAsUtf8) {
    ScriptedOwner owner;
    owner.answers = {{"STRING", "caf\xE9 \xA3"
                                "5"}};
    const auto capture =
        captureSelection(owner, {1, owner.clock + ClipboardAccess::captureReadBudget, {}, {}});
    ASSERT_EQ(typesOf(capture.read.snapshot), std::vector<std::string>{"UTF8_STRING"});
    const auto& data = capture.read.snapshot.items.front().payloads.front().data;
    EXPECT_EQ(std::string(data.begin(), data.end()), "caf\u00e9 \u00a3"
                                                     "5");
}

TEST(SelectionCapture, OwnersNotToBeAskedAreNotAsked) {
    struct Case {
        const char* name;
        std::vector<std::uint64_t> skip;
        bool ours;
        std::uint32_t owner;
        Outcome outcome;
        bool heldHere;
    };
    const Case cases[] = {
        {"an owner backed off", {0x200001, 0x400001}, false, 0x400001, Outcome::skipped, false},
        {"a window of this process", {}, true, 0x400001, Outcome::read, true},
        {"nobody", {}, false, 0, Outcome::read, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ScriptedOwner owner;
        owner.current = c.owner;
        owner.answers = {{"UTF8_STRING", "hi"}};
        const SelectionCapture capture =
            captureSelection(owner, {1, owner.clock + 2s, c.skip,
                                     [&](std::uint32_t window) { return c.ours && window != 0; }});
        EXPECT_EQ(capture.read.outcome, c.outcome);
        EXPECT_EQ(capture.heldHere, c.heldHere);
        EXPECT_EQ(capture.read.owner, c.owner);
        EXPECT_TRUE(capture.read.snapshot.empty());
        EXPECT_EQ(owner.listRequests, 0);
    }
}

} // namespace
} // namespace marlune
