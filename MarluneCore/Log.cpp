#include "MarluneCore/Log.h"

#include <cstdio>
#include <mutex>

namespace marlune {

namespace {
std::mutex& sinkMutex() {
    static std::mutex mutex;
    return mutex;
}
Logger::Sink& currentSink() {
    static Logger::Sink sink;
    return sink;
}
} // namespace

Logger::Sink Logger::setSink(Sink sink) {
    std::lock_guard lock(sinkMutex());
    Sink old = std::move(currentSink());
    currentSink() = std::move(sink);
    return old;
}

void Logger::write(LogLevel level, std::string_view message) const {
    std::string line = "[Marlune] ";
    line.append(message);
    std::lock_guard lock(sinkMutex());
    if (auto& sink = currentSink()) {
        sink(category_, level, line);
        return;
    }
    line.push_back('\n');
    std::fwrite(line.data(), 1, line.size(), stderr);
}

} // namespace marlune
