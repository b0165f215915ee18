#include "ExpansionEngine/HostLocale.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

namespace marlune {
namespace {

// Sets an environment variable for the life of the object and puts the old value back.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const char* value) : name_(name) {
        if (const char* old = std::getenv(name)) {
            old_ = old;
        }
        if (value != nullptr) {
            ::setenv(name, value, 1);
        } else {
            ::unsetenv(name);
        }
    }
    ~ScopedEnv() {
        if (old_) {
            ::setenv(name_, old_->c_str(), 1);
        } else {
            ::unsetenv(name_);
        }
    }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    const char* name_;
    std::optional<std::string> old_;
};

struct LocaleCase {
    const char* lcAll;
    const char* lcTime;
    const char* lang;
    const char* expected;
};

TEST(HostLocale, LocaleFollowsThePosixPrecedenceAndIgnoresC) {
    const std::vector<LocaleCase> cases{
        {nullptr, nullptr, "de_DE.UTF-8", "de_DE"},
        {nullptr, "fr_CA.UTF-8", "de_DE.UTF-8", "fr_CA"},
        {"ja_JP.UTF-8", "fr_CA.UTF-8", "de_DE.UTF-8", "ja_JP"},
        {nullptr, nullptr, "sr_RS.UTF-8@latin", "sr_RS"},
        {"C.UTF-8", nullptr, "de_DE.UTF-8", "en_US"},
        {nullptr, nullptr, "POSIX", "en_US"},
        {nullptr, nullptr, nullptr, "en_US"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.lang ? c.lang : "-") + " / " + (c.lcAll ? c.lcAll : "-"));
        ScopedEnv all("LC_ALL", c.lcAll);
        ScopedEnv time("LC_TIME", c.lcTime);
        ScopedEnv lang("LANG", c.lang);
        EXPECT_EQ(HostLocale::localeID(), c.expected);
    }
}

TEST(HostLocale, TimeZoneComesFromTheSession) {
    {
        ScopedEnv tz("TZ", "Europe/Berlin");
        EXPECT_EQ(HostLocale::timeZoneID(), "Europe/Berlin");
    }
    {
        ScopedEnv tz("TZ", "America/Sao_Paulo");
        EXPECT_EQ(HostLocale::timeZoneID(), "America/Sao_Paulo");
    }
}

} // namespace
} // namespace marlune
