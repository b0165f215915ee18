// The keyboard's share of the work for each keystroke: from the raw key code to the event the
// expansion service receives, over a keymap compiled offline (no X server round trip).
// Target: well under 50 microseconds per keystroke, the budget of all key handling for a key
// that matches nothing.

#include "Platform/InjectionLedger.h"
#include "Platform/XkbKeymapTranslator.h"

#include <benchmark/benchmark.h>
#include <vector>

namespace {

using marlune::XkbKeymapTranslator;

std::vector<std::uint32_t> keycodes(XkbKeymapTranslator& translator,
                                    std::initializer_list<const char*> names) {
    std::vector<std::uint32_t> codes;
    for (const char* name : names) {
        codes.push_back(translator.keycodeByName(name).value_or(0));
    }
    return codes;
}

void BM_TranslateUsWord(benchmark::State& state) {
    auto translator = XkbKeymapTranslator::fromNames("us", "", "", "en_US.UTF-8",
                                                     XkbKeymapTranslator::StateSource::server);
    // "hello world" key by key.
    const auto keys = keycodes(*translator, {"AC06", "AD03", "AC09", "AC09", "AD09", "SPCE", "AD02",
                                             "AD09", "AD04", "AC09", "AC03"});
    marlune::InjectionLedger ledger;
    for (auto _ : state) {
        for (const std::uint32_t key : keys) {
            const auto now = marlune::InjectionLedger::Clock::now();
            benchmark::DoNotOptimize(ledger.claim(key, true, now));
            benchmark::DoNotOptimize(translator->keyPressed(key));
            benchmark::DoNotOptimize(translator->keyReleased(key));
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(keys.size()));
}
BENCHMARK(BM_TranslateUsWord);

void BM_TranslateGermanDeadKeys(benchmark::State& state) {
    auto translator = XkbKeymapTranslator::fromNames("de", "", "", "en_US.UTF-8",
                                                     XkbKeymapTranslator::StateSource::server);
    // "é" "ê" "ü": a dead key and its letter, then a direct key.
    const auto keys = keycodes(*translator, {"AE12", "AD03", "TLDE", "AD03", "AD11"});
    for (auto _ : state) {
        for (const std::uint32_t key : keys) {
            benchmark::DoNotOptimize(translator->keyPressed(key));
            benchmark::DoNotOptimize(translator->keyReleased(key));
        }
    }
    state.SetItemsProcessed(state.iterations() * 3);
}
BENCHMARK(BM_TranslateGermanDeadKeys);

void BM_ServerStateUpdate(benchmark::State& state) {
    auto translator = XkbKeymapTranslator::fromNames("us,de", "", "", "",
                                                     XkbKeymapTranslator::StateSource::server);
    marlune::XkbStateMask shifted;
    shifted.depressedMods = 1;
    const marlune::XkbStateMask plain;
    for (auto _ : state) {
        benchmark::DoNotOptimize(translator->updateMask(shifted));
        benchmark::DoNotOptimize(translator->updateMask(plain));
    }
    state.SetItemsProcessed(state.iterations() * 2);
}
BENCHMARK(BM_ServerStateUpdate);

} // namespace

BENCHMARK_MAIN();
