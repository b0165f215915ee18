#pragma once

#include "MarluneCLI/CommandLine.h"

#include <array>
#include <string>
#include <string_view>

namespace marlune {

// Shell completion scripts written from the tool's own command tree, so that a new command
// or option is completed as soon as the grammar has it.
struct Completions {
    static constexpr std::array<std::string_view, 3> shells = {"bash", "zsh", "fish"};

    // `shell` is one of `shells`; the script installs completion for the command `marlune`.
    static std::string script(std::string_view shell, const CommandNode& root);
};

} // namespace marlune
