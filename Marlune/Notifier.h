#pragma once

#include <string_view>

namespace marlune {

// Short notices to the user from the services.
class Notifier {
public:
    virtual ~Notifier() = default;

    // Offers to turn `phrase`, which the user keeps typing, into a snippet; `message` is the
    // sentence to show.
    virtual void suggestSnippet(std::string_view message, std::string_view phrase) = 0;
};

} // namespace marlune
