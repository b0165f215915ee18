#pragma once

#include <thread>

namespace marlune {

// The library is touched from one thread only: the main thread, which runs the event loop.
// Every store operation asserts it, so a call from a worker thread fails loudly at the call
// instead of corrupting the store later.
class MainActor {
public:
    // The thread that loaded the program is the main thread unless the program says otherwise
    // (before it starts any other thread).
    static void adoptCurrentThread();
    static bool isCurrentThread();
    // Terminates the process with a message naming the caller when not on the main thread.
    // (The compiler builtins stand in for std::source_location, which clang 14 lacks with
    // libstdc++ 12.)
    static void assertIsolated(const char* function = __builtin_FUNCTION(),
                               const char* file = __builtin_FILE(), int line = __builtin_LINE());
};

} // namespace marlune
