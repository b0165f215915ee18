// Goals: decide() for a keystroke that matches nothing, 10,000 keywords in the table:
// median under 1 µs and no heap allocation. decide() for a hit on a 200-character body with
// two dates and a cursor mark: under 20 µs.
#include "ExpansionEngine/KeywordTable.h"
#include "ExpansionEngine/TypedExpansion.h"

#include <atomic>
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <new>
#include <string>

namespace {

// Every allocation of the process goes through here, so the timed loops can show how many
// they made.
std::atomic<std::int64_t> gAllocations{0};

} // namespace

// GCC inlines the replaced operators into the benchmark's static set-up and then takes the
// malloc/free pair for a new/free mismatch.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif

void* operator new(std::size_t size) {
    gAllocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size == 0 ? 1 : size)) {
        return p;
    }
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
    return operator new(size);
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete[](void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    std::free(p);
}

namespace {

using marlune::ExpansionContext;
using marlune::ExpansionSnippet;
using marlune::KeywordTable;
using marlune::TypedExpansion;

KeywordTable makeTable(std::string matchBody) {
    std::vector<ExpansionSnippet> snippets;
    snippets.reserve(10000);
    for (int i = 0; i < 10000; ++i) {
        std::string keyword = "kw" + std::to_string(i);
        snippets.push_back({std::to_string(i), keyword, "body " + keyword, "plainText"});
    }
    snippets.push_back({"match", "sig", std::move(matchBody), "plainText"});
    return KeywordTable(std::move(snippets));
}

ExpansionContext makeContext() {
    ExpansionContext context;
    context.now = std::chrono::system_clock::time_point(std::chrono::seconds(1709669229));
    context.locale = "en_US";
    context.timeZone = "Europe/Berlin";
    return context;
}

void reportAllocations(benchmark::State& state, std::int64_t before) {
    state.counters["allocs_per_iter"] = benchmark::Counter(
        static_cast<double>(gAllocations.load() - before), benchmark::Counter::kAvgIterations);
}

// A keystroke that completes a token with the prefix but no known keyword: the worst miss,
// since it goes all the way to the table.
void BM_DecideMiss(benchmark::State& state) {
    auto table = makeTable("unused");
    auto lookup = table.lookup();
    auto context = makeContext();
    const std::string baseline = "Thanks for the notes, see you at the meeting ;kw1234";
    const std::string text = baseline + "x";
    const std::int64_t before = gAllocations.load();
    for (auto _ : state) {
        auto decision = TypedExpansion::decide(text, baseline, ";", true, lookup, context);
        benchmark::DoNotOptimize(decision);
    }
    reportAllocations(state, before);
}
BENCHMARK(BM_DecideMiss)->Repetitions(9)->ReportAggregatesOnly(true);

// Ordinary typing: the token holds no prefix at all.
void BM_DecidePlainTyping(benchmark::State& state) {
    auto table = makeTable("unused");
    auto lookup = table.lookup();
    auto context = makeContext();
    const std::string baseline = "Thanks for the notes, see you at the meetin";
    const std::string text = baseline + "g";
    const std::int64_t before = gAllocations.load();
    for (auto _ : state) {
        auto decision = TypedExpansion::decide(text, baseline, ";", true, lookup, context);
        benchmark::DoNotOptimize(decision);
    }
    reportAllocations(state, before);
}
BENCHMARK(BM_DecidePlainTyping)->Repetitions(9)->ReportAggregatesOnly(true);

void BM_DecideHit200WithDatesAndCursor(benchmark::State& state) {
    std::string body = "Dear team, today is {@date|format=long@} and the report is due at "
                       "{@time@}. Please review the attached figures, reply with comments, "
                       "and keep the thread short. Thank you all.{@cursor@} Regards, Ada";
    if (body.size() > 200) {
        state.SkipWithError("the body must be 200 characters");
        return;
    }
    body.resize(200, '.');
    auto table = makeTable(body);
    auto lookup = table.lookup();
    auto context = makeContext();
    const std::string baseline = "hello ;si";
    const std::string text = "hello ;sig";
    auto check = TypedExpansion::decide(text, baseline, ";", true, lookup, context);
    const auto* commit = std::get_if<TypedExpansion::Commit>(&check);
    if (commit == nullptr || commit->cursorBack == 0) {
        state.SkipWithError("the body did not expand with a cursor");
        return;
    }
    const std::int64_t before = gAllocations.load();
    for (auto _ : state) {
        auto decision = TypedExpansion::decide(text, baseline, ";", true, lookup, context);
        benchmark::DoNotOptimize(decision);
    }
    reportAllocations(state, before);
}
BENCHMARK(BM_DecideHit200WithDatesAndCursor)->Repetitions(9)->ReportAggregatesOnly(true);

} // namespace

BENCHMARK_MAIN();
