#pragma once

#include <cstdint>

namespace marlune {

class ModelContext;
class Resealer;

// After the content key changes, moves every sealed value of the library that still opens
// only with a retired key to the current key, in one transaction. Values that are not sealed,
// already current, or that no key opens are left exactly as they are.
struct LibraryResealer {
    // Returns how many stored values were rewritten.
    static std::int64_t resealAll(ModelContext& context, const Resealer& resealer);
};

} // namespace marlune
