#include "MarluneCore/ProfileStore.h"

#include <nlohmann/json.hpp>
#include <stdexcept>

namespace marlune {

Profile ProfileStore::profile() {
    MainActor::assertIsolated();
    auto stmt = context_.db().prepare("SELECT id, \"values\" FROM Profile ORDER BY rowid LIMIT 1");
    Profile profile;
    if (!stmt.step()) {
        return profile;
    }
    profile.id = Uuid::parse(stmt.textView(0)).value_or(Uuid());
    auto json = context_.crypto().readText(stmt.textView(1));
    profile.valuesUnreadable = !json && !stmt.textView(1).empty();
    if (json && !json->empty()) {
        auto parsed = nlohmann::json::parse(*json, nullptr, false);
        if (parsed.is_object()) {
            for (const auto& [key, value] : parsed.items()) {
                if (value.is_string()) {
                    profile.values[key] = value.get<std::string>();
                }
            }
        }
    }
    return profile;
}

void ProfileStore::setValues(const std::map<std::string, std::string>& values) {
    MainActor::assertIsolated();
    const Profile current = profile();
    if (current.valuesUnreadable) {
        throw std::runtime_error(
            "The profile's values could not be opened with the content key here, so they cannot "
            "be changed; they are kept as they were sealed. Bring back the content key they were "
            "sealed with and start Marlune again.");
    }
    // The record is made by the first change rather than by a read, so that reading the
    // profile works on a library that can take no writes (a full disk).
    context_.performUndoable("Edit Profile", [&] {
        context_.db()
            .prepare("INSERT INTO Profile (id, \"values\") VALUES (?1, ?2) "
                     "ON CONFLICT (id) DO UPDATE SET \"values\" = excluded.\"values\"")
            .bind(1, current.id.string())
            .bind(2, context_.crypto().sealText(nlohmann::json(values).dump()))
            .run();
    });
}

} // namespace marlune
