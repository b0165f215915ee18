// The store's share of listing a large Board section (on the 2-core development machine):
//   - BoardStore::items over a section of 5,000 sealed text items: at most 8 ms when the rows
//     are read (the first listing after a change), about 1 ms when listed again with nothing
//     written in between (a copy of the listing the context keeps);
//   - the archive pass that runs before every listing, with nothing due and 5,000 open items:
//     under 0.3 ms. The second figure adds 2,000 clips archived long ago, which stay done and
//     so stay in the index the pass reads.
// Libraries are real files with the application's settings (WAL, synchronous=FULL).

#include "MarluneCore/BoardAutoArchive.h"
#include "MarluneCore/BoardListingCache.h"
#include "MarluneCore/BoardStore.h"
#include "MarluneCore/ClipStore.h"
#include "MarluneCore/MarluneStore.h"
#include "MarluneCore/Settings.h"
#include "MarluneCore/SymmetricKey.h"
#include "bench/support/StoreBench.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>

namespace marlune {
namespace {

namespace fs = std::filesystem;
using bench::benchKey;
using bench::benchRoot;

constexpr std::int64_t sectionSize = 5'000;

Date baseTime() {
    return fromStorage(1'790'000'000'000'000);
}

// A day after the last item was made: nothing open is due for archiving.
Date listingTime() {
    return addSeconds(baseTime(), 86'400.0 + 2.0 * sectionSize);
}

// About 116 characters, like a typical jotted task.
std::string itemText(std::int64_t i) {
    std::string number = std::to_string(100'000 + i);
    return "Board item " + number +
           ": follow up on the quarterly notes with the design team before Thursday's review "
           "meeting.";
}

std::unique_ptr<ModelContainer> open(const fs::path& dir) {
    return MarluneStore::makeContainer({}, dir, ClipCrypto(benchKey()), "bench");
}

Settings settingsIn(const fs::path& dir) {
    return Settings::load(dir / "settings.json",
                          std::chrono::system_clock::time_point(listingTime()));
}

// One section of `sectionSize` open items, plus `archived` clips that were done and archived
// a year earlier. Filled once per shape (in one transaction) and reused.
fs::path libraryWith(std::int64_t archived) {
    static std::map<std::int64_t, fs::path> made;
    if (auto it = made.find(archived); it != made.end()) {
        return it->second;
    }
    const fs::path dir = benchRoot() / ("lib-" + std::to_string(archived));
    auto container = open(dir);
    auto& context = container->mainContext();
    auto settings = settingsIn(dir);
    BoardStore board(context, settings);
    const Pinboard section = board.activeSection(baseTime());
    ClipStoreSettings roomy;
    roomy.unlimitedHistory = true;
    ClipStore history(context, roomy);
    auto& db = context.db();
    Database::Transaction tx(db);
    auto join = db.prepare("INSERT INTO ClipPinboard (clip_id, pinboard_id) VALUES (?1, ?2)");
    for (std::int64_t i = 0; i < sectionSize + archived; ++i) {
        NewClip content;
        content.previewText = itemText(i);
        Representation rep;
        rep.utTypeIdentifier = std::string(BoardConstants::plainTextType);
        rep.text = content.previewText;
        content.representations.push_back(std::move(rep));
        const Clip clip = history.record(content, addSeconds(baseTime(), 2.0 * static_cast<double>(i)));
        if (i < sectionSize) {
            join.bind(1, clip.id.string()).bind(2, section.id.string()).run();
        } else {
            db.prepare("UPDATE Clip SET completedAt = ?2 WHERE id = ?1")
                .bind(1, clip.id.string())
                .bind(2, toStorage(addSeconds(baseTime(), -365.0 * 86'400.0)))
                .run();
            board.pinExisting(clip.id, section);
        }
    }
    tx.commit();
    if (archived > 0) {
        BoardAutoArchive::run(context, 7, listingTime());
    }
    db.execute("PRAGMA wal_checkpoint(TRUNCATE)");
    made[archived] = dir;
    return dir;
}

// Cold: the context's listing cache is emptied before each listing, so every one reads the
// rows and opens the texts, as the first listing after a change does.
void BM_BoardItems(benchmark::State& state) {
    const fs::path dir = libraryWith(0);
    auto container = open(dir);
    auto& context = container->mainContext();
    auto settings = settingsIn(dir);
    BoardStore board(context, settings);
    const Pinboard section = board.activeSection(listingTime());
    std::size_t count = 0;
    for (auto _ : state) {
        context.boardListings().clear();
        auto items = board.items(section, listingTime(), {});
        count = items.size();
        benchmark::DoNotOptimize(items.data());
    }
    state.SetLabel(std::to_string(count) + " items");
}
BENCHMARK(BM_BoardItems)->Unit(benchmark::kMillisecond);

// Warm: listed again with nothing written in between, as the application lists the Board over
// and over. A fresh store value each time, as each command makes one. Arg 1 lists only the open
// items, so the filter is applied to the kept listing.
void BM_BoardItemsWarm(benchmark::State& state) {
    const fs::path dir = libraryWith(0);
    auto container = open(dir);
    auto& context = container->mainContext();
    auto settings = settingsIn(dir);
    const Pinboard section = BoardStore(context, settings).activeSection(listingTime());
    BoardStore::ListFilter filter;
    if (state.range(0) == 1) {
        filter.includeDone = false;
    }
    (void)BoardStore(context, settings).items(section, listingTime(), filter);
    std::size_t count = 0;
    for (auto _ : state) {
        auto items = BoardStore(context, settings).items(section, listingTime(), filter);
        count = items.size();
        benchmark::DoNotOptimize(items.data());
    }
    state.SetLabel(std::to_string(count) + " items");
}
BENCHMARK(BM_BoardItemsWarm)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// What the warm listing costs above the copy of the items: taking the change stamp.
void BM_ChangeStamp(benchmark::State& state) {
    const fs::path dir = libraryWith(0);
    auto container = open(dir);
    auto& db = container->mainContext().db();
    for (auto _ : state) {
        benchmark::DoNotOptimize(db.changeStamp());
    }
}
BENCHMARK(BM_ChangeStamp)->Unit(benchmark::kMicrosecond);

// Every section (here the one); after the first pass each is served from the kept listing.
void BM_BoardAllItems(benchmark::State& state) {
    const fs::path dir = libraryWith(0);
    auto container = open(dir);
    auto settings = settingsIn(dir);
    BoardStore board(container->mainContext(), settings);
    std::size_t count = 0;
    for (auto _ : state) {
        auto items = board.allItems(listingTime(), {});
        count = items.size();
        benchmark::DoNotOptimize(items.data());
    }
    state.SetLabel(std::to_string(count) + " items");
}
BENCHMARK(BM_BoardAllItems)->Unit(benchmark::kMillisecond);

// The refresh before each listing: the age is read from the settings, and nothing is due.
void BM_ArchivePassNothingDue(benchmark::State& state) {
    const fs::path dir = libraryWith(state.range(0));
    auto container = open(dir);
    auto settings = settingsIn(dir);
    for (auto _ : state) {
        const auto moved = BoardAutoArchive::archiveFinishedItems(container->mainContext(),
                                                                  settings, listingTime());
        if (moved != 0) {
            state.SkipWithError("something was due");
            break;
        }
    }
    state.SetLabel(std::to_string(sectionSize) + " open, " + std::to_string(state.range(0)) +
                   " archived");
}
BENCHMARK(BM_ArchivePassNothingDue)->Arg(0)->Arg(2'000)->Unit(benchmark::kMicrosecond);

} // namespace
} // namespace marlune
BENCHMARK_MAIN();
