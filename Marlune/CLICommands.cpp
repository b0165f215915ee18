#include "Marlune/CLIListener.h"

namespace marlune {

void registerAllCommands(CLIListener& listener) {
    registerSystemCommands(listener);
    registerSnippetCommands(listener);
    registerLibraryCommands(listener);
    registerProfileAndConfigCommands(listener);
    registerClipCommands(listener);
    // --- cli2 register begin
    // --- cli2 register end
    // --- data register begin
    // --- data register end
    // --- board register begin
    // --- board register end
}

} // namespace marlune
