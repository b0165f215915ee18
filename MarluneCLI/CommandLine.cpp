#include "MarluneCLI/CommandLine.h"

#include "MarluneCLI/Completions.h"
#include "MarluneCLIProtocol/CLIArgs.h"
#include "MarluneCLIProtocol/CLICommandName.h"
#include "MarluneCLIProtocol/CLIDateFormat.h"
#include "MarluneCLIProtocol/CLIErrorCode.h"
#include "MarluneCLIProtocol/ClipRecords.h"
#include "MarluneCLIProtocol/CommonRecords.h"
#include "MarluneCLIProtocol/LibraryRecords.h"
#include "MarluneCLIProtocol/SnippetRecords.h"
#include "MarluneCLIProtocol/SystemRecords.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <functional>
#include <map>
#include <memory>

#ifndef MARLUNE_VERSION
#define MARLUNE_VERSION "0.0.0"
#endif

namespace marlune {

namespace {

constexpr std::int64_t defaultPageSize = 50;

using BuildResult = std::variant<CLIRequest, CLIErrorPayload>;

CLIErrorPayload usageError(std::string message, std::optional<std::string> hint = std::nullopt) {
    return {std::string(CLIErrorCode::usage), std::move(message), std::move(hint)};
}

std::string helpHint(const std::string& path) {
    return "Run `" + path + " --help` to see what it takes.";
}

// "name=value" pairs of a repeatable option, in the order given; a later pair wins.
std::variant<std::map<std::string, std::string>, CLIErrorPayload>
splitPairs(const std::vector<std::string>& pairs, const std::string& option,
           const std::string& path) {
    std::map<std::string, std::string> result;
    for (const auto& pair : pairs) {
        const auto equals = pair.find('=');
        if (equals == std::string::npos || equals == 0) {
            return usageError(option + " takes name=value, not '" + pair + "'.", helpHint(path));
        }
        result[pair.substr(0, equals)] = pair.substr(equals + 1);
    }
    return result;
}

// The whole grammar for one parse. CLI11 binds options to storage that must outlive the
// parse, so every command keeps its argument record in a shared object that its build step
// also holds.
class Grammar {
public:
    using Outcome = CommandLine::Outcome;

    // With `only`, just that noun's commands are built: the tool runs once per command, and
    // building every command's options is most of its start-up. Without it, the whole tree.
    explicit Grammar(std::string_view only = {}) {
        const auto wants = [only](std::string_view noun) { return only.empty() || only == noun; };
        app_.fallthrough();
        app_.set_version_flag("-V,--version", "marlune " MARLUNE_VERSION);
        app_.add_flag("--json", json_, "Print the result record as JSON");
        app_.add_flag("--no-launch", noLaunch_,
                      "Fail instead of starting Marlune when it is not running");
        app_.add_option("--timeout", timeoutSeconds_,
                        "Seconds to wait for Marlune's answer (default 60)")
            ->check(CLI::Range(1, 86'400));
        if (wants("ping")) {
            addPing();
        }
        if (wants("snippet")) {
            addSnippets();
        }
        if (wants("clip")) {
            addClips();
        }
        if (wants("group")) {
            addGroups();
        }
        if (wants("tag")) {
            addTags();
        }
        if (wants("profile")) {
            addProfile();
        }
        if (wants("config")) {
            addConfig();
        }
        // --- cli2 nouns begin
        // --- cli2 nouns end
        // --- data nouns begin
        // --- data nouns end
        // --- board nouns begin
        // --- board nouns end
        // Always present: run() asks whether it was chosen.
        addCompletion();
        // Set last: subcommands inherit the footer they find when they are created.
        app_.footer("Run `marlune <command> --help` for the options of each command.");
    }

    CLI::App& app() { return app_; }

    Outcome run(const std::vector<std::string>& arguments);

    const std::map<const CLI::Option*, std::vector<std::string>>& choices() const {
        return choices_;
    }

private:
    struct Leaf {
        CLI::App* app;
        std::function<BuildResult()> build;
    };

    static std::string pathOf(const CLI::App* app) {
        std::string path;
        for (; app != nullptr; app = app->get_parent()) {
            path = path.empty() ? app->get_name() : app->get_name() + " " + path;
        }
        return path;
    }

    CLI::App* noun(const std::string& name, const std::string& description) {
        return app_.add_subcommand(name, description);
    }

    template <class Args>
    void leaf(CLI::App* command, std::string_view name, std::shared_ptr<Args> args,
              std::function<std::optional<CLIErrorPayload>(Args&)> finish = {}) {
        leaves_.push_back({command, [name, args, finish]() -> BuildResult {
                               if (finish) {
                                   if (auto error = finish(*args)) {
                                       return std::move(*error);
                                   }
                               }
                               return makeRequest(name, *args, {});
                           }});
    }

    template <class Args, class T>
    CLI::Option* optional(CLI::App* command, const std::string& names, std::shared_ptr<Args> args,
                          std::optional<T> Args::*member, const std::string& description) {
        return command->add_option_function<T>(
            names, [args, member](const T& value) { (*args).*member = value; }, description);
    }

    template <class Args>
    CLI::Option* choice(CLI::App* command, const std::string& names, std::shared_ptr<Args> args,
                        std::optional<std::string> Args::*member, std::vector<std::string> allowed,
                        const std::string& description) {
        auto* option = optional(command, names, args, member, description);
        option->check(CLI::IsMember(allowed));
        choices_[option] = std::move(allowed);
        return option;
    }

    template <class Args>
    void ref(CLI::App* command, std::shared_ptr<Args> args, const std::string& kind) {
        command
            ->add_option("ref", args->ref,
                         "The " + kind + ": its id, or " +
                             (kind == "snippet" ? "keyword or title" : "name"))
            ->required();
    }

    template <class Args>
    void by(CLI::App* command, std::shared_ptr<Args> args, std::optional<std::string> Args::*member,
            bool snippet) {
        if (snippet) {
            choice(command, "--by", args, member, {"keyword", "title"},
                   "Match the reference only against the keyword or only the title");
        } else {
            optional(command, "--by", args, member, "Which attribute the reference names");
        }
    }

    template <class Args> void paging(CLI::App* command, std::shared_ptr<Args> args) {
        args->limit = defaultPageSize;
        command->add_option("--limit", args->limit, "Items per page (default 50)")
            ->check(CLI::Range(std::int64_t{1}, std::int64_t{10'000}));
        command->add_option("--offset", args->offset, "Index of the first item to show")
            ->check(CLI::NonNegativeNumber);
    }

    CLI::Option* contentFileOption(CLI::App* command) {
        return command->add_option_function<std::string>(
            "--content-file", [this](const std::string& path) { contentFile_ = path; },
            "Read the template text from this file ('-' for standard input)");
    }

    void addPing() {
        auto* command = app_.add_subcommand("ping", "Check that Marlune answers");
        leaf(command, CLICommandName::ping, std::make_shared<PingArgs>());
    }

    void addList(CLI::App* parent, std::string_view name, const std::string& plural,
                 bool snippetFilters) {
        auto* command = parent->add_subcommand("list", "List " + plural);
        auto args = std::make_shared<ListArgs>();
        command->add_option_function<std::string>(
            "query", [args](const std::string& value) { args->query = value; },
            "Only " + plural + " whose text contains this");
        if (snippetFilters) {
            optional(command, "--group", args, &ListArgs::groupRef, "Only snippets of this group");
            optional(command, "--tag", args, &ListArgs::tagRef, "Only snippets with this tag");
            command->add_flag_function(
                "--favorites", [args](std::int64_t) { args->favoriteOnly = true; },
                "Only favourite snippets");
        }
        optional(command, "--sort", args, &ListArgs::sort, "Sort key");
        choice(command, "--order", args, &ListArgs::order, {"asc", "desc"}, "Sort order");
        command->add_flag_function(
            "--trashed", [args](std::int64_t) { args->trashed = true; },
            "List " + plural + " in the Trash instead");
        paging(command, args);
        leaf(command, name, args);
    }

    void addDelete(CLI::App* parent, std::string_view name, const std::string& kind) {
        auto* command = parent->add_subcommand("delete", "Move a " + kind + " to the Trash");
        auto args = std::make_shared<RefArgs>();
        ref(command, args, kind);
        by(command, args, &RefArgs::by, kind == "snippet");
        command->add_flag("--dry-run", args->dryRun, "Show what would be deleted, change nothing");
        command->add_flag_function(
            "--now", [args](std::int64_t) { args->now = true; },
            "Delete at once instead of moving to the Trash");
        leaf(command, name, args);
    }

    void addClips() {
        auto* clips = noun("clip", "Clipboard history: list, show and search clips");
        {
            auto* command = clips->add_subcommand("list", "List clips, most recent first");
            auto args = std::make_shared<ListArgs>();
            command->add_option_function<std::string>(
                "query", [args](const std::string& value) { args->query = value; },
                "Only clips whose text contains this");
            choice(command, "--kind", args, &ListArgs::kind,
                   {"text", "richText", "url", "image", "file", "color"},
                   "Only clips of this kind");
            command->add_flag_function(
                "--pinned", [args](std::int64_t) { args->pinnedOnly = true; }, "Only pinned clips");
            paging(command, args);
            leaf(command, CLICommandName::clipList, args);
        }
        {
            auto* command = clips->add_subcommand("get", "Show one clip with its flavours");
            auto args = std::make_shared<GetArgs>();
            command->add_option("ref", args->ref, "The clip: its id, or the start of it")
                ->required();
            leaf(command, CLICommandName::clipGet, args);
        }
        {
            auto* command = clips->add_subcommand("search", "Search the clipboard history");
            auto args = std::make_shared<SearchArgs>();
            command->add_option("query", args->query, "What to look for")->required();
            command->add_flag("--semantic", args->semantic, "Search by meaning, not by text");
            choice(command, "--kind", args, &SearchArgs::kind,
                   {"text", "richText", "url", "image", "file", "color"},
                   "Only clips of this kind");
            paging(command, args);
            leaf(command, CLICommandName::clipSearch, args);
        }
    }

    void addSnippets() {
        auto* snippets = noun("snippet", "Snippets: list, show, write and expand them");
        addList(snippets, CLICommandName::snippetList, "snippets", true);

        {
            auto* command = snippets->add_subcommand("get", "Show one snippet");
            auto args = std::make_shared<GetArgs>();
            ref(command, args, "snippet");
            by(command, args, &GetArgs::by, true);
            command->add_flag("--raw", args->raw, "Show the stored text without rendering");
            leaf(command, CLICommandName::snippetGet, args);
        }
        {
            auto* command = snippets->add_subcommand("search", "Search snippets");
            auto args = std::make_shared<SearchArgs>();
            command->add_option("query", args->query, "What to look for")->required();
            command->add_flag("--semantic", args->semantic, "Search by meaning, not by text");
            optional(command, "--threshold", args, &SearchArgs::threshold,
                     "Lowest similarity of a semantic hit (0 to 1)")
                ->check(CLI::Range(0.0, 1.0));
            optional(command, "--kind", args, &SearchArgs::kind, "Only this kind of match");
            paging(command, args);
            leaf(command, CLICommandName::snippetSearch, args);
        }
        {
            auto* command = snippets->add_subcommand("create", "Create a snippet");
            auto args = std::make_shared<SnippetCreateArgs>();
            command->add_option("title", args->title, "The snippet's title")->required();
            optional(command, "-k,--keyword", args, &SnippetCreateArgs::keyword,
                     "What to type to expand it");
            auto* content = optional(command, "-c,--content", args, &SnippetCreateArgs::content,
                                     "The template text");
            contentFileOption(command)->excludes(content);
            choice(command, "--content-type", args, &SnippetCreateArgs::contentType,
                   {"plainText", "richText", "markdown"}, "How the content is read");
            optional(command, "-g,--group", args, &SnippetCreateArgs::groupRef,
                     "Put it in this group");
            command->add_option("-t,--tag", args->tagRefs, "Tag it (repeatable)")
                ->allow_extra_args(false);
            command->add_flag("--favorite", args->favorite, "Mark it as a favourite");
            command->add_flag("--validate", args->validate,
                              "Refuse a template with errors instead of saving it");
            command->add_flag("--unique", args->unique,
                              "Refuse a keyword that another snippet already uses");
            leaf(command, CLICommandName::snippetCreate, args);
        }
        {
            auto* command = snippets->add_subcommand("update", "Change a snippet");
            auto args = std::make_shared<SnippetUpdateArgs>();
            ref(command, args, "snippet");
            by(command, args, &SnippetUpdateArgs::by, true);
            optional(command, "--title", args, &SnippetUpdateArgs::title, "New title");
            optional(command, "-k,--keyword", args, &SnippetUpdateArgs::keyword, "New keyword");
            auto* content = optional(command, "-c,--content", args, &SnippetUpdateArgs::content,
                                     "New template text");
            contentFileOption(command)->excludes(content);
            choice(command, "--content-type", args, &SnippetUpdateArgs::contentType,
                   {"plainText", "richText", "markdown"}, "How the content is read");
            auto* group = optional(command, "-g,--group", args, &SnippetUpdateArgs::groupRef,
                                   "Move it to this group");
            auto* ungroup =
                command->add_flag("--ungroup", args->ungroup, "Take it out of its group");
            group->excludes(ungroup);
            command->add_option("--add-tag", args->addTagRefs, "Add this tag (repeatable)")
                ->allow_extra_args(false);
            command->add_option("--remove-tag", args->removeTagRefs, "Remove this tag (repeatable)")
                ->allow_extra_args(false);
            auto* favorite = command->add_flag_function(
                "--favorite", [args](std::int64_t) { args->favorite = true; },
                "Mark it as a favourite");
            auto* unfavorite = command->add_flag_function(
                "--no-favorite", [args](std::int64_t) { args->favorite = false; },
                "Remove the favourite mark");
            favorite->excludes(unfavorite);
            command->add_flag("--validate", args->validate,
                              "Refuse a template with errors instead of saving it");
            leaf(command, CLICommandName::snippetUpdate, args);
        }
        {
            auto* command = snippets->add_subcommand("duplicate", "Copy a snippet");
            auto args = std::make_shared<SnippetDuplicateArgs>();
            ref(command, args, "snippet");
            by(command, args, &SnippetDuplicateArgs::by, true);
            optional(command, "--title", args, &SnippetDuplicateArgs::title, "Title of the copy");
            leaf(command, CLICommandName::snippetDuplicate, args);
        }
        {
            auto* command =
                snippets->add_subcommand("favorite", "Mark a snippet as a favourite, or unmark it");
            auto args = std::make_shared<FavoriteArgs>();
            args->favorite = true;
            ref(command, args, "snippet");
            by(command, args, &FavoriteArgs::by, true);
            command->add_flag_function(
                "--off", [args](std::int64_t) { args->favorite = false; },
                "Remove the favourite mark");
            leaf(command, CLICommandName::snippetFavorite, args);
        }
        {
            auto* command = snippets->add_subcommand("move", "Move a snippet to another group");
            auto args = std::make_shared<SnippetMoveArgs>();
            ref(command, args, "snippet");
            by(command, args, &SnippetMoveArgs::by, true);
            auto* group =
                optional(command, "-g,--group", args, &SnippetMoveArgs::groupRef, "Target group");
            auto* ungroup =
                command->add_flag("--ungroup", args->ungroup, "Take it out of its group");
            group->excludes(ungroup);
            const std::string path = pathOf(command);
            leaf<SnippetMoveArgs>(command, CLICommandName::snippetMove, args,
                                  [path](SnippetMoveArgs& a) -> std::optional<CLIErrorPayload> {
                                      if (!a.groupRef && !a.ungroup) {
                                          return usageError("Say where to move the snippet: "
                                                            "--group REF or --ungroup.",
                                                            helpHint(path));
                                      }
                                      return std::nullopt;
                                  });
        }
        addDelete(snippets, CLICommandName::snippetDelete, "snippet");
        addExpand(snippets);
    }

    void addExpand(CLI::App* snippets) {
        auto* command = snippets->add_subcommand(
            "expand", "Render a snippet and print the text, or copy or paste it");
        auto args = std::make_shared<ExpandArgs>();
        auto fills = std::make_shared<std::vector<std::string>>();
        auto vars = std::make_shared<std::vector<std::string>>();
        ref(command, args, "snippet");
        by(command, args, &ExpandArgs::by, true);
        command->add_option("--fill", *fills, "Answer a fill-in field: name=value (repeatable)")
            ->allow_extra_args(false);
        command
            ->add_option("--var", *vars, "Stand in for a profile variable: name=value (repeatable)")
            ->allow_extra_args(false);
        auto* clipboard = optional(command, "--clipboard", args, &ExpandArgs::clipboard,
                                   "Use this text as the clipboard's contents");
        auto* noClipboard =
            command->add_flag("--no-clipboard", args->noClipboard, "Render the clipboard as empty");
        clipboard->excludes(noClipboard);
        optional(command, "--selection", args, &ExpandArgs::selection,
                 "Use this text as the selected text");
        optional(command, "--now", args, &ExpandArgs::now,
                 "Render dates as of this moment (e.g. 2026-03-04T05:06:07Z)")
            ->check(CLI::Validator(
                [](std::string& value) -> std::string {
                    return CLIDateFormat::parse(value) ? std::string()
                                                       : "'" + value +
                                                             "' is not a date such as "
                                                             "2026-03-04T05:06:07Z";
                },
                "ISO"));
        optional(command, "--timezone", args, &ExpandArgs::timezone,
                 "Render dates in this time zone (e.g. Europe/Paris)");
        optional(command, "--locale", args, &ExpandArgs::locale,
                 "Format dates and numbers for this locale (e.g. fr_FR)");
        optional(command, "--seed", args, &ExpandArgs::seed,
                 "Seed for random placeholders, for repeatable output");
        optional(command, "--counter-start", args, &ExpandArgs::counterStart,
                 "Value of the first counter");
        auto* noAI = command->add_flag("--no-ai", args->noAI, "Leave AI placeholders unresolved");
        auto* strictAI = command->add_flag("--strict-ai", args->strictAI,
                                           "Fail instead of falling back when AI is unavailable");
        noAI->excludes(strictAI);
        command->add_flag("--strict-fills", args->strictFills,
                          "Fail when a fill-in field has no value");
        command->add_flag("--list-fills", args->listFills,
                          "List the fill-in fields instead of expanding");
        command->add_flag("--paste", args->paste, "Paste the text into the frontmost application");
        command->add_flag("--copy", args->copy, "Copy the text to the clipboard");
        optional(command, "--into", args, &ExpandArgs::into,
                 "Paste into this application instead of the frontmost one");
        auto* record = command->add_flag_function(
            "--record-usage", [args](std::int64_t) { args->recordUsage = true; },
            "Count this expansion in the snippet's usage");
        auto* noRecord = command->add_flag_function(
            "--no-record-usage", [args](std::int64_t) { args->recordUsage = false; },
            "Do not count this expansion");
        record->excludes(noRecord);
        const std::string path = pathOf(command);
        leaf<ExpandArgs>(command, CLICommandName::snippetExpand, args,
                         [fills, vars, path](ExpandArgs& a) -> std::optional<CLIErrorPayload> {
                             auto fillMap = splitPairs(*fills, "--fill", path);
                             if (auto* error = std::get_if<CLIErrorPayload>(&fillMap)) {
                                 return std::move(*error);
                             }
                             auto varMap = splitPairs(*vars, "--var", path);
                             if (auto* error = std::get_if<CLIErrorPayload>(&varMap)) {
                                 return std::move(*error);
                             }
                             a.fills = std::move(std::get<0>(fillMap));
                             a.vars = std::move(std::get<0>(varMap));
                             return std::nullopt;
                         });
    }

    void addGroups() {
        auto* groups = noun("group", "Snippet groups");
        addList(groups, CLICommandName::groupList, "groups", false);
        {
            auto* command = groups->add_subcommand("get", "Show one group");
            auto args = std::make_shared<GetArgs>();
            ref(command, args, "group");
            by(command, args, &GetArgs::by, false);
            leaf(command, CLICommandName::groupGet, args);
        }
        const auto writeOptions = [this](CLI::App* command, std::shared_ptr<GroupWriteArgs> args) {
            optional(command, "--icon", args, &GroupWriteArgs::iconSymbol, "Icon symbol name");
            optional(command, "--color", args, &GroupWriteArgs::colorRole, "Colour role");
            optional(command, "--parent", args, &GroupWriteArgs::parentRef,
                     "Nest it in this group");
            optional(command, "--sort-index", args, &GroupWriteArgs::sortIndex,
                     "Position among its siblings");
        };
        {
            auto* command = groups->add_subcommand("create", "Create a group");
            auto args = std::make_shared<GroupWriteArgs>();
            command
                ->add_option_function<std::string>(
                    "name", [args](const std::string& value) { args->name = value; },
                    "The group's name")
                ->required();
            writeOptions(command, args);
            leaf(command, CLICommandName::groupCreate, args);
        }
        {
            auto* command = groups->add_subcommand("update", "Change a group");
            auto args = std::make_shared<GroupWriteArgs>();
            command
                ->add_option_function<std::string>(
                    "ref", [args](const std::string& value) { args->ref = value; },
                    "The group: its id or name")
                ->required();
            optional(command, "--name", args, &GroupWriteArgs::name, "New name");
            writeOptions(command, args);
            leaf(command, CLICommandName::groupUpdate, args);
        }
        addDelete(groups, CLICommandName::groupDelete, "group");
    }

    void addTags() {
        auto* tags = noun("tag", "Tags");
        addList(tags, CLICommandName::tagList, "tags", false);
        {
            auto* command = tags->add_subcommand("get", "Show one tag");
            auto args = std::make_shared<GetArgs>();
            ref(command, args, "tag");
            by(command, args, &GetArgs::by, false);
            leaf(command, CLICommandName::tagGet, args);
        }
        {
            auto* command = tags->add_subcommand("create", "Create a tag");
            auto args = std::make_shared<TagWriteArgs>();
            command
                ->add_option_function<std::string>(
                    "name", [args](const std::string& value) { args->name = value; },
                    "The tag's name")
                ->required();
            optional(command, "--color", args, &TagWriteArgs::colorRole, "Colour role");
            leaf(command, CLICommandName::tagCreate, args);
        }
        {
            auto* command = tags->add_subcommand("update", "Change a tag");
            auto args = std::make_shared<TagWriteArgs>();
            command
                ->add_option_function<std::string>(
                    "ref", [args](const std::string& value) { args->ref = value; },
                    "The tag: its id or name")
                ->required();
            optional(command, "--name", args, &TagWriteArgs::name, "New name");
            optional(command, "--color", args, &TagWriteArgs::colorRole, "Colour role");
            leaf(command, CLICommandName::tagUpdate, args);
        }
        addDelete(tags, CLICommandName::tagDelete, "tag");
    }

    void addProfile() {
        auto* profile = noun("profile", "Profile variables used by snippet templates");
        leaf(profile->add_subcommand("list", "List the profile variables"),
             CLICommandName::profileList, std::make_shared<EmptyArgs>());
        {
            auto* command = profile->add_subcommand("get", "Show one profile variable");
            auto args = std::make_shared<KeyArgs>();
            command->add_option("key", args->key, "The variable's name")->required();
            leaf(command, CLICommandName::profileGet, args);
        }
        {
            auto* command = profile->add_subcommand("set", "Set a profile variable");
            auto args = std::make_shared<ProfileSetArgs>();
            command->add_option("key", args->key, "The variable's name")->required();
            command->add_option("value", args->value, "Its value")->required();
            leaf(command, CLICommandName::profileSet, args);
        }
        {
            auto* command = profile->add_subcommand("unset", "Remove a profile variable");
            auto args = std::make_shared<KeyArgs>();
            command->add_option("key", args->key, "The variable's name")->required();
            leaf(command, CLICommandName::profileUnset, args);
        }
    }

    void addConfig() {
        auto* config = noun("config", "Marlune's settings");
        {
            auto* command = config->add_subcommand("list", "List the settings");
            auto args = std::make_shared<ConfigGetArgs>();
            command->add_flag("--internal", args->includeInternal, "Include internal settings");
            leaf(command, CLICommandName::configList, args);
        }
        {
            auto* command = config->add_subcommand("get", "Show one setting");
            auto args = std::make_shared<ConfigGetArgs>();
            command
                ->add_option_function<std::string>(
                    "key", [args](const std::string& value) { args->key = value; },
                    "The setting's key")
                ->required();
            command->add_flag("--internal", args->includeInternal, "Allow internal settings");
            leaf(command, CLICommandName::configGet, args);
        }
        {
            auto* command = config->add_subcommand("set", "Change a setting");
            auto args = std::make_shared<ConfigSetArgs>();
            command->add_option("key", args->key, "The setting's key")->required();
            command->add_option("value", args->value, "The new value, as typed")->required();
            leaf(command, CLICommandName::configSet, args);
        }
        {
            auto* command = config->add_subcommand("unset", "Reset a setting to its default");
            auto args = std::make_shared<KeyArgs>();
            command->add_option("key", args->key, "The setting's key")->required();
            leaf(command, CLICommandName::configUnset, args);
        }
    }

    // --- cli2 builders begin
    // --- cli2 builders end

    // --- data builders begin
    // --- data builders end

    // --- board builders begin
    // --- board builders end

    void addCompletion() {
        completion_ = app_.add_subcommand("completion", "Print a shell completion script");
        auto* shell = completion_->add_option("shell", shell_, "bash, zsh or fish")->required();
        shell->check(CLI::IsMember(Completions::shells));
        choices_[shell] = {Completions::shells.begin(), Completions::shells.end()};
    }

    CLI::App app_{"Marlune's command-line tool: reads and changes the library through the "
                  "running application.",
                  "marlune"};
    std::vector<Leaf> leaves_;
    std::map<const CLI::Option*, std::vector<std::string>> choices_;
    bool json_ = false;
    bool noLaunch_ = false;
    std::int64_t timeoutSeconds_ = 60;
    std::optional<std::string> contentFile_;
    CLI::App* completion_ = nullptr;
    std::string shell_;
};

// CLI11's messages are fragments ("ref is required"); the tool speaks in sentences.
std::string sentence(std::string text) {
    constexpr std::string_view required = " is required";
    if (text.ends_with(required) && !text.starts_with('-')) {
        return "The " + text.substr(0, text.size() - required.size()) + " argument is required.";
    }
    if (!text.empty()) {
        text.front() = static_cast<char>(std::toupper(static_cast<unsigned char>(text.front())));
        if (text.back() != '.') {
            text += '.';
        }
    }
    return text;
}

Grammar::Outcome Grammar::run(const std::vector<std::string>& arguments) {
    if (arguments.empty()) {
        return LocalOutput{app_.help(), 0};
    }
    // CLI11 consumes its arguments from the back.
    std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
    try {
        app_.parse(reversed);
    } catch (const CLI::CallForHelp&) {
        return LocalOutput{app_.help(), 0};
    } catch (const CLI::CallForAllHelp&) {
        return LocalOutput{app_.help("", CLI::AppFormatMode::All), 0};
    } catch (const CLI::CallForVersion& version) {
        return LocalOutput{std::string(version.what()) + "\n", 0};
    } catch (const CLI::ParseError& error) {
        const CLI::App* deepest = &app_;
        while (!deepest->get_subcommands().empty()) {
            deepest = deepest->get_subcommands().front();
        }
        return usageError(sentence(error.what()), helpHint(pathOf(deepest)));
    }

    if (completion_->parsed()) {
        return LocalOutput{Completions::script(shell_, CommandLine::tree()), 0};
    }
    for (const auto& entry : leaves_) {
        if (!entry.app->parsed()) {
            continue;
        }
        auto built = entry.build();
        if (auto* error = std::get_if<CLIErrorPayload>(&built)) {
            return std::move(*error);
        }
        CLIInvocation invocation;
        invocation.request = std::move(std::get<CLIRequest>(built));
        invocation.json = json_;
        invocation.noLaunch = noLaunch_;
        invocation.replyTimeout = std::chrono::seconds(timeoutSeconds_);
        invocation.contentFile = contentFile_;
        return invocation;
    }
    // A noun without a verb.
    const CLI::App* selected = app_.get_subcommands().front();
    return usageError("Missing a command after '" + pathOf(selected) + "'.",
                      "Run `" + pathOf(selected) + " --help` to see its commands.");
}

CommandNode describe(const CLI::App& app,
                     const std::map<const CLI::Option*, std::vector<std::string>>& choices) {
    CommandNode node;
    node.name = app.get_name();
    node.description = app.get_description();
    for (const CLI::Option* option : app.get_options()) {
        const auto found = choices.find(option);
        if (option->get_positional()) {
            if (found != choices.end()) {
                node.argumentChoices = found->second;
            }
            continue;
        }
        CommandNode::Option described;
        for (const auto& name : option->get_lnames()) {
            described.names.push_back("--" + name);
        }
        for (const auto& name : option->get_snames()) {
            described.names.push_back("-" + name);
        }
        described.takesValue = option->get_expected_min() > 0;
        described.description = option->get_description();
        if (found != choices.end()) {
            described.choices = found->second;
        }
        node.options.push_back(std::move(described));
    }
    for (const CLI::App* child : app.get_subcommands([](const CLI::App*) { return true; })) {
        node.children.push_back(describe(*child, choices));
    }
    return node;
}

} // namespace

CommandLine::Outcome CommandLine::parse(const std::vector<std::string>& arguments) {
    // The noun is the first argument when it names one; anything else (global options first,
    // a typo, help) gets the whole grammar so help and messages stay complete.
    static constexpr std::string_view nouns[] = {
        "ping",  "snippet", "group", "tag",  "profile", "config", "clip",
        "pinboard", "trash", "rule", "stack", "stats",  "sync",   "app",
        "data",  "board"};
    std::string_view only;
    if (!arguments.empty()) {
        for (const auto noun : nouns) {
            if (arguments.front() == noun) {
                only = noun;
            }
        }
    }
    Grammar grammar(only);
    return grammar.run(arguments);
}

CommandNode CommandLine::tree() {
    Grammar grammar;
    return describe(grammar.app(), grammar.choices());
}

} // namespace marlune
