#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace marlune {

// A property list (XML or binary) read with libplist, and the few typed reads the importers
// need. Nodes are borrowed from the list and live as long as it does.
class PropertyList {
public:
    using Node = void*;

    static std::optional<PropertyList> parse(std::span<const std::uint8_t> bytes);

    Node root() const { return root_.get(); }

    static bool isDictionary(Node node);
    static Node item(Node dictionary, const char* key);
    static std::optional<std::string> string(Node dictionary, const char* key);
    static std::optional<std::int64_t> integer(Node dictionary, const char* key);
    static std::optional<bool> boolean(Node dictionary, const char* key);
    // The elements of an array node; empty for anything else.
    static std::vector<Node> array(Node node);
    static std::optional<std::string> stringValue(Node node);

private:
    struct Free {
        void operator()(void* node) const;
    };
    std::unique_ptr<void, Free> root_;
};

} // namespace marlune
