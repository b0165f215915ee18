#pragma once

#include "Marlune/KeyInjector.h"

#include <string_view>
#include <vector>

namespace marlune {

// The keys that delete `text` standing just before the caret. Toolkits disagree on what one
// BackSpace takes from a character made of several code points (an emoji with a skin tone, a
// joined emoji, a letter with a combining accent): GTK takes the whole character, Qt one code
// point. Both select a whole character with Shift+Left, so such a character is selected and
// then deleted; a plain one takes one BackSpace. Terminals have no selection, and their line
// editors erase one code point at a time: there every code point takes a BackSpace.
std::vector<KeyInjection> deletionKeys(std::string_view text, bool lineEditor);

} // namespace marlune
