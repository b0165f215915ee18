#pragma once

#include "MarluneCLIProtocol/CLIRecordCodec.h"
#include "MarluneCLIProtocol/CommonRecords.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace marlune {

// Snippet groups, tags, pinboards and capture rules.

struct GroupDTO {
    std::string id;
    std::string name;
    std::string iconSymbol;
    std::optional<std::string> colorRole;
    std::int64_t sortIndex = 0;
    std::optional<GroupRefDTO> parent;
    std::int64_t snippetCount = 0;
    std::string createdAt;

    static constexpr auto fields() {
        return std::tuple{cliField("id", &GroupDTO::id),
                          cliField("name", &GroupDTO::name),
                          cliField("iconSymbol", &GroupDTO::iconSymbol),
                          cliField("colorRole", &GroupDTO::colorRole),
                          cliField("sortIndex", &GroupDTO::sortIndex),
                          cliField("parent", &GroupDTO::parent),
                          cliField("snippetCount", &GroupDTO::snippetCount),
                          cliField("createdAt", &GroupDTO::createdAt)};
    }
    friend bool operator==(const GroupDTO&, const GroupDTO&) = default;
};

// Without `ref` a group is created; with it, the named group is updated.
struct GroupWriteArgs {
    std::optional<std::string> ref;
    std::optional<std::string> name;
    std::optional<std::string> iconSymbol;
    std::optional<std::string> colorRole;
    std::optional<std::string> parentRef;
    std::optional<std::int64_t> sortIndex;

    static constexpr auto fields() {
        return std::tuple{cliField("ref", &GroupWriteArgs::ref),
                          cliField("name", &GroupWriteArgs::name),
                          cliField("iconSymbol", &GroupWriteArgs::iconSymbol),
                          cliField("colorRole", &GroupWriteArgs::colorRole),
                          cliField("parentRef", &GroupWriteArgs::parentRef),
                          cliField("sortIndex", &GroupWriteArgs::sortIndex)};
    }
    friend bool operator==(const GroupWriteArgs&, const GroupWriteArgs&) = default;
};

struct TagDTO {
    std::string id;
    std::string name;
    std::optional<std::string> colorRole;
    std::int64_t snippetCount = 0;
    std::int64_t clipCount = 0;
    std::string createdAt;

    static constexpr auto fields() {
        return std::tuple{cliField("id", &TagDTO::id),
                          cliField("name", &TagDTO::name),
                          cliField("colorRole", &TagDTO::colorRole),
                          cliField("snippetCount", &TagDTO::snippetCount),
                          cliField("clipCount", &TagDTO::clipCount),
                          cliField("createdAt", &TagDTO::createdAt)};
    }
    friend bool operator==(const TagDTO&, const TagDTO&) = default;
};

struct TagWriteArgs {
    std::optional<std::string> ref;
    std::optional<std::string> name;
    std::optional<std::string> colorRole;

    static constexpr auto fields() {
        return std::tuple{cliField("ref", &TagWriteArgs::ref),
                          cliField("name", &TagWriteArgs::name),
                          cliField("colorRole", &TagWriteArgs::colorRole)};
    }
    friend bool operator==(const TagWriteArgs&, const TagWriteArgs&) = default;
};

struct PinboardDTO {
    std::string id;
    std::string name;
    std::string iconSymbol;
    std::optional<std::string> colorRole;
    std::int64_t sortIndex = 0;
    std::int64_t clipCount = 0;
    std::string createdAt;

    static constexpr auto fields() {
        return std::tuple{cliField("id", &PinboardDTO::id),
                          cliField("name", &PinboardDTO::name),
                          cliField("iconSymbol", &PinboardDTO::iconSymbol),
                          cliField("colorRole", &PinboardDTO::colorRole),
                          cliField("sortIndex", &PinboardDTO::sortIndex),
                          cliField("clipCount", &PinboardDTO::clipCount),
                          cliField("createdAt", &PinboardDTO::createdAt)};
    }
    friend bool operator==(const PinboardDTO&, const PinboardDTO&) = default;
};

struct PinboardWriteArgs {
    std::optional<std::string> ref;
    std::optional<std::string> name;
    std::optional<std::string> iconSymbol;
    std::optional<std::string> colorRole;
    std::optional<std::int64_t> sortIndex;

    static constexpr auto fields() {
        return std::tuple{cliField("ref", &PinboardWriteArgs::ref),
                          cliField("name", &PinboardWriteArgs::name),
                          cliField("iconSymbol", &PinboardWriteArgs::iconSymbol),
                          cliField("colorRole", &PinboardWriteArgs::colorRole),
                          cliField("sortIndex", &PinboardWriteArgs::sortIndex)};
    }
    friend bool operator==(const PinboardWriteArgs&, const PinboardWriteArgs&) = default;
};

struct PinboardClipArgs {
    std::string pinboardRef;
    std::vector<std::string> clipRefs;

    static constexpr auto fields() {
        return std::tuple{cliField("pinboardRef", &PinboardClipArgs::pinboardRef),
                          cliField("clipRefs", &PinboardClipArgs::clipRefs)};
    }
    friend bool operator==(const PinboardClipArgs&, const PinboardClipArgs&) = default;
};

struct CaptureRuleDTO {
    std::string id;
    std::string bundleID;
    std::optional<std::string> appName;
    bool isEnabled = false;
    std::string createdAt;

    static constexpr auto fields() {
        return std::tuple{cliField("id", &CaptureRuleDTO::id),
                          cliField("bundleID", &CaptureRuleDTO::bundleID),
                          cliField("appName", &CaptureRuleDTO::appName),
                          cliField("isEnabled", &CaptureRuleDTO::isEnabled),
                          cliField("createdAt", &CaptureRuleDTO::createdAt)};
    }
    friend bool operator==(const CaptureRuleDTO&, const CaptureRuleDTO&) = default;
};

struct CaptureRuleWriteArgs {
    std::string bundleID;
    std::optional<std::string> appName;
    bool enabled = false;

    static constexpr auto fields() {
        return std::tuple{cliField("bundleID", &CaptureRuleWriteArgs::bundleID),
                          cliField("appName", &CaptureRuleWriteArgs::appName),
                          cliField("enabled", &CaptureRuleWriteArgs::enabled)};
    }
    friend bool operator==(const CaptureRuleWriteArgs&, const CaptureRuleWriteArgs&) = default;
};

} // namespace marlune
