#include "MarluneCLI/CommandLine.h"

#include "MarluneCLI/Completions.h"
#include "MarluneCLIProtocol/BoardRecords.h"
#include "MarluneCLIProtocol/CLIArgs.h"
#include "MarluneCLIProtocol/CLICommandName.h"
#include "MarluneCLIProtocol/CLIDateFormat.h"
#include "MarluneCLIProtocol/CLIErrorCode.h"
#include "MarluneCLIProtocol/ClipRecords.h"
#include "MarluneCLIProtocol/CommonRecords.h"
#include "MarluneCLIProtocol/DataRecords.h"
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

// "clip.import" as the grammar sends it; the runner adds the clips read from the file.
struct ClipImportToolArgs {
    bool dryRun = false;
    static constexpr auto fields() {
        return std::tuple{cliField("dryRun", &ClipImportToolArgs::dryRun)};
    }
};

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
        if (wants("pinboard")) {
            addPinboards();
        }
        if (wants("trash")) {
            addTrash();
        }
        if (wants("rule")) {
            addRules();
        }
        if (wants("stack")) {
            addStack();
        }
        if (wants("stats")) {
            addStats();
        }
        if (wants("sync")) {
            addSync();
        }
        if (wants("app")) {
            addApp();
        }
        // --- cli2 nouns end
        // --- data nouns begin
        if (wants("data")) {
            addData();
        }
        // --- data nouns end
        // --- board nouns begin
        if (wants("board")) {
            addBoard();
        }
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

    void clipRef(CLI::App* command, std::string& ref) {
        command->add_option("ref", ref, "The clip: its id, or the start of it")->required();
    }

    void addClips() {
        auto* clips = noun("clip", "Clipboard history: list, show, search, copy and paste clips");
        const std::vector<std::string> kinds = {"text",  "richText", "url",
                                                "image", "file",     "color"};
        {
            auto* command = clips->add_subcommand(
                "import", "Import clips from a JSON file: a list of clips as `clip get --json` "
                          "prints them, or an object with such a list under \"clips\"");
            auto args = std::make_shared<ClipImportToolArgs>();
            command
                ->add_option_function<std::string>(
                    "file", [this](const std::string& path) { clipsFile_ = path; },
                    "The file to read ('-' for standard input)")
                ->required();
            command->add_flag("--dry-run", args->dryRun, "Show what would change, change nothing");
            leaf(command, CLICommandName::clipImport, args);
        }
        {
            auto* command = clips->add_subcommand("list", "List clips, most recent first");
            auto args = std::make_shared<ListArgs>();
            command->add_option_function<std::string>(
                "query", [args](const std::string& value) { args->query = value; },
                "Only clips whose text contains this");
            choice(command, "--kind", args, &ListArgs::kind, kinds, "Only clips of this kind");
            command->add_flag_function(
                "--pinned", [args](std::int64_t) { args->pinnedOnly = true; }, "Only pinned clips");
            optional(command, "--tag", args, &ListArgs::tagRef, "Only clips with this tag");
            optional(command, "--pinboard", args, &ListArgs::pinboardRef,
                     "Only clips on this pinboard");
            optional(command, "--from", args, &ListArgs::sourceAppBundleID,
                     "Only clips copied in this application (its window class)");
            choice(command, "--sort", args, &ListArgs::sort, {"recent", "created", "mostRecopied"},
                   "Sort by last copy (default), first capture, or copies");
            choice(command, "--order", args, &ListArgs::order, {"asc", "desc"},
                   "Sort order (default desc)");
            command->add_flag_function(
                "--trashed", [args](std::int64_t) { args->trashed = true; },
                "List clips in the Trash instead");
            paging(command, args);
            leaf(command, CLICommandName::clipList, args);
        }
        {
            auto* command = clips->add_subcommand("get", "Show one clip with its flavours");
            auto args = std::make_shared<GetArgs>();
            clipRef(command, args->ref);
            command->add_flag("--raw", args->raw, "Include the bytes of images and files (Base64)");
            auto output = std::make_shared<std::string>();
            auto type = std::make_shared<std::string>();
            auto* outputOption = command->add_option(
                "-o,--output", *output,
                "Write the bytes of one flavour to this file ('-' for standard output)");
            command
                ->add_option("--type", *type,
                             "The flavour to write, by type (default: the first flavour)")
                ->needs(outputOption);
            leaf<GetArgs>(command, CLICommandName::clipGet, args,
                          [this, output, type](GetArgs&) -> std::optional<CLIErrorPayload> {
                              if (!output->empty()) {
                                  flavourOutput_ = *output;
                                  flavourType_ = *type;
                              }
                              return std::nullopt;
                          });
        }
        {
            auto* command = clips->add_subcommand("search", "Search the clipboard history");
            auto args = std::make_shared<SearchArgs>();
            command->add_option("query", args->query, "What to look for")->required();
            command->add_flag("--semantic", args->semantic, "Search by meaning, not by text");
            choice(command, "--kind", args, &SearchArgs::kind, kinds, "Only clips of this kind");
            paging(command, args);
            leaf(command, CLICommandName::clipSearch, args);
        }
        const auto copyOptions = [this](CLI::App* command, std::shared_ptr<ClipCopyArgs> args) {
            clipRef(command, args->ref);
            optional(command, "-r,--representation", args, &ClipCopyArgs::representation,
                     "Only this flavour: text, html, rtf, url, file, png, ... or its type");
            optional(command, "--transform", args, &ClipCopyArgs::transform,
                     "Transform the text first (uppercase, lowercase, pretty-json, slug, ...)");
        };
        {
            auto* command = clips->add_subcommand(
                "copy", "Put a clip back on the clipboard (prints its text without a display)");
            auto args = std::make_shared<ClipCopyArgs>();
            copyOptions(command, args);
            leaf(command, CLICommandName::clipCopy, args);
        }
        {
            auto* command =
                clips->add_subcommand("paste", "Paste a clip into the frontmost application");
            auto args = std::make_shared<ClipCopyArgs>();
            copyOptions(command, args);
            optional(command, "--into", args, &ClipCopyArgs::into,
                     "Paste into this application instead");
            leaf(command, CLICommandName::clipPaste, args);
        }
        {
            auto* command = clips->add_subcommand(
                "paste-stack", "Paste several clips at once, a line each, in the order given");
            auto args = std::make_shared<ClipPasteStackArgs>();
            command->add_option("refs", args->refs, "The clips: ids, or their starts")->required();
            optional(command, "--transform", args, &ClipPasteStackArgs::transform,
                     "Transform each text first");
            optional(command, "--into", args, &ClipPasteStackArgs::into,
                     "Paste into this application instead");
            leaf(command, CLICommandName::clipPasteStack, args);
        }
        for (const auto& [verb, name, description] :
             {std::tuple{"pin", CLICommandName::clipPin, "Pin a clip so the history keeps it"},
              std::tuple{"unpin", CLICommandName::clipUnpin, "Unpin a clip"}}) {
            auto* command = clips->add_subcommand(verb, description);
            auto args = std::make_shared<RefArgs>();
            clipRef(command, args->ref);
            command->add_flag("--dry-run", args->dryRun, "Show the result, change nothing");
            leaf(command, name, args);
        }
        {
            auto* command = clips->add_subcommand("delete", "Move a clip to the Trash");
            auto args = std::make_shared<RefArgs>();
            clipRef(command, args->ref);
            command->add_flag("--dry-run", args->dryRun,
                              "Show what would be deleted, change nothing");
            command->add_flag_function(
                "--now", [args](std::int64_t) { args->now = true; },
                "Delete at once instead of moving to the Trash");
            leaf(command, CLICommandName::clipDelete, args);
        }
        {
            auto* command = clips->add_subcommand("promote", "Make a snippet of a clip's text");
            auto args = std::make_shared<ClipPromoteArgs>();
            clipRef(command, args->ref);
            optional(command, "-k,--keyword", args, &ClipPromoteArgs::keyword,
                     "What to type to expand it");
            optional(command, "--title", args, &ClipPromoteArgs::title,
                     "The snippet's title (default: the clip's first line)");
            optional(command, "-g,--group", args, &ClipPromoteArgs::groupRef,
                     "Put it in this group");
            leaf(command, CLICommandName::clipPromote, args);
        }
        {
            auto* command = clips->add_subcommand(
                "purge", "Delete old history for good (pinned clips and pinboards are kept)");
            auto args = std::make_shared<ClipPurgeArgs>();
            optional(command, "--keep-last", args, &ClipPurgeArgs::keepLast,
                     "Keep this many of the most recent clips")
                ->check(CLI::NonNegativeNumber);
            optional(command, "--older-than", args, &ClipPurgeArgs::olderThan,
                     "Delete clips last copied before this: an age (+7d, 36h, 2w) or a date");
            command->add_flag("--dry-run", args->dryRun,
                              "Show what would be deleted, change nothing");
            const std::string path = pathOf(command);
            leaf<ClipPurgeArgs>(command, CLICommandName::clipPurge, args,
                                [path](ClipPurgeArgs& a) -> std::optional<CLIErrorPayload> {
                                    if (!a.keepLast && !a.olderThan) {
                                        return usageError("Say what to purge: --keep-last N, "
                                                          "--older-than AGE, or both.",
                                                          helpHint(path));
                                    }
                                    return std::nullopt;
                                });
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
    void addPinboards() {
        auto* pinboards = noun("pinboard", "Pinboards: collections of clips");
        addList(pinboards, CLICommandName::pinboardList, "pinboards", false);
        {
            auto* command = pinboards->add_subcommand("get", "Show one pinboard");
            auto args = std::make_shared<GetArgs>();
            ref(command, args, "pinboard");
            choice(command, "--by", args, &GetArgs::by, {"name", "id"},
                   "Match the reference only against the name or only the id");
            leaf(command, CLICommandName::pinboardGet, args);
        }
        const auto writeOptions = [this](CLI::App* command,
                                         std::shared_ptr<PinboardWriteArgs> args) {
            optional(command, "--icon", args, &PinboardWriteArgs::iconSymbol, "Icon symbol name");
            optional(command, "--color", args, &PinboardWriteArgs::colorRole, "Colour role");
            optional(command, "--sort-index", args, &PinboardWriteArgs::sortIndex,
                     "Position among the pinboards");
        };
        {
            auto* command = pinboards->add_subcommand("create", "Create a pinboard");
            auto args = std::make_shared<PinboardWriteArgs>();
            command
                ->add_option_function<std::string>(
                    "name", [args](const std::string& value) { args->name = value; },
                    "The pinboard's name")
                ->required();
            writeOptions(command, args);
            leaf(command, CLICommandName::pinboardCreate, args);
        }
        {
            auto* command = pinboards->add_subcommand("update", "Change a pinboard");
            auto args = std::make_shared<PinboardWriteArgs>();
            command
                ->add_option_function<std::string>(
                    "ref", [args](const std::string& value) { args->ref = value; },
                    "The pinboard: its id or name")
                ->required();
            optional(command, "--name", args, &PinboardWriteArgs::name, "New name");
            writeOptions(command, args);
            leaf(command, CLICommandName::pinboardUpdate, args);
        }
        {
            auto* command = pinboards->add_subcommand(
                "delete", "Delete a pinboard (its clips stay in the history)");
            auto args = std::make_shared<RefArgs>();
            ref(command, args, "pinboard");
            command->add_flag("--dry-run", args->dryRun,
                              "Show what would be deleted, change nothing");
            leaf(command, CLICommandName::pinboardDelete, args);
        }
        for (const auto& [verb, name, description] :
             {std::tuple{"add-clip", CLICommandName::pinboardAddClip, "Put clips on a pinboard"},
              std::tuple{"remove-clip", CLICommandName::pinboardRemoveClip,
                         "Take clips off a pinboard"}}) {
            auto* command = pinboards->add_subcommand(verb, description);
            auto args = std::make_shared<PinboardClipArgs>();
            command->add_option("pinboard", args->pinboardRef, "The pinboard: its id or name")
                ->required();
            command->add_option("clips", args->clipRefs, "The clips: ids, or their starts")
                ->required();
            leaf(command, name, args);
        }
    }

    void addTrash() {
        auto* trash = noun("trash", "The Trash: deleted snippets and clips, kept for 30 days");
        {
            auto* command = trash->add_subcommand("list", "List what is in the Trash");
            auto args = std::make_shared<TrashListArgs>();
            paging(command, args);
            leaf(command, CLICommandName::trashList, args);
        }
        {
            auto* command = trash->add_subcommand("restore", "Bring a snippet or clip back");
            auto args = std::make_shared<TrashRestoreArgs>();
            command
                ->add_option("ref", args->ref,
                             "The item: its id or the start of it, or a snippet's title or keyword")
                ->required();
            leaf(command, CLICommandName::trashRestore, args);
        }
        {
            auto* command =
                trash->add_subcommand("empty", "Delete everything in the Trash for good");
            auto args = std::make_shared<TrashEmptyArgs>();
            command->add_flag("--dry-run", args->dryRun,
                              "Show what would be deleted, change nothing");
            leaf(command, CLICommandName::trashEmpty, args);
        }
    }

    void addRules() {
        auto* rules =
            noun("rule", "Capture rules: applications whose copies stay out of the history");
        leaf(rules->add_subcommand("list", "List the capture rules"), CLICommandName::ruleList,
             std::make_shared<EmptyArgs>());
        {
            auto* command =
                rules->add_subcommand("add", "Keep an application's copies out of the history");
            auto args = std::make_shared<CaptureRuleWriteArgs>();
            args->enabled = true;
            command->add_option("app", args->bundleID, "The application's window class")
                ->required();
            optional(command, "--name", args, &CaptureRuleWriteArgs::appName,
                     "The application's name, for display");
            command->add_flag_function(
                "--disabled", [args](std::int64_t) { args->enabled = false; },
                "Add the rule switched off");
            leaf(command, CLICommandName::ruleAdd, args);
        }
        {
            auto* command = rules->add_subcommand("remove", "Remove a capture rule");
            auto args = std::make_shared<CaptureRuleWriteArgs>();
            command
                ->add_option("app", args->bundleID,
                             "The application's window class, or the rule's id")
                ->required();
            leaf(command, CLICommandName::ruleRemove, args);
        }
    }

    void addStack() {
        auto* stack =
            noun("stack", "The Paste Stack: items pasted one after another, oldest first");
        {
            auto* command =
                stack->add_subcommand("push", "Queue clips (or snippets with --snippet)");
            auto args = std::make_shared<StackPushArgs>();
            command
                ->add_option("refs", args->refs,
                             "Clip ids or their starts; snippets by keyword or title")
                ->required();
            command->add_flag("--snippet", args->snippet, "The refs name snippets");
            choice(command, "--by", args, &StackPushArgs::by, {"keyword", "title", "id"},
                   "Match snippet references only against this");
            leaf(command, CLICommandName::stackPush, args);
        }
        leaf(stack->add_subcommand("list", "Show the queue"), CLICommandName::stackList,
             std::make_shared<EmptyArgs>());
        leaf(stack->add_subcommand("pop", "Take the oldest item off the queue"),
             CLICommandName::stackPop, std::make_shared<EmptyArgs>());
        {
            auto* command = stack->add_subcommand("paste", "Paste the whole queue and empty it");
            auto args = std::make_shared<StackPasteArgs>();
            optional(command, "--into", args, &StackPasteArgs::into,
                     "Paste into this application instead of the frontmost one");
            leaf(command, CLICommandName::stackPaste, args);
        }
        leaf(stack->add_subcommand("clear", "Empty the queue"), CLICommandName::stackClear,
             std::make_shared<EmptyArgs>());
    }

    void addStats() {
        auto* stats = noun("stats", "How much typing the snippets saved");
        leaf(stats->add_subcommand("show", "Expansions and keystrokes saved, this week and in all"),
             CLICommandName::statsShow, std::make_shared<EmptyArgs>());
    }

    void addSync() {
        auto* sync = noun("sync", "Sync across devices (not available in this release)");
        leaf(sync->add_subcommand("status", "Whether the library syncs"),
             CLICommandName::syncStatus, std::make_shared<EmptyArgs>());
        leaf(sync->add_subcommand("doctor", "A report on sync and the store"),
             CLICommandName::syncDoctor, std::make_shared<EmptyArgs>());
    }

    void addApp() {
        auto* app = noun("app", "The application itself");
        for (const auto& [verb, name, description] :
             {std::tuple{"open", CLICommandName::appOpen, "Open the main window"},
              std::tuple{"quick-paste", CLICommandName::appQuickPaste, "Open quick paste"},
              std::tuple{"palette", CLICommandName::appPalette, "Open the snippet palette"},
              std::tuple{"cheat-sheet", CLICommandName::appCheatSheet, "Open the cheat sheet"},
              std::tuple{"quit", CLICommandName::appQuit, "Quit Marlune"}}) {
            leaf(app->add_subcommand(verb, description), name, std::make_shared<EmptyArgs>());
        }
    }
    // --- cli2 builders end

    // "clip get --output": the runner fetches the flavour and writes it there.
    std::optional<std::string> flavourOutput_;
    std::optional<std::string> flavourType_;

    // --- data builders begin
    // The file a data import reads and the format it is in; the runner reads and converts it.
    std::optional<std::string> importFile_;
    std::optional<std::string> importFormat_;

    void addData() {
        auto* data = noun("data", "The whole library as one document: export and import");
        {
            auto* command = data->add_subcommand(
                "export", "Print the library as a document (redirect it to a file)");
            auto args = std::make_shared<DataExportArgs>();
            command->add_flag("--snippets", args->snippets, "Include the snippets");
            command->add_flag("--groups", args->groups, "Include the snippet groups");
            command->add_flag("--tags", args->tags, "Include the tags");
            command->add_flag("--pinboards", args->pinboards, "Include the pinboards (no clips)");
            command->add_flag("--profile", args->profile, "Include the profile variables");
            command->add_flag("--settings", args->settings, "Include the settings");
            command->footer("Without a flag, everything is exported.");
            leaf(command, CLICommandName::dataExport, args);
        }
        {
            auto* command = data->add_subcommand(
                "import", "Import a Marlune export or another tool's snippet library");
            auto args = std::make_shared<DataImportArgs>();
            auto file = std::make_shared<std::string>();
            auto format = std::make_shared<std::string>();
            command->add_option("file", *file, "The file to import ('-' for standard input)")
                ->required();
            command->add_flag(
                "--replace", args->replace,
                "Make the file the whole snippet library (the rest goes to the Trash)");
            command->add_flag("--dry-run", args->dryRun, "Show what would change, change nothing");
            command->add_flag("--apply-settings", args->applySettings,
                              "Also apply the settings a Marlune export carries (left alone "
                              "otherwise)");
            auto* formatOption = command->add_option(
                "--format", *format, "The file's format, when its name doesn't tell");
            const std::vector<std::string> formats = {"espanso", "textexpander", "raycast",
                                                      "alfred", "marlune"};
            formatOption->check(CLI::IsMember(formats));
            choices_[formatOption] = formats;
            leaf<DataImportArgs>(
                command, CLICommandName::dataImport, args,
                [this, file, format](DataImportArgs& a) -> std::optional<CLIErrorPayload> {
                    a.merge = !a.replace;
                    importFile_ = *file;
                    if (!format->empty()) {
                        importFormat_ = *format;
                    }
                    return std::nullopt;
                });
        }
    }
    // --- data builders end

    // --- board builders begin
    // The Board: items are named by id (or its start), sections by name.
    void itemIDs(CLI::App* command, std::vector<std::string>& ids) {
        command->add_option("ids", ids, "Items: their ids (or the start of each), or their text")
            ->required();
    }

    void addBoard() {
        auto* board = noun("board", "The Board: a to-do list of clips, in sections");
        const auto emptyLeaf = [&](const std::string& name, std::string_view command,
                                   const std::string& description) {
            leaf(board->add_subcommand(name, description), command, std::make_shared<EmptyArgs>());
        };
        {
            auto* command = board->add_subcommand("show", "Show the Board panel");
            auto args = std::make_shared<BoardShowArgs>();
            optional(command, "--section", args, &BoardShowArgs::section, "Open this section");
            leaf(command, CLICommandName::boardShow, args);
        }
        emptyLeaf("hide", CLICommandName::boardHide, "Hide the Board panel");
        emptyLeaf("toggle", CLICommandName::boardToggle, "Show or hide the Board panel");
        emptyLeaf("draw", CLICommandName::boardDraw, "Add a drawing to the Board");
        emptyLeaf("sections", CLICommandName::boardSections, "List the Board's sections");
        {
            auto* command = board->add_subcommand("use", "Switch to a section");
            auto args = std::make_shared<BoardUseArgs>();
            command->add_option("section", args->ref, "The section: its name or id")->required();
            command->add_flag("--create", args->create, "Create the section when it is missing");
            leaf(command, CLICommandName::boardUse, args);
        }
        {
            auto* command = board->add_subcommand("list", "List the items of a section");
            auto args = std::make_shared<BoardListArgs>();
            command->add_option_function<std::string>(
                "section", [args](const std::string& value) { args->section = value; },
                "The section (default: the active one)");
            command->add_flag("--all", args->all, "Every section");
            auto* done = command->add_flag_function(
                "--done", [args](std::int64_t) { args->done = true; }, "Only done items");
            auto* open = command->add_flag_function(
                "--open", [args](std::int64_t) { args->done = false; }, "Only open items");
            done->excludes(open);
            optional(command, "--tag", args, &BoardListArgs::tag, "Only items with this tag");
            choice(command, "--type", args, &BoardListArgs::type,
                   {"text", "richText", "url", "image", "file", "color"},
                   "Only items of this kind");
            command->add_flag("--snoozed", args->snoozed, "Only snoozed items");
            leaf(command, CLICommandName::boardList, args);
        }
        {
            auto* command = board->add_subcommand("add", "Add text as a new item");
            auto args = std::make_shared<BoardAddArgs>();
            auto words = std::make_shared<std::vector<std::string>>();
            command->add_option("text", *words, "The item's text")->required();
            optional(command, "-s,--section", args, &BoardAddArgs::section,
                     "Add it to this section (default: the active one)");
            optional(command, "--from", args, &BoardAddArgs::from,
                     "Name of the agent adding it (shown as its source)");
            leaf<BoardAddArgs>(command, CLICommandName::boardAdd, args,
                               [words](BoardAddArgs& a) -> std::optional<CLIErrorPayload> {
                                   std::string text;
                                   for (const auto& word : *words) {
                                       text += (text.empty() ? "" : " ") + word;
                                   }
                                   a.text = std::move(text);
                                   return std::nullopt;
                               });
        }
        {
            auto* command =
                board->add_subcommand("capture", "Add what is selected in the frontmost window");
            auto args = std::make_shared<BoardCaptureArgs>();
            command->add_flag("--choose", args->choose, "Pick the section first");
            leaf(command, CLICommandName::boardCapture, args);
        }
        const auto itemsLeaf = [&](const std::string& name, std::string_view commandName,
                                   const std::string& description) {
            auto* command = board->add_subcommand(name, description);
            auto args = std::make_shared<BoardItemsArgs>();
            itemIDs(command, args->ids);
            leaf(command, commandName, args);
        };
        itemsLeaf("check", CLICommandName::boardCheck, "Tick items done");
        itemsLeaf("uncheck", CLICommandName::boardUncheck, "Open done items again");
        itemsLeaf("remove", CLICommandName::boardRemove,
                  "Take items off the Board (they stay in the clipboard history)");
        itemsLeaf("pin", CLICommandName::boardPin, "Pin items to the top");
        itemsLeaf("unpin", CLICommandName::boardUnpin, "Unpin items");
        itemsLeaf("wake", CLICommandName::boardWake, "Bring snoozed items back now");
        itemsLeaf("merge", CLICommandName::boardMerge, "Join two or more text items into one");
        {
            auto* command = board->add_subcommand("next", "Copy the first open item");
            auto args = std::make_shared<BoardNextArgs>();
            optional(command, "-s,--section", args, &BoardNextArgs::section,
                     "From this section (default: the active one)");
            leaf(command, CLICommandName::boardNext, args);
        }
        {
            auto* command =
                board->add_subcommand("copy", "Copy items (default: the active section)");
            auto args = std::make_shared<BoardCopyArgs>();
            command->add_option("ids", args->ids, "Items: ids or text");
            command->add_flag("--list", args->list, "As a list, done items marked");
            command->add_flag("--markdown", args->markdown, "As a Markdown task list");
            leaf(command, CLICommandName::boardCopy, args);
        }
        {
            auto* command =
                board->add_subcommand("file", "File items out of the Board into a pinboard");
            auto args = std::make_shared<BoardFileArgs>();
            itemIDs(command, args->ids);
            command->add_option("--to", args->to, "The pinboard (e.g. \"Board Archive\")")
                ->required();
            leaf(command, CLICommandName::boardFile, args);
        }
        const std::string whenHelp =
            "later-today, today, tomorrow, weekend, next-week, +3h, +2d or ISO 8601";
        {
            auto* command = board->add_subcommand("snooze", "Hide items until a moment");
            auto args = std::make_shared<BoardSnoozeArgs>();
            itemIDs(command, args->ids);
            command->add_option("--until", args->until, whenHelp)->required();
            leaf(command, CLICommandName::boardSnooze, args);
        }
        {
            auto* command = board->add_subcommand("due", "Set or clear due dates");
            auto args = std::make_shared<BoardDueArgs>();
            itemIDs(command, args->ids);
            auto* at = optional(command, "--at", args, &BoardDueArgs::at, whenHelp);
            auto* clear = command->add_flag_function(
                "--clear", [args](std::int64_t) { args->at.reset(); }, "Clear the due date");
            at->excludes(clear);
            const std::string path = pathOf(command);
            leaf<BoardDueArgs>(command, CLICommandName::boardDue, args,
                               [clear, path](BoardDueArgs& a) -> std::optional<CLIErrorPayload> {
                                   if (!a.at && clear->count() == 0) {
                                       return usageError("Say when: --at WHEN, or --clear.",
                                                         helpHint(path));
                                   }
                                   return std::nullopt;
                               });
        }
        {
            auto* command = board->add_subcommand("note", "Set an item's note (none clears it)");
            auto args = std::make_shared<BoardNoteArgs>();
            command->add_option("id", args->id, "The item")->required();
            command->add_option_function<std::string>(
                "text", [args](const std::string& value) { args->text = value; }, "The note");
            leaf(command, CLICommandName::boardNote, args);
        }
        {
            auto* command = board->add_subcommand("move", "Move an item within its section");
            auto args = std::make_shared<BoardMoveArgs>();
            command->add_option("id", args->id, "The item")->required();
            auto* before =
                optional(command, "--before", args, &BoardMoveArgs::before, "Just above this item");
            auto* after =
                optional(command, "--after", args, &BoardMoveArgs::after, "Just below this item");
            auto* position = optional(command, "--position", args, &BoardMoveArgs::position,
                                      "top, bottom, or a place from 1");
            before->excludes(after)->excludes(position);
            after->excludes(position);
            const std::string path = pathOf(command);
            leaf<BoardMoveArgs>(command, CLICommandName::boardMove, args,
                                [path](BoardMoveArgs& a) -> std::optional<CLIErrorPayload> {
                                    if (!a.before && !a.after && !a.position) {
                                        return usageError("Say where: --before ID, --after ID "
                                                          "or --position N|top|bottom.",
                                                          helpHint(path));
                                    }
                                    return std::nullopt;
                                });
        }
        {
            auto* command = board->add_subcommand("clear-completed",
                                                  "Take a section's done items off the Board");
            auto args = std::make_shared<BoardClearArgs>();
            optional(command, "-s,--section", args, &BoardClearArgs::section,
                     "This section (default: the active one)");
            leaf(command, CLICommandName::boardClearCompleted, args);
        }
        {
            auto* command = board->add_subcommand("search", "Search the Board's items");
            auto args = std::make_shared<BoardSearchArgs>();
            command->add_option("query", args->query, "What to look for")->required();
            command->add_flag("--history", args->history,
                              "Also search the clipboard history off the Board");
            optional(command, "--limit", args, &BoardSearchArgs::limit, "At most this many hits")
                ->check(CLI::Range(std::int64_t{1}, std::int64_t{10'000}));
            leaf(command, CLICommandName::boardSearch, args);
        }
        {
            auto* command = board->add_subcommand("export", "Write sections as Markdown files");
            auto args = std::make_shared<BoardExportArgs>();
            auto* section = optional(command, "-s,--section", args, &BoardExportArgs::section,
                                     "This section (default: the active one)");
            auto* all = command->add_flag("--all", args->all, "Every section");
            section->excludes(all);
            auto* dir = optional(command, "--dir", args, &BoardExportArgs::dir,
                                 "Into this folder (default: board.exportDirectory)");
            auto* obsidian =
                command->add_flag("--obsidian", args->obsidian, "Into the Obsidian vault");
            dir->excludes(obsidian);
            command->add_flag("--force", args->force, "Replace files that exist");
            leaf(command, CLICommandName::boardExport, args);
        }
        {
            auto* command = board->add_subcommand("transform", "Rewrite items with on-device AI");
            auto args = std::make_shared<BoardTransformArgs>();
            itemIDs(command, args->ids);
            command->add_option("--style", args->style, "How to rewrite them")->required();
            optional(command, "--to", args, &BoardTransformArgs::to, "Target language or form");
            leaf(command, CLICommandName::boardTransform, args);
        }
        {
            auto* command = board->add_subcommand("tag", "Add or remove tags on items");
            auto args = std::make_shared<BoardTagArgs>();
            itemIDs(command, args->ids);
            command->add_option("--add", args->add, "Add this tag (repeatable)")
                ->allow_extra_args(false);
            command->add_option("--remove", args->remove, "Remove this tag (repeatable)")
                ->allow_extra_args(false);
            command->add_flag("--suggest", args->suggest, "Suggest tags with on-device AI");
            leaf(command, CLICommandName::boardTag, args);
        }
        {
            auto* command = board->add_subcommand("ask", "Ask a question about the Board");
            auto args = std::make_shared<BoardAskArgs>();
            command->add_option("question", args->question, "The question")->required();
            optional(command, "-s,--section", args, &BoardAskArgs::section, "Only this section");
            command->add_flag("--all", args->all, "Every section");
            args->topK = 8;
            command->add_option("--top-k", args->topK, "Items to consult (default 8)");
            leaf(command, CLICommandName::boardAsk, args);
        }
    }
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
    std::optional<std::string> clipsFile_;
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
        invocation.clipsFile = clipsFile_;
        invocation.importFile = importFile_;
        invocation.importFormat = importFormat_;
        invocation.flavourOutput = flavourOutput_;
        if (flavourOutput_ && !flavourType_->empty()) {
            invocation.flavourType = flavourType_;
        }
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
        "ping",  "snippet", "group", "tag",   "profile", "config", "clip", "pinboard",
        "trash", "rule",    "stack", "stats", "sync",    "app",    "data", "board"};
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
