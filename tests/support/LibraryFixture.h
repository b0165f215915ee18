#pragma once

#include "MarluneCore/ClipCrypto.h"
#include "MarluneCore/MarluneStore.h"
#include "MarluneCore/SymmetricKey.h"
#include "support/TempDir.h"

#include <chrono>
#include <memory>

namespace marlune::test {

// A fixed "now" so that every date in a test is exact.
inline Date testNow() { return fromStorage(1'790'000'000'000'000); } // 2026-09-21T14:13:20Z

inline Date daysAfter(Date date, double days) { return addSeconds(date, days * 86'400.0); }

// A real library: SQLite in memory, or a file in a temporary directory, sealed with a fresh key.
struct Library {
    explicit Library(bool onDisk = false) {
        ContainerChoices choices;
        choices.inMemory = !onDisk;
        container = MarluneStore::makeContainer(choices, dir.path() / "Marlune",
                                                ClipCrypto(key), "test-device");
    }
    ModelContext& context() { return container->mainContext(); }

    TempDir dir;
    SymmetricKey key = SymmetricKey::random();
    std::unique_ptr<ModelContainer> container;
};

} // namespace marlune::test
