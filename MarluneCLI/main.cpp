#include "MarluneCLI/AppLauncher.h"
#include "MarluneCLI/ToolRunner.h"

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <unistd.h>

namespace {

void writeAll(int fd, const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n <= 0) {
            return;
        }
        done += static_cast<std::size_t>(n);
    }
}

} // namespace

int main(int argc, char** argv) {
    using namespace marlune;
    ToolEnvironment environment;
    environment.variables = [](std::string_view name) -> std::optional<std::string> {
        const char* value = std::getenv(std::string(name).c_str());
        if (value == nullptr || *value == '\0') {
            return std::nullopt;
        }
        return std::string(value);
    };
    environment.appExecutable = AppLauncher::besideTool();
    environment.stdoutIsTerminal = ::isatty(STDOUT_FILENO) == 1;
    environment.readStandardInput = []() -> std::optional<std::string> {
        std::ostringstream contents;
        contents << std::cin.rdbuf();
        if (std::cin.bad()) {
            return std::nullopt;
        }
        return contents.str();
    };

    const auto output = ToolRunner::run({argv + 1, argv + argc}, environment);
    writeAll(STDOUT_FILENO, output.out);
    writeAll(STDERR_FILENO, output.err);
    return output.exitStatus;
}
