#pragma once

#include "MarluneCLIProtocol/CLIRecordCodec.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace marlune {

// Argument and result records shared by many commands, and the short references by which one
// record names another. Records list their keys in wire order; optional members are omitted
// when absent.

struct PingArgs {
    static constexpr auto fields() { return std::tuple{}; }
    friend bool operator==(const PingArgs&, const PingArgs&) = default;
};

struct EmptyArgs {
    static constexpr auto fields() { return std::tuple{}; }
    friend bool operator==(const EmptyArgs&, const EmptyArgs&) = default;
};

struct ListArgs {
    std::optional<std::string> query;
    std::optional<std::string> groupRef;
    std::optional<std::string> tagRef;
    std::optional<std::string> pinboardRef;
    std::optional<std::string> sourceAppBundleID;
    std::optional<std::string> kind;
    std::optional<bool> favoriteOnly;
    std::optional<bool> pinnedOnly;
    std::optional<std::string> sort;
    std::optional<std::string> order;
    std::optional<bool> trashed;
    std::int64_t limit = 0;
    std::int64_t offset = 0;

    static constexpr auto fields() {
        return std::tuple{cliField("query", &ListArgs::query),
                          cliField("groupRef", &ListArgs::groupRef),
                          cliField("tagRef", &ListArgs::tagRef),
                          cliField("pinboardRef", &ListArgs::pinboardRef),
                          cliField("sourceAppBundleID", &ListArgs::sourceAppBundleID),
                          cliField("kind", &ListArgs::kind),
                          cliField("favoriteOnly", &ListArgs::favoriteOnly),
                          cliField("pinnedOnly", &ListArgs::pinnedOnly),
                          cliField("sort", &ListArgs::sort),
                          cliField("order", &ListArgs::order),
                          cliField("trashed", &ListArgs::trashed),
                          cliField("limit", &ListArgs::limit),
                          cliField("offset", &ListArgs::offset)};
    }
    friend bool operator==(const ListArgs&, const ListArgs&) = default;
};

// `by` names the attribute the reference is matched against; `raw` asks for the stored text
// without rendering.
struct GetArgs {
    std::string ref;
    std::optional<std::string> by;
    bool raw = false;
    // A piece of one clip flavour: the flavour's index in the clip and the first byte wanted.
    // Flavours too large for one reply are fetched this way, `clipPieceBytes` at a time.
    std::optional<std::int64_t> representation = std::nullopt;
    std::optional<std::int64_t> byteOffset = std::nullopt;

    static constexpr auto fields() {
        return std::tuple{cliField("ref", &GetArgs::ref), cliField("by", &GetArgs::by),
                          cliField("raw", &GetArgs::raw),
                          cliField("representation", &GetArgs::representation),
                          cliField("byteOffset", &GetArgs::byteOffset)};
    }
    friend bool operator==(const GetArgs&, const GetArgs&) = default;
};

struct SearchArgs {
    std::string query;
    bool semantic = false;
    std::optional<double> threshold;
    std::optional<std::string> kind;
    std::int64_t limit = 0;
    std::int64_t offset = 0;

    static constexpr auto fields() {
        return std::tuple{cliField("query", &SearchArgs::query),
                          cliField("semantic", &SearchArgs::semantic),
                          cliField("threshold", &SearchArgs::threshold),
                          cliField("kind", &SearchArgs::kind),
                          cliField("limit", &SearchArgs::limit),
                          cliField("offset", &SearchArgs::offset)};
    }
    friend bool operator==(const SearchArgs&, const SearchArgs&) = default;
};

// `now` deletes at once instead of moving to the Trash.
struct RefArgs {
    std::string ref;
    std::optional<std::string> by;
    bool dryRun = false;
    std::optional<bool> now;

    static constexpr auto fields() {
        return std::tuple{cliField("ref", &RefArgs::ref), cliField("by", &RefArgs::by),
                          cliField("dryRun", &RefArgs::dryRun), cliField("now", &RefArgs::now)};
    }
    friend bool operator==(const RefArgs&, const RefArgs&) = default;
};

struct KeyArgs {
    std::string key;

    static constexpr auto fields() { return std::tuple{cliField("key", &KeyArgs::key)}; }
    friend bool operator==(const KeyArgs&, const KeyArgs&) = default;
};

struct PingResult {
    std::string version;
    std::int32_t pid = 0;
    std::int64_t protocolVersion = 0;
    std::string apiVersion;
    bool menuBarOnly = false;

    static constexpr auto fields() {
        return std::tuple{cliField("version", &PingResult::version),
                          cliField("pid", &PingResult::pid),
                          cliField("protocolVersion", &PingResult::protocolVersion),
                          cliField("apiVersion", &PingResult::apiVersion),
                          cliField("menuBarOnly", &PingResult::menuBarOnly)};
    }
    friend bool operator==(const PingResult&, const PingResult&) = default;
};

struct DeleteResultDTO {
    std::int64_t deletedCount = 0;
    bool dryRun = false;
    std::vector<std::string> affected;

    static constexpr auto fields() {
        return std::tuple{cliField("deletedCount", &DeleteResultDTO::deletedCount),
                          cliField("dryRun", &DeleteResultDTO::dryRun),
                          cliField("affected", &DeleteResultDTO::affected)};
    }
    friend bool operator==(const DeleteResultDTO&, const DeleteResultDTO&) = default;
};

struct PasteTargetDTO {
    std::optional<std::string> app;
    std::optional<std::string> bundleID;

    static constexpr auto fields() {
        return std::tuple{cliField("app", &PasteTargetDTO::app),
                          cliField("bundleID", &PasteTargetDTO::bundleID)};
    }
    friend bool operator==(const PasteTargetDTO&, const PasteTargetDTO&) = default;
};

struct AppActionResultDTO {
    std::string action;
    bool ok = false;

    static constexpr auto fields() {
        return std::tuple{cliField("action", &AppActionResultDTO::action),
                          cliField("ok", &AppActionResultDTO::ok)};
    }
    friend bool operator==(const AppActionResultDTO&, const AppActionResultDTO&) = default;
};

struct GroupRefDTO {
    std::string id;
    std::string name;

    static constexpr auto fields() {
        return std::tuple{cliField("id", &GroupRefDTO::id), cliField("name", &GroupRefDTO::name)};
    }
    friend bool operator==(const GroupRefDTO&, const GroupRefDTO&) = default;
};

struct TagRefDTO {
    std::string id;
    std::string name;

    static constexpr auto fields() {
        return std::tuple{cliField("id", &TagRefDTO::id), cliField("name", &TagRefDTO::name)};
    }
    friend bool operator==(const TagRefDTO&, const TagRefDTO&) = default;
};

struct PinboardRefDTO {
    std::string id;
    std::string name;

    static constexpr auto fields() {
        return std::tuple{cliField("id", &PinboardRefDTO::id),
                          cliField("name", &PinboardRefDTO::name)};
    }
    friend bool operator==(const PinboardRefDTO&, const PinboardRefDTO&) = default;
};

} // namespace marlune
