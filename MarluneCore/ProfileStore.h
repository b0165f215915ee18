#pragma once

#include "MarluneCore/ModelContext.h"
#include "MarluneCore/Records.h"

#include <map>
#include <string>

namespace marlune {

// The user's profile variables (name, e-mail, ...) used by snippet templates. The library
// keeps one Profile record; its values are sealed at rest like any other personal content.
class ProfileStore {
public:
    explicit ProfileStore(ModelContext& context) : context_(context) {}

    // The profile; an empty one until the first values are set. Never writes.
    Profile profile();
    void setValues(const std::map<std::string, std::string>& values);

private:
    ModelContext& context_;
};

} // namespace marlune
