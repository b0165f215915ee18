#include "MarluneCLI/Completions.h"

#include <algorithm>
#include <functional>
#include <sstream>
#include <vector>

namespace marlune {

namespace {

// A command of the tree with its path ("" for the tool itself, "snippet list" for a verb).
struct Visited {
    std::string path;
    const CommandNode* node;
};

std::vector<Visited> flatten(const CommandNode& root) {
    std::vector<Visited> all;
    std::function<void(const CommandNode&, const std::string&)> visit =
        [&](const CommandNode& node, const std::string& path) {
            all.push_back({path, &node});
            for (const auto& child : node.children) {
                visit(child, path.empty() ? child.name : path + " " + child.name);
            }
        };
    visit(root, "");
    return all;
}

// The options offered at a command: its own and the tool's global ones, which CLI11 accepts
// after any command.
std::vector<const CommandNode::Option*> optionsAt(const CommandNode& root,
                                                  const CommandNode& node) {
    std::vector<const CommandNode::Option*> options;
    std::vector<std::string> seen;
    const auto add = [&](const CommandNode& from) {
        for (const auto& option : from.options) {
            if (std::find(seen.begin(), seen.end(), option.names.front()) != seen.end()) {
                continue;
            }
            seen.push_back(option.names.front());
            options.push_back(&option);
        }
    };
    add(node);
    if (&node != &root) {
        add(root);
    }
    return options;
}

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const auto& word : words) {
        text += (text.empty() ? "" : " ") + word;
    }
    return text;
}

// Inside single quotes of POSIX shells and zsh.
std::string shellQuoted(std::string_view text) {
    std::string quoted = "'";
    for (char c : text) {
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return quoted + "'";
}

// Inside single quotes of fish, where only the quote and the backslash are special.
std::string fishQuoted(std::string_view text) {
    std::string quoted = "'";
    for (char c : text) {
        if (c == '\'' || c == '\\') {
            quoted += '\\';
        }
        quoted += c;
    }
    return quoted + "'";
}

std::vector<std::string> valuedNames(const std::vector<const CommandNode::Option*>& options) {
    std::vector<std::string> names;
    for (const auto* option : options) {
        if (option->takesValue) {
            names.insert(names.end(), option->names.begin(), option->names.end());
        }
    }
    return names;
}

std::vector<std::string> allNames(const std::vector<const CommandNode::Option*>& options) {
    std::vector<std::string> names;
    for (const auto* option : options) {
        names.insert(names.end(), option->names.begin(), option->names.end());
    }
    return names;
}

std::vector<std::string> childNames(const CommandNode& node) {
    std::vector<std::string> names;
    for (const auto& child : node.children) {
        names.push_back(child.name);
    }
    return names;
}

// Both POSIX-style shells: the function that names the options taking a value at each
// command, and the loop that finds the command path among the words before the cursor,
// skipping options and their values. `pathVar` holds the path; the words are `words[first..]`
// up to `current`.
void writeValuedFunction(std::ostream& out, const CommandNode& root,
                         const std::vector<Visited>& commands) {
    out << "__marlune_valued() {\n"
           "    case \"$1\" in\n";
    for (const auto& [path, node] : commands) {
        out << "        " << shellQuoted(path) << ") echo "
            << shellQuoted(joined(valuedNames(optionsAt(root, *node)))) << " ;;\n";
    }
    out << "    esac\n"
           "}\n\n";
}

void writeCommandPathLoop(std::ostream& out, const std::vector<Visited>& commands,
                          std::string_view pathVar, std::string_view words, int first,
                          std::string_view current) {
    out << "    for ((i = " << first << "; i < " << current << "; i++)); do\n"
        << "        word=\"${" << words << "[i]}\"\n"
        << "        if ((skip)); then skip=0; continue; fi\n"
           "        case \"$word\" in\n"
           "            --*=*) continue ;;\n"
           "            -*)\n"
        << "                case \" $(__marlune_valued \"$" << pathVar << "\") \" in\n"
        << "                    *\" $word \"*) skip=1 ;;\n"
           "                esac\n"
           "                continue ;;\n"
           "        esac\n"
        << "        next=\"${" << pathVar << ":+$" << pathVar << " }$word\"\n"
        << "        case \"$next\" in\n";
    std::string known;
    for (const auto& [path, node] : commands) {
        if (!path.empty()) {
            known += (known.empty() ? "" : "|") + shellQuoted(path);
        }
    }
    out << "            " << known << ") " << pathVar << "=\"$next\" ;;\n"
        << "        esac\n"
           "    done\n";
}

// One case per option with a fixed set of values, keyed "command path|option name".
void writeChoiceCases(std::ostream& out, const CommandNode& root,
                      const std::vector<Visited>& commands,
                      const std::function<std::string(const std::vector<std::string>&)>& reply) {
    for (const auto& [path, node] : commands) {
        for (const auto* option : optionsAt(root, *node)) {
            if (option->choices.empty()) {
                continue;
            }
            for (const auto& name : option->names) {
                out << "        " << shellQuoted(path + "|" + name) << ") " << reply(option->choices)
                    << " ;;\n";
            }
        }
    }
}

std::string bash(const CommandNode& root) {
    const auto commands = flatten(root);
    std::ostringstream out;
    out << "# bash completion for marlune\n";
    writeValuedFunction(out, root, commands);
    out << "_marlune() {\n"
           "    local cur=\"${COMP_WORDS[COMP_CWORD]}\" prev=\"${COMP_WORDS[COMP_CWORD-1]}\"\n"
           "    local path=\"\" word next i skip=0\n";
    writeCommandPathLoop(out, commands, "path", "COMP_WORDS", 1, "COMP_CWORD");
    out << "    case \"$path|$prev\" in\n";
    writeChoiceCases(out, root, commands, [](const std::vector<std::string>& choices) {
        return "COMPREPLY=($(compgen -W " + shellQuoted(joined(choices)) +
               " -- \"$cur\")); return 0";
    });
    out << "    esac\n"
           "    case \" $(__marlune_valued \"$path\") \" in\n"
           "        *\" $prev \"*) COMPREPLY=(); return 0 ;;\n"
           "    esac\n"
           "    local words options\n"
           "    case \"$path\" in\n";
    for (const auto& [path, node] : commands) {
        auto words = childNames(*node);
        words.insert(words.end(), node->argumentChoices.begin(), node->argumentChoices.end());
        out << "        " << shellQuoted(path) << ") words=" << shellQuoted(joined(words))
            << "; options=" << shellQuoted(joined(allNames(optionsAt(root, *node)))) << " ;;\n";
    }
    out << "    esac\n"
           "    if [[ \"$cur\" == -* || -z \"$words\" ]]; then\n"
           "        COMPREPLY=($(compgen -W \"$options\" -- \"$cur\"))\n"
           "    else\n"
           "        COMPREPLY=($(compgen -W \"$words\" -- \"$cur\"))\n"
           "    fi\n"
           "}\n"
           "complete -F _marlune marlune\n";
    return out.str();
}

std::string zsh(const CommandNode& root) {
    const auto commands = flatten(root);
    std::ostringstream out;
    out << "#compdef marlune\n"
           "# zsh completion for marlune\n";
    writeValuedFunction(out, root, commands);
    out << "_marlune() {\n"
           "    local cmdpath=\"\" word next i skip=0 prev=\"${words[CURRENT-1]}\"\n";
    writeCommandPathLoop(out, commands, "cmdpath", "words", 2, "CURRENT");
    out << "    case \"$cmdpath|$prev\" in\n";
    writeChoiceCases(out, root, commands, [](const std::vector<std::string>& choices) {
        return "compadd -- " + joined(choices) + "; return";
    });
    out << "    esac\n"
           "    case \" $(__marlune_valued \"$cmdpath\") \" in\n"
           "        *\" $prev \"*) return 1 ;;\n"
           "    esac\n"
           "    local -a subcommands options\n"
           "    case \"$cmdpath\" in\n";
    for (const auto& [path, node] : commands) {
        out << "        " << shellQuoted(path) << ")\n            subcommands=(";
        for (const auto& child : node->children) {
            out << " " << shellQuoted(child.name + ":" + child.description);
        }
        for (const auto& value : node->argumentChoices) {
            out << " " << shellQuoted(value);
        }
        out << " )\n            options=(";
        for (const auto* option : optionsAt(root, *node)) {
            for (const auto& name : option->names) {
                out << " " << shellQuoted(name + ":" + option->description);
            }
        }
        out << " ) ;;\n";
    }
    out << "    esac\n"
           "    if [[ \"$PREFIX\" == -* || ${#subcommands} -eq 0 ]]; then\n"
           "        _describe -t options 'option' options\n"
           "    else\n"
           "        _describe -t commands 'command' subcommands\n"
           "    fi\n"
           "}\n\n"
           "if [[ \"${funcstack[1]}\" == _marlune ]]; then\n"
           "    _marlune \"$@\"\n"
           "else\n"
           "    compdef _marlune marlune\n"
           "fi\n";
    return out.str();
}

std::string fish(const CommandNode& root) {
    const auto commands = flatten(root);
    std::ostringstream out;
    out << "# fish completion for marlune\n"
           "set -g __marlune_paths";
    for (const auto& [path, node] : commands) {
        if (!path.empty()) {
            out << " " << fishQuoted(path);
        }
    }
    out << "\n\n"
           "function __marlune_valued\n"
           "    switch \"$argv[1]\"\n";
    for (const auto& [path, node] : commands) {
        const auto valued = valuedNames(optionsAt(root, *node));
        out << "        case " << fishQuoted(path) << "\n";
        if (!valued.empty()) {
            out << "            printf '%s\\n'";
            for (const auto& name : valued) {
                out << " " << fishQuoted(name);
            }
            out << "\n";
        }
    }
    out << "    end\n"
           "end\n\n"
           "function __marlune_path\n"
           "    set -l path ''\n"
           "    set -l skip 0\n"
           "    for word in (commandline -opc)[2..-1]\n"
           "        if test $skip = 1\n"
           "            set skip 0\n"
           "            continue\n"
           "        end\n"
           "        switch $word\n"
           "            case '--*=*'\n"
           "                continue\n"
           "            case '-*'\n"
           "                if contains -- $word (__marlune_valued $path)\n"
           "                    set skip 1\n"
           "                end\n"
           "                continue\n"
           "        end\n"
           "        set -l next (string trim -- \"$path $word\")\n"
           "        if contains -- $next $__marlune_paths\n"
           "            set path $next\n"
           "        end\n"
           "    end\n"
           "    echo $path\n"
           "end\n\n"
           "complete -c marlune -f\n";
    for (const auto& [path, node] : commands) {
        const std::string condition = fishQuoted("test \"(__marlune_path)\" = " + fishQuoted(path));
        for (const auto& child : node->children) {
            out << "complete -c marlune -n " << condition << " -a " << fishQuoted(child.name)
                << " -d " << fishQuoted(child.description) << "\n";
        }
        if (!node->argumentChoices.empty()) {
            out << "complete -c marlune -n " << condition << " -a "
                << fishQuoted(joined(node->argumentChoices)) << "\n";
        }
        // The tool's own options are offered everywhere, so they are written once, without
        // a condition, and not again under each command.
        for (const auto& option : node->options) {
            const bool global = std::any_of(
                root.options.begin(), root.options.end(),
                [&](const CommandNode::Option& other) { return other.names == option.names; });
            if (!path.empty() && global) {
                continue;
            }
            out << "complete -c marlune";
            if (!path.empty()) {
                out << " -n " << condition;
            }
            for (const auto& name : option.names) {
                out << (name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1));
            }
            if (!option.choices.empty()) {
                out << " -x -a " << fishQuoted(joined(option.choices));
            } else if (option.takesValue) {
                out << " -r";
            }
            out << " -d " << fishQuoted(option.description) << "\n";
        }
    }
    return out.str();
}

} // namespace

std::string Completions::script(std::string_view shell, const CommandNode& root) {
    if (shell == "zsh") {
        return zsh(root);
    }
    if (shell == "fish") {
        return fish(root);
    }
    return bash(root);
}

} // namespace marlune
