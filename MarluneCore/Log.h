#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace marlune {

enum class LogLevel { debug, info, warning, error };

// One logger per module. Lines go to standard error as "[Marlune] <message>"; a test can
// install a sink to read them instead. Never log secrets or clipboard/snippet content.
class Logger {
public:
    constexpr explicit Logger(std::string_view category) : category_(category) {}

    void debug(std::string_view message) const { write(LogLevel::debug, message); }
    void info(std::string_view message) const { write(LogLevel::info, message); }
    void warning(std::string_view message) const { write(LogLevel::warning, message); }
    void error(std::string_view message) const { write(LogLevel::error, message); }

    std::string_view category() const { return category_; }

    using Sink =
        std::function<void(std::string_view category, LogLevel level, std::string_view line)>;
    // Replaces the process-wide sink; an empty sink restores standard error. Returns the old one.
    static Sink setSink(Sink sink);

private:
    void write(LogLevel level, std::string_view message) const;
    std::string_view category_;
};

namespace logs {
inline constexpr Logger core{"core"};
inline constexpr Logger store{"store"};
inline constexpr Logger crypto{"crypto"};
inline constexpr Logger settings{"settings"};
inline constexpr Logger app{"app"};
inline constexpr Logger platform{"platform"};
} // namespace logs

} // namespace marlune
