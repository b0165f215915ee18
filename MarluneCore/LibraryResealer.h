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

    // The first `perColumn` sealed values of every sealed column, tried with the context's
    // keys: a library whose sealed values all fail to open was sealed under a key that is not
    // here, and must not be used (an edit would write empty text over the ciphertext).
    struct KeyCheck {
        std::int64_t sealed = 0;
        std::int64_t opened = 0;
        bool keyMissing() const { return sealed > 0 && opened == 0; }
    };
    static KeyCheck checkKeys(ModelContext& context, std::int64_t perColumn);
};

} // namespace marlune
