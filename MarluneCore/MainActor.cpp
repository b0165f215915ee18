#include "MarluneCore/MainActor.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace marlune {

namespace {
// Initialised during static initialisation, which runs on the thread that loads the program.
std::atomic<std::thread::id>& mainThread() {
    static std::atomic<std::thread::id> id{std::this_thread::get_id()};
    return id;
}
[[maybe_unused]] const bool mainThreadRecorded = (mainThread().load(), true);
} // namespace

void MainActor::adoptCurrentThread() { mainThread().store(std::this_thread::get_id()); }

bool MainActor::isCurrentThread() { return mainThread().load() == std::this_thread::get_id(); }

void MainActor::assertIsolated(std::source_location where) {
    if (!isCurrentThread()) {
        std::fprintf(stderr, "[Marlune] %s (%s:%u) must run on the main thread.\n",
                     where.function_name(), where.file_name(), where.line());
        std::abort();
    }
}

} // namespace marlune
