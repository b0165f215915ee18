// Goals (on the 2-core development machine):
//   - ClipStore::capture into a library of 100,000 clips costs within 2x of the same into
//     1,000 clips (the insert path must stay flat in history size);
//   - listing the 50 most recent of 100,000 clips: under 5 ms;
//   - opening the library and substring-searching the sealed preview text of 100,000 clips:
//     under 150 ms.
// Libraries are real files with the application's settings (WAL, synchronous=FULL).

#include "MarluneCore/ClipStore.h"
#include "MarluneCore/MarluneStore.h"
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

Date baseTime() {
    return fromStorage(1'790'000'000'000'000);
}

// Captures made during a benchmark come just after the library's newest clip, so the age
// purge has nothing to do, as in daily use.
Date captureTime(std::int64_t i) {
    return addSeconds(baseTime(), 200'000.0 + static_cast<double>(i % 1'000'000));
}

NewClip clipNumber(std::int64_t i) {
    NewClip clip;
    clip.previewText = "Clipboard entry number " + std::to_string(i) +
                       " with a sentence of ordinary length, like most copied text is.";
    Representation rep;
    rep.utTypeIdentifier = "public.utf8-plain-text";
    rep.text = clip.previewText;
    clip.representations.push_back(std::move(rep));
    clip.sourceAppBundleID = "org.example.Editor";
    return clip;
}

ClipStoreSettings roomySettings() {
    ClipStoreSettings settings;
    settings.maxUnpinnedHistory = 10'000'000;
    settings.clipRetentionDays = 365;
    return settings;
}

// One library per size, filled once (in one transaction, so filling is quick) and reused.
fs::path libraryWith(std::int64_t clips) {
    static std::map<std::int64_t, fs::path> made;
    if (auto it = made.find(clips); it != made.end()) {
        return it->second;
    }
    const fs::path dir = benchRoot() / ("lib-" + std::to_string(clips));
    auto container = MarluneStore::makeContainer({}, dir, ClipCrypto(benchKey()), "bench");
    auto& context = container->mainContext();
    ClipStore store(context, roomySettings());
    Database::Transaction tx(context.db());
    for (std::int64_t i = 0; i < clips; ++i) {
        store.record(clipNumber(i), addSeconds(baseTime(), static_cast<double>(i)));
    }
    tx.commit();
    context.db().execute("PRAGMA wal_checkpoint(TRUNCATE)");
    made[clips] = dir;
    return dir;
}

std::unique_ptr<ModelContainer> open(const fs::path& dir) {
    return MarluneStore::makeContainer({}, dir, ClipCrypto(benchKey()), "bench");
}

// The capture path (record, trim, purge), each capture its own durable transaction.
void BM_CaptureDurable(benchmark::State& state) {
    auto container = open(libraryWith(state.range(0)));
    ClipStore store(container->mainContext(), roomySettings());
    std::int64_t next = 50'000'000;
    for (auto _ : state) {
        benchmark::DoNotOptimize(store.capture(clipNumber(next), captureTime(next)));
        ++next;
    }
    state.SetLabel(std::to_string(state.range(0)) + " clips");
}
BENCHMARK(BM_CaptureDurable)->Arg(1'000)->Arg(100'000)->Unit(benchmark::kMicrosecond);

// The same path with the commits batched, so the figure is the store's own work rather than
// the disk's flush time.
void BM_CaptureBatched(benchmark::State& state) {
    auto container = open(libraryWith(state.range(0)));
    auto& context = container->mainContext();
    ClipStore store(context, roomySettings());
    std::int64_t next = 60'000'000;
    Database::Transaction tx(context.db());
    for (auto _ : state) {
        benchmark::DoNotOptimize(store.capture(clipNumber(next), captureTime(next)));
        ++next;
    }
    // Rolled back: every run starts from the same library.
}
BENCHMARK(BM_CaptureBatched)->Arg(1'000)->Arg(100'000)->Unit(benchmark::kMicrosecond);

// A full history: every capture also drops the oldest clip.
void BM_CaptureAtHistoryLimit(benchmark::State& state) {
    auto container = open(libraryWith(state.range(0)));
    auto& context = container->mainContext();
    ClipStoreSettings settings = roomySettings();
    settings.maxUnpinnedHistory = state.range(0);
    ClipStore store(context, settings);
    std::int64_t next = 70'000'000;
    Database::Transaction tx(context.db());
    for (auto _ : state) {
        benchmark::DoNotOptimize(store.capture(clipNumber(next), captureTime(next)));
        ++next;
    }
}
BENCHMARK(BM_CaptureAtHistoryLimit)->Arg(1'000)->Arg(100'000)->Unit(benchmark::kMicrosecond);

void BM_ListRecent50(benchmark::State& state) {
    auto container = open(libraryWith(state.range(0)));
    ClipStore store(container->mainContext(), roomySettings());
    for (auto _ : state) {
        auto clips = store.recent(50);
        benchmark::DoNotOptimize(clips.data());
    }
}
BENCHMARK(BM_ListRecent50)->Arg(100'000)->Unit(benchmark::kMillisecond);

// Every preview is opened: the needle matches nothing, and 100,000 previews overrun the
// plaintext cache, so each pass decrypts them all.
void BM_SearchSealedPreviews(benchmark::State& state) {
    auto container = open(libraryWith(state.range(0)));
    ClipStore store(container->mainContext(), roomySettings());
    for (auto _ : state) {
        auto found = store.search("no such words anywhere", 50);
        benchmark::DoNotOptimize(found.data());
    }
}
BENCHMARK(BM_SearchSealedPreviews)->Arg(100'000)->Unit(benchmark::kMillisecond);

void BM_OpenAndSearch(benchmark::State& state) {
    const fs::path dir = libraryWith(state.range(0));
    for (auto _ : state) {
        auto container = open(dir);
        ClipStore store(container->mainContext(), roomySettings());
        auto found = store.search("no such words anywhere", 50);
        benchmark::DoNotOptimize(found.data());
    }
}
BENCHMARK(BM_OpenAndSearch)->Arg(100'000)->Unit(benchmark::kMillisecond);

} // namespace
} // namespace marlune
BENCHMARK_MAIN();
