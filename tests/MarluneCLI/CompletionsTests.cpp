#include "MarluneCLI/Completions.h"
#include "support/TempDir.h"

#include <array>
#include <cstdio>
#include <gtest/gtest.h>
#include <memory>
#include <sys/wait.h>

namespace marlune {
namespace {

struct ShellResult {
    int status = -1;
    std::string out;
};

ShellResult runShell(const std::string& command) {
    ShellResult result;
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen(command.c_str(), "r"), ::pclose);
    if (!pipe) {
        return result;
    }
    std::array<char, 4096> buffer{};
    while (const std::size_t n = std::fread(buffer.data(), 1, buffer.size(), pipe.get())) {
        result.out.append(buffer.data(), n);
    }
    const int status = ::pclose(pipe.release());
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

std::string scriptFor(std::string_view shell) {
    auto outcome = CommandLine::parse({"completion", std::string(shell)});
    EXPECT_TRUE(std::holds_alternative<LocalOutput>(outcome));
    return std::holds_alternative<LocalOutput>(outcome) ? std::get<LocalOutput>(outcome).text
                                                        : std::string();
}

// What bash offers for a command line whose last word is being completed.
std::string bashOffers(const std::filesystem::path& script, const std::string& line) {
    const std::string program = "source '" + script.string() + "'; COMP_WORDS=(" + line +
                                "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _marlune; "
                                "printf '%s\\n' \"${COMPREPLY[@]}\"";
    return runShell("bash --norc --noprofile -c \"$(cat <<'MARLUNE_EOF'\n" + program +
                    "\nMARLUNE_EOF\n)\"")
        .out;
}

TEST(Completions, BashScriptOffersCommandsOptionsAndChoicesAtEachLevel) {
    test::TempDir dir;
    const auto script = dir / "marlune.bash";
    test::writeFileBytes(script, scriptFor("bash"));
    ASSERT_EQ(runShell("bash -n '" + script.string() + "' 2>&1").status, 0);

    struct Case {
        std::string line;
        std::vector<std::string> offered;
        std::vector<std::string> notOffered;
    };
    const Case cases[] = {
        {"marlune ''", {"ping", "snippet", "group", "tag", "profile", "config", "completion"}, {}},
        {"marlune sn", {"snippet"}, {"ping"}},
        {"marlune snippet ex", {"expand"}, {"list"}},
        {"marlune snippet expand sig --", {"--fill", "--var", "--list-fills", "--json"}, {"--raw"}},
        {"marlune snippet list --order ''", {"asc", "desc"}, {"--limit"}},
        // A value of an option is not taken for a command: "--query list" stays at "tag".
        {"marlune --timeout 5 tag ''", {"list", "create"}, {"snippet"}},
        {"marlune snippet expand --into list --", {"--paste"}, {}},
        {"marlune completion ''", {"bash", "zsh", "fish"}, {}},
        {"marlune profile set --", {"--help", "--no-launch"}, {"--fill"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        const std::string offered = "\n" + bashOffers(script, c.line);
        for (const auto& word : c.offered) {
            EXPECT_NE(offered.find("\n" + word + "\n"), std::string::npos) << offered;
        }
        for (const auto& word : c.notOffered) {
            EXPECT_EQ(offered.find("\n" + word + "\n"), std::string::npos) << offered;
        }
    }
}

TEST(Completions, EveryScriptCoversEveryCommandAndParsesWhereTheShellExists) {
    const auto tree = CommandLine::tree();
    for (const auto shell : Completions::shells) {
        SCOPED_TRACE(std::string(shell));
        const auto script = scriptFor(shell);
        for (const auto& noun : tree.children) {
            EXPECT_NE(script.find("'" + noun.name + "'"), std::string::npos) << noun.name;
            for (const auto& verb : noun.children) {
                EXPECT_NE(script.find(verb.name), std::string::npos) << verb.name;
            }
        }
        EXPECT_NE(script.find("counter-start"), std::string::npos);

        const std::string checker =
            shell == "fish" ? "fish --no-execute" : std::string(shell) + " -n";
        if (runShell("command -v " + std::string(shell) + " >/dev/null").status != 0) {
            continue;
        }
        test::TempDir dir;
        test::writeFileBytes(dir / "script", script);
        EXPECT_EQ(runShell(checker + " '" + (dir / "script").string() + "' 2>&1").status, 0);
    }
}

} // namespace
} // namespace marlune
