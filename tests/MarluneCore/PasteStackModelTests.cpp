#include "MarluneCore/PasteStackModel.h"
#include "support/TempDir.h"

#include <fstream>
#include <gtest/gtest.h>
#include <stdexcept>

namespace marlune {
namespace {

PasteStackEntry clip(int n) {
    return PasteStackClip{*Uuid::parse("00000000-0000-4000-8000-" +
                                       std::string(12 - std::to_string(n).size(), '0') +
                                       std::to_string(n))};
}

std::vector<std::string> previews(const PasteStackModel& model) {
    std::vector<std::string> out;
    for (const auto& item : model.entries()) {
        out.push_back(item.preview);
    }
    return out;
}

struct Recording {
    std::vector<std::vector<PasteStackEntry>> writes;
    PasteStackModel::WriteThrough through() {
        return [this](const std::vector<PasteStackEntry>& entries) { writes.push_back(entries); };
    }
};

TEST(PasteStackModel, TwentyFirstPushIsRefusedAndLeavesTheStackAndFileAlone) {
    PasteStackModel model;
    Recording recording;
    model.writeThrough = recording.through();
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(model.push(clip(i), "item " + std::to_string(i), "doc"));
    }
    EXPECT_FALSE(model.push(clip(99), "one too many", "doc"));
    EXPECT_EQ(model.count(), 20U);
    EXPECT_EQ(model.entries().front().preview, "item 0");
    EXPECT_EQ(model.entries().back().preview, "item 19");
    EXPECT_EQ(recording.writes.size(), 20U);
}

TEST(PasteStackModel, PopsInTheOrderPushedAndPersistsEveryChange) {
    PasteStackModel model;
    Recording recording;
    model.writeThrough = recording.through();
    model.push(clip(1), "A", "doc");
    model.push(PasteStackSnippet{*Uuid::parse("11111111-2222-4333-8444-555555555555")}, "B",
               "text");
    model.push(clip(3), "C", "doc");
    std::vector<std::string> popped;
    while (auto item = model.popFirst()) {
        popped.push_back(item->preview);
    }
    EXPECT_EQ(popped, (std::vector<std::string>{"A", "B", "C"}));
    ASSERT_EQ(recording.writes.size(), 6U);
    EXPECT_EQ(recording.writes[2].size(), 3U);
    EXPECT_EQ(recording.writes[3].front(), recording.writes[2][1]); // A gone, B first
    EXPECT_TRUE(recording.writes[5].empty());

    // Nothing to take: no item and no write.
    EXPECT_FALSE(model.popFirst());
    EXPECT_EQ(recording.writes.size(), 6U);
}

TEST(PasteStackModel, RemovalAndClearWriteThroughButNotWhenNothingChanges) {
    PasteStackModel model;
    Recording recording;
    model.writeThrough = recording.through();
    for (int i = 0; i < 3; ++i) {
        model.push(clip(i), std::to_string(i), "doc");
    }
    EXPECT_FALSE(model.remove(3));
    EXPECT_TRUE(model.remove(1));
    EXPECT_EQ(previews(model), (std::vector<std::string>{"0", "2"}));
    EXPECT_EQ(model.clear(), 2U);
    EXPECT_EQ(model.clear(), 0U);
    EXPECT_EQ(recording.writes.size(), 5U);
}

TEST(PasteStackModel, AFailedWriteUndoesTheChange) {
    PasteStackModel model;
    model.push(clip(1), "kept", "doc");
    model.writeThrough = [](const std::vector<PasteStackEntry>&) {
        throw std::runtime_error("disk full");
    };
    EXPECT_THROW(model.push(clip(2), "lost", "doc"), std::runtime_error);
    EXPECT_THROW(model.popFirst(), std::runtime_error);
    EXPECT_THROW(model.clear(), std::runtime_error);
    EXPECT_EQ(previews(model), (std::vector<std::string>{"kept"}));
}

TEST(PasteStackEntryCoding, EncodedFormHasOneKindKeyAndAnUnkeyedWrapper) {
    const auto id = *Uuid::parse("11111111-2222-4333-8444-555555555555");
    EXPECT_EQ(encodePasteStackEntry(PasteStackClip{id}).dump(),
              R"({"clip":{"_0":"11111111-2222-4333-8444-555555555555"}})");
    EXPECT_EQ(encodePasteStackEntry(PasteStackSnippet{id}).dump(),
              R"({"snippet":{"_0":"11111111-2222-4333-8444-555555555555"}})");

    const char* refused[] = {
        R"({"board":{"_0":"11111111-2222-4333-8444-555555555555"}})",
        R"({"clip":{"_0":"not a uuid"}})",
        R"({"clip":{"_1":"11111111-2222-4333-8444-555555555555"}})",
        R"({"clip":"11111111-2222-4333-8444-555555555555"})",
        R"({"clip":{"_0":"11111111-2222-4333-8444-555555555555"},"snippet":{"_0":"11111111-2222-4333-8444-555555555555"}})",
        R"(["clip"])",
    };
    for (const char* text : refused) {
        EXPECT_FALSE(decodePasteStackEntry(nlohmann::json::parse(text))) << text;
    }
    EXPECT_EQ(decodePasteStackEntry(encodePasteStackEntry(PasteStackSnippet{id})),
              PasteStackEntry(PasteStackSnippet{id}));
}

TEST(PasteStackFile, RoundTripsAndSetsAsideAFileThatIsNotAQueue) {
    test::TempDir dir;
    const auto file = dir.path() / PasteStackFile::fileName;
    EXPECT_TRUE(PasteStackFile::read(file).empty());
    const std::vector<PasteStackEntry> entries = {clip(1), clip(2)};
    PasteStackFile::write(file, entries);
    EXPECT_EQ(PasteStackFile::read(file), entries);

    std::ofstream(file) << R"([{"clip":{"_0":"00000000-0000-4000-8000-000000000001"}},{"odd":1}])";
    EXPECT_EQ(PasteStackFile::read(file), (std::vector<PasteStackEntry>{clip(1)}));

    std::ofstream(file) << "{ not json";
    EXPECT_TRUE(PasteStackFile::read(file).empty());
    EXPECT_TRUE(std::filesystem::exists(file.string() + ".corrupt"));
    EXPECT_FALSE(std::filesystem::exists(file));
}

} // namespace
} // namespace marlune
