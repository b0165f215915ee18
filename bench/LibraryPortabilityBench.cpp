// Goals: importing a 10,000-snippet TextExpander CSV (conversion and the write into a real,
// sealed library file) takes under 1 s; exporting 10,000 snippets (reading, unsealing,
// mapping and encoding the document) takes under 0.5 s.
#include "LibraryImport/LibraryImporter.h"
#include "Marlune/LibraryPortability.h"
#include "MarluneCore/ClipCrypto.h"
#include "MarluneCore/MarluneStore.h"
#include "MarluneCore/SymmetricKey.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

using namespace marlune;
namespace fs = std::filesystem;

// A library file in a fresh temporary folder, removed afterwards.
struct BenchLibrary {
    BenchLibrary() {
        std::string pattern = (fs::temp_directory_path() / "marlune-bench-XXXXXX").string();
        dir = ::mkdtemp(pattern.data());
        container = MarluneStore::makeContainer({}, dir / "Marlune",
                                                ClipCrypto(SymmetricKey::random()), "bench-device");
        settings = std::make_unique<Settings>(
            Settings::load(dir / "settings.json", std::chrono::system_clock::now()));
    }
    ~BenchLibrary() {
        container.reset();
        fs::remove_all(dir);
    }
    LibraryPortability portability() { return {container->mainContext(), *settings}; }

    fs::path dir;
    std::unique_ptr<ModelContainer> container;
    std::unique_ptr<Settings> settings;
};

// A TextExpander group export: abbreviation, snippet text with fill-ins, dates and quoted
// line breaks, label.
std::string textExpanderCSV(int rows) {
    std::string out;
    for (int i = 0; i < rows; ++i) {
        out += ";te" + std::to_string(i) + ",";
        if (i % 3 == 0) {
            out += "\"Dear %filltext:name=Name:default=there%,\r\nThanks for order " +
                   std::to_string(i) + ", shipped %B %e, %Y.%|\"";
        } else {
            out += "Thanks for your message - I will get back to you within two working days";
        }
        out += ",Reply " + std::to_string(i) + "\r\n";
    }
    return out;
}

ImportOptions options() {
    ImportOptions o;
    o.sourceName = "Replies.csv";
    o.now =
        std::chrono::time_point_cast<std::chrono::microseconds>(std::chrono::system_clock::now());
    return o;
}

void BM_ImportTextExpanderCSV10000(benchmark::State& state) {
    const std::string csv = textExpanderCSV(10000);
    const std::span<const std::uint8_t> bytes(reinterpret_cast<const std::uint8_t*>(csv.data()),
                                              csv.size());
    for (auto _ : state) {
        state.PauseTiming();
        BenchLibrary library;
        state.ResumeTiming();
        auto converted = LibraryImporter::convert("Replies.csv", bytes, options());
        const auto& document = std::get<ImportConversion>(converted).document;
        const auto result = library.portability().apply(document, {}, dateNow());
        if (result.createdSnippets != 10000) {
            state.SkipWithError("not every snippet was created");
        }
        state.PauseTiming();
        library.container.reset();
        state.ResumeTiming();
    }
}
BENCHMARK(BM_ImportTextExpanderCSV10000)->Unit(benchmark::kMillisecond)->Iterations(5);

void BM_Export10000Snippets(benchmark::State& state) {
    BenchLibrary library;
    const std::string csv = textExpanderCSV(10000);
    auto converted =
        LibraryImporter::convert("Replies.csv",
                                 std::span<const std::uint8_t>(
                                     reinterpret_cast<const std::uint8_t*>(csv.data()), csv.size()),
                                 options());
    library.portability().apply(std::get<ImportConversion>(converted).document, {}, dateNow());
    std::size_t bytes = 0;
    for (auto _ : state) {
        const auto document =
            library.portability().exportDocument(LibraryPortability::Scope::everything, dateNow());
        const auto text = LibraryPortability::encode(document);
        bytes = text.size();
        benchmark::DoNotOptimize(text);
    }
    state.counters["document_MiB"] = static_cast<double>(bytes) / (1 << 20);
}
BENCHMARK(BM_Export10000Snippets)->Unit(benchmark::kMillisecond)->Iterations(5);

} // namespace

BENCHMARK_MAIN();
