// Goal: opening one sealed ~100-byte preview costs about 1 µs (cold, not from the cache), so a
// substring search over 100,000 sealed previews stays well inside its 150 ms budget.
#include "MarluneCore/ClipCrypto.h"

#include <benchmark/benchmark.h>
#include <string>
#include <vector>

namespace marlune {
namespace {

std::vector<std::string> sealedPreviews(const ClipCrypto& crypto, std::size_t count,
                                        std::size_t length) {
    std::vector<std::string> sealed;
    sealed.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        std::string text = "preview " + std::to_string(i) + " ";
        text.resize(length, 'x');
        sealed.push_back(crypto.sealText(text));
    }
    return sealed;
}

// Cycles through more values than the cache holds, so every read decrypts.
void BM_ReadTextCold(benchmark::State& state) {
    const auto key = SymmetricKey::random();
    const ClipCrypto sealer(key);
    const auto sealed = sealedPreviews(sealer, 20'000, static_cast<std::size_t>(state.range(0)));
    const ClipCrypto reader(key);
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(reader.readText(sealed[i]));
        i = (i + 1) % sealed.size();
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ReadTextCold)->Arg(20)->Arg(100)->Arg(200);

void BM_ReadTextCached(benchmark::State& state) {
    const ClipCrypto crypto(SymmetricKey::random());
    const auto sealed = sealedPreviews(crypto, 1000, 100);
    for (const auto& value : sealed) {
        benchmark::DoNotOptimize(crypto.readText(value));
    }
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(crypto.readText(sealed[i]));
        i = (i + 1) % sealed.size();
    }
}
BENCHMARK(BM_ReadTextCached);

// The whole search: 100,000 previews opened once each (goal: well under 150 ms with SQLite).
void BM_Open100kPreviews(benchmark::State& state) {
    const auto key = SymmetricKey::random();
    const auto sealed = sealedPreviews(ClipCrypto(key), 100'000, 100);
    for (auto _ : state) {
        const ClipCrypto reader(key);
        std::size_t hits = 0;
        for (const auto& value : sealed) {
            hits += reader.readText(value)->find("99999") != std::string::npos;
        }
        benchmark::DoNotOptimize(hits);
    }
}
BENCHMARK(BM_Open100kPreviews)->Unit(benchmark::kMillisecond);

void BM_SealText100(benchmark::State& state) {
    const ClipCrypto crypto(SymmetricKey::random());
    const std::string text(100, 'x');
    for (auto _ : state) {
        benchmark::DoNotOptimize(crypto.sealText(text));
    }
}
BENCHMARK(BM_SealText100);

} // namespace
} // namespace marlune

namespace marlune {
namespace {

// The decryption alone, without base64 or the cache.
void BM_OpenBytes100(benchmark::State& state) {
    const ClipCrypto crypto(SymmetricKey::random());
    const Bytes sealed = crypto.sealBytes(Bytes(100, 'x'));
    for (auto _ : state) {
        benchmark::DoNotOptimize(crypto.openBytes(sealed));
    }
}
BENCHMARK(BM_OpenBytes100);

} // namespace
} // namespace marlune

namespace marlune {
namespace {

// The search path: the same 100,000 previews through readTextInto (no cache traffic).
void BM_Scan100kPreviews(benchmark::State& state) {
    const auto key = SymmetricKey::random();
    const auto sealed = sealedPreviews(ClipCrypto(key), 100'000, 100);
    const ClipCrypto reader(key);
    std::string plain;
    for (auto _ : state) {
        std::size_t hits = 0;
        for (const auto& value : sealed) {
            hits += reader.readTextInto(value, plain) && plain.find("99999") != std::string::npos;
        }
        benchmark::DoNotOptimize(hits);
    }
}
BENCHMARK(BM_Scan100kPreviews)->Unit(benchmark::kMillisecond);

} // namespace
} // namespace marlune
