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

void MainActor::assertIsolated(const char* function, const char* file, int line) {
    if (!isCurrentThread()) {
        std::fprintf(stderr, "[Marlune] %s (%s:%d) must run on the main thread.\n", function, file,
                     line);
        std::abort();
    }
}

} // namespace marlune
