// Goals: a ZIP archive whose headers claim 10 GB is refused in under 100 ms with under 50 MB
// of extra peak memory, whether the claim is in its index (refused by open) or hidden behind
// a header that understates a stream really inflating to 10 GB (refused while reading).
// CSV: a 10,000-row TextExpander export parses at 100 MB/s or better.
#include "LibraryImport/CSVReader.h"
#include "LibraryImport/ZipArchive.h"
#include "tests/LibraryImport/ZipFixture.h"

#include <benchmark/benchmark.h>
#include <fstream>
#include <string>
#include <sys/resource.h>

namespace {

using marlune::ZipArchive;
using marlune::testing::FixtureEntry;

// The process's resident high-water mark restarts at the current size, so that what the
// set-up of the bombs touched does not hide what refusing them touches. Falls back to the
// lifetime peak where /proc/self/clear_refs can't be written.
void restartPeakResident() {
    std::ofstream("/proc/self/clear_refs") << "5";
}

double statusMiB(std::string_view key) {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.starts_with(key)) {
            return std::stod(line.substr(key.size())) / 1024.0; // reported in kB
        }
    }
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

// Two hundred 50 MiB files of real zeros: about 10 MB on disk, 10 GiB declared.
const std::vector<std::uint8_t>& honestBomb() {
    static const auto bytes = [] {
        const auto fifty = marlune::testing::zeroBombStream(50);
        std::vector<FixtureEntry> entries;
        for (int i = 0; i < 200; ++i) {
            entries.push_back(marlune::testing::file("part" + std::to_string(i))
                                  .withData(fifty)
                                  .declaring(50ULL << 20));
        }
        return marlune::testing::buildZip(entries).bytes;
    }();
    return bytes;
}

// One file that says 1 KiB and inflates to 10 GiB.
const std::vector<std::uint8_t>& lyingBomb() {
    static const auto bytes = [] {
        const auto liar = marlune::testing::file("small.txt")
                              .withData(marlune::testing::zeroBombStream(10240))
                              .declaring(1024)
                              .withCrc(marlune::testing::crcOf(std::string(1024, '\0')));
        return marlune::testing::buildZip({liar}).bytes;
    }();
    return bytes;
}

void BM_ZipBombRefusedByIndex(benchmark::State& state) {
    const auto& bytes = honestBomb();
    restartPeakResident();
    const double before = statusMiB("VmRSS:");
    for (auto _ : state) {
        auto opened = ZipArchive::open(bytes);
        if (!std::holds_alternative<marlune::ZipError>(opened)) {
            state.SkipWithError("the bomb was opened");
        }
        benchmark::DoNotOptimize(opened);
    }
    state.counters["peak_rss_growth_MiB"] = statusMiB("VmHWM:") - before;
    state.counters["archive_MiB"] = static_cast<double>(bytes.size()) / (1 << 20);
}
BENCHMARK(BM_ZipBombRefusedByIndex)->Unit(benchmark::kMicrosecond);

void BM_ZipBombRefusedWhileInflating(benchmark::State& state) {
    const auto& bytes = lyingBomb();
    auto opened = ZipArchive::open(bytes);
    const auto& archive = std::get<ZipArchive>(opened);
    restartPeakResident();
    const double before = statusMiB("VmRSS:");
    for (auto _ : state) {
        auto read = archive.read("small.txt");
        if (!std::holds_alternative<marlune::ZipError>(read)) {
            state.SkipWithError("the bomb was read");
        }
        benchmark::DoNotOptimize(read);
    }
    state.counters["peak_rss_growth_MiB"] = statusMiB("VmHWM:") - before;
}
BENCHMARK(BM_ZipBombRefusedWhileInflating)->Unit(benchmark::kMicrosecond);

// The shape of a TextExpander export: abbreviation, snippet text (some of it quoted, with
// commas, doubled quotes and line breaks), label.
std::string csvExport(int rows) {
    std::string out;
    for (int i = 0; i < rows; ++i) {
        out += ";sig" + std::to_string(i) + ",";
        if (i % 3 == 0) {
            out += "\"Best regards,\nAda \"\"the\"\" Lovelace\r\nAnalytical Engines Ltd\"";
        } else {
            out += "Thanks for your message - I will get back to you within two working days";
        }
        out += ",Signature " + std::to_string(i) + "\r\n";
    }
    return out;
}

void BM_CSVTenThousandRows(benchmark::State& state) {
    const std::string text = csvExport(10000);
    for (auto _ : state) {
        auto rows = marlune::CSVReader::read(text);
        benchmark::DoNotOptimize(rows);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
    state.counters["rows_per_s"] = benchmark::Counter(
        10000.0 * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_CSVTenThousandRows)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
