// Goal: the expansion service's work for one keystroke that matches nothing, with 10,000
// snippets in the keyword table, stays under 50 µs.
#include "Marlune/ExpansionService.h"
#include "MarluneCore/MarluneStore.h"
#include "MarluneCore/Settings.h"
#include "MarluneCore/SnippetStore.h"
#include "MarluneCore/SymmetricKey.h"
#include "tests/support/FakeActiveWindow.h"
#include "tests/support/FakeClipboard.h"
#include "tests/support/FakeFieldReader.h"
#include "tests/support/FakeFillInPresenter.h"
#include "tests/support/FakeKeyInjector.h"
#include "tests/support/FakeKeyboardWatcher.h"
#include "tests/support/FakeNotifier.h"
#include "tests/support/ManualScheduler.h"

#include <benchmark/benchmark.h>
#include <filesystem>
#include <memory>
#include <string>
#include <unistd.h>

namespace {

using namespace marlune;

struct Harness {
    Harness() {
        dir = std::filesystem::temp_directory_path() /
              ("marlune-bench-" + std::to_string(::getpid()));
        std::filesystem::create_directories(dir);
        container = MarluneStore::makeContainer({true, false, false}, dir / "Marlune",
                                                ClipCrypto(SymmetricKey::random()), "bench");
        settings = std::make_unique<Settings>(Settings::load(dir / "settings.json", dateNow()));
        SnippetStore store(container->mainContext());
        for (int i = 0; i < 10'000; ++i) {
            auto snippet = Snippet::make(dateNow());
            snippet.keyword = "kw" + std::to_string(i);
            snippet.content = "Body of snippet number " + std::to_string(i);
            store.create(snippet, dateNow());
        }
        service = std::make_unique<ExpansionService>(ExpansionService::Collaborators{
            container->mainContext(), *settings, injector, clipboard, windows, grab, scheduler,
            fillIn, notifier, [] { return dateNow(); }, nullptr, nullptr, nullptr, "en_US", "UTC"});
        service->start(watcher);
    }
    ~Harness() {
        service.reset();
        container.reset();
        std::filesystem::remove_all(dir);
    }

    std::filesystem::path dir;
    std::unique_ptr<ModelContainer> container;
    std::unique_ptr<Settings> settings;
    test::ManualScheduler scheduler;
    test::FakeKeyInjector injector;
    test::FakeClipboard clipboard;
    test::FakeActiveWindow windows;
    test::FakeKeyboardGrabProbe grab;
    test::FakeFillInPresenter fillIn;
    test::FakeNotifier notifier;
    test::FakeKeyboardWatcher watcher;
    std::unique_ptr<ExpansionService> service;
};

Harness& harness() {
    static Harness instance;
    return instance;
}

// Cycles through `text`, one key-down per iteration, through the watcher as the session would.
void typeCycling(benchmark::State& state, std::string_view text) {
    auto& h = harness();
    std::vector<KeyboardEvent> keys;
    for (const char ch : text) {
        keys.emplace_back(
            keyboard::TextTyped{std::string(1, ch), static_cast<std::uint32_t>(ch), {}});
    }
    std::size_t at = 0;
    for (auto _ : state) {
        h.watcher.push(keys[at]);
        at = (at + 1) % keys.size();
    }
    benchmark::DoNotOptimize(h.service->bufferText().size());
    if (h.service->pendingExpansion() || !h.injector.steps.empty()) {
        state.SkipWithError("a keystroke expanded");
    }
}

// Ordinary prose: no prefix, so the matcher stops at the token.
void BM_KeystrokeProse(benchmark::State& state) {
    typeCycling(state, "the quick brown fox jumps over the lazy dog ");
}
BENCHMARK(BM_KeystrokeProse);

// Every key after the prefix looks the keyword up in the 10,000-entry table and misses.
void BM_KeystrokeAfterPrefixMiss(benchmark::State& state) {
    typeCycling(state, ";kwxyzzy ;nope ");
}
BENCHMARK(BM_KeystrokeAfterPrefixMiss);

} // namespace

BENCHMARK_MAIN();
