#include "MarluneCore/PasteStackModel.h"

#include "MarluneCore/AtomicFile.h"
#include "MarluneCore/Log.h"

#include <system_error>

namespace marlune {

nlohmann::json encodePasteStackEntry(const PasteStackEntry& entry) {
    return nlohmann::json{{std::string(entryKind(entry)), {{"_0", entryID(entry).string()}}}};
}

std::optional<PasteStackEntry> decodePasteStackEntry(const nlohmann::json& json) {
    if (!json.is_object() || json.size() != 1) {
        return std::nullopt;
    }
    const auto only = json.begin();
    const std::string& key = only.key();
    const nlohmann::json& wrapper = only.value();
    if (!wrapper.is_object() || wrapper.size() != 1 || !wrapper.contains("_0") ||
        !wrapper["_0"].is_string()) {
        return std::nullopt;
    }
    const auto id = Uuid::parse(wrapper["_0"].get_ref<const std::string&>());
    if (!id) {
        return std::nullopt;
    }
    if (key == "clip") {
        return PasteStackClip{*id};
    }
    if (key == "snippet") {
        return PasteStackSnippet{*id};
    }
    return std::nullopt;
}

const Uuid& entryID(const PasteStackEntry& entry) {
    return std::visit([](const auto& e) -> const Uuid& { return e.id; }, entry);
}

std::string_view entryKind(const PasteStackEntry& entry) {
    return std::holds_alternative<PasteStackClip>(entry) ? "clip" : "snippet";
}

bool PasteStackModel::push(PasteStackEntry entry, std::string preview, std::string iconName) {
    if (items_.size() >= capacity) {
        return false;
    }
    auto before = items_;
    PasteStackItem item;
    item.entry = std::move(entry);
    item.preview = std::move(preview);
    item.iconName = std::move(iconName);
    items_.push_back(std::move(item));
    commit(std::move(before));
    return true;
}

std::optional<PasteStackItem> PasteStackModel::popFirst() {
    if (items_.empty()) {
        return std::nullopt;
    }
    auto before = items_;
    PasteStackItem first = std::move(items_.front());
    items_.erase(items_.begin());
    commit(std::move(before));
    return first;
}

bool PasteStackModel::remove(std::size_t position) {
    if (position >= items_.size()) {
        return false;
    }
    auto before = items_;
    items_.erase(items_.begin() + static_cast<std::ptrdiff_t>(position));
    commit(std::move(before));
    return true;
}

std::size_t PasteStackModel::clear() {
    const std::size_t dropped = items_.size();
    if (dropped == 0) {
        return 0;
    }
    auto before = std::move(items_);
    items_.clear();
    commit(std::move(before));
    return dropped;
}

void PasteStackModel::restore(std::vector<PasteStackItem> items) {
    items_ = std::move(items);
    if (items_.size() > capacity) {
        items_.resize(capacity);
    }
    notify();
}

void PasteStackModel::commit(std::vector<PasteStackItem> before) {
    if (writeThrough) {
        std::vector<PasteStackEntry> entries;
        entries.reserve(items_.size());
        for (const auto& item : items_) {
            entries.push_back(item.entry);
        }
        try {
            writeThrough(entries);
        } catch (...) {
            items_ = std::move(before);
            throw;
        }
    }
    notify();
}

void PasteStackModel::notify() {
    for (const auto& observer : observers_) {
        observer();
    }
}

std::vector<PasteStackEntry> PasteStackFile::read(const std::filesystem::path& file) {
    const auto text = readFileIfExists(file);
    if (!text) {
        return {};
    }
    const auto json = nlohmann::json::parse(*text, nullptr, false);
    if (!json.is_array()) {
        logs::store.warning("The Paste Stack file " + file.string() +
                            " is not a list of entries; starting with an empty stack.");
        std::error_code ignored;
        std::filesystem::rename(file, file.string() + ".corrupt", ignored);
        return {};
    }
    std::vector<PasteStackEntry> entries;
    for (const auto& element : json) {
        if (auto entry = decodePasteStackEntry(element)) {
            entries.push_back(*entry);
        } else {
            logs::store.warning("Left out an entry of the Paste Stack file that is neither a "
                                "clip nor a snippet.");
        }
    }
    return entries;
}

void PasteStackFile::write(const std::filesystem::path& file,
                           const std::vector<PasteStackEntry>& entries) {
    nlohmann::json array = nlohmann::json::array();
    for (const auto& entry : entries) {
        array.push_back(encodePasteStackEntry(entry));
    }
    writeFileAtomically(file, array.dump(), 0600);
}

} // namespace marlune
