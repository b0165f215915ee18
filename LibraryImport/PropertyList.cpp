#include "LibraryImport/PropertyList.h"

#include <cstdlib>
#include <limits>
#include <plist/plist.h>

namespace marlune {

void PropertyList::Free::operator()(void* node) const {
    plist_free(static_cast<plist_t>(node));
}

std::optional<PropertyList> PropertyList::parse(std::span<const std::uint8_t> bytes) {
    if (bytes.empty() || bytes.size() > std::numeric_limits<std::uint32_t>::max()) {
        return std::nullopt;
    }
    plist_t root = nullptr;
    plist_from_memory(reinterpret_cast<const char*>(bytes.data()),
                      static_cast<std::uint32_t>(bytes.size()), &root);
    if (root == nullptr) {
        return std::nullopt;
    }
    PropertyList list;
    list.root_.reset(root);
    return list;
}

bool PropertyList::isDictionary(Node node) {
    return node != nullptr && plist_get_node_type(static_cast<plist_t>(node)) == PLIST_DICT;
}

PropertyList::Node PropertyList::item(Node dictionary, const char* key) {
    if (!isDictionary(dictionary)) {
        return nullptr;
    }
    return plist_dict_get_item(static_cast<plist_t>(dictionary), key);
}

std::optional<std::string> PropertyList::stringValue(Node node) {
    if (node == nullptr || plist_get_node_type(static_cast<plist_t>(node)) != PLIST_STRING) {
        return std::nullopt;
    }
    // Read in place with its length: the copying getter asserts when a string holds a NUL.
    std::uint64_t length = 0;
    const char* text = plist_get_string_ptr(static_cast<plist_t>(node), &length);
    if (text == nullptr) {
        return std::string();
    }
    return std::string(text, static_cast<std::size_t>(length));
}

std::optional<std::string> PropertyList::string(Node dictionary, const char* key) {
    return stringValue(item(dictionary, key));
}

std::optional<std::int64_t> PropertyList::integer(Node dictionary, const char* key) {
    auto* node = static_cast<plist_t>(item(dictionary, key));
    if (node == nullptr) {
        return std::nullopt;
    }
    switch (plist_get_node_type(node)) {
    case PLIST_UINT: {
        std::uint64_t value = 0;
        plist_get_uint_val(node, &value);
        return static_cast<std::int64_t>(value);
    }
    case PLIST_STRING:
        if (auto text = stringValue(node)) {
            char* end = nullptr;
            const long long value = std::strtoll(text->c_str(), &end, 10);
            if (!text->empty() && end != nullptr && *end == '\0') {
                return value;
            }
        }
        return std::nullopt;
    default:
        return std::nullopt;
    }
}

std::optional<bool> PropertyList::boolean(Node dictionary, const char* key) {
    auto* node = static_cast<plist_t>(item(dictionary, key));
    if (node == nullptr) {
        return std::nullopt;
    }
    if (plist_get_node_type(node) == PLIST_BOOLEAN) {
        std::uint8_t value = 0;
        plist_get_bool_val(node, &value);
        return value != 0;
    }
    if (plist_get_node_type(node) == PLIST_UINT) {
        std::uint64_t value = 0;
        plist_get_uint_val(node, &value);
        return value != 0;
    }
    return std::nullopt;
}

std::vector<PropertyList::Node> PropertyList::array(Node node) {
    std::vector<Node> out;
    if (node == nullptr || plist_get_node_type(static_cast<plist_t>(node)) != PLIST_ARRAY) {
        return out;
    }
    const std::uint32_t size = plist_array_get_size(static_cast<plist_t>(node));
    out.reserve(size);
    for (std::uint32_t i = 0; i < size; ++i) {
        out.push_back(plist_array_get_item(static_cast<plist_t>(node), i));
    }
    return out;
}

} // namespace marlune
