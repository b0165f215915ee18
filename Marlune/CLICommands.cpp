#include "Marlune/CLIListener.h"

namespace marlune {

void registerAllCommands(CLIListener& listener) {
    registerSystemCommands(listener);
    registerSnippetCommands(listener);
    registerLibraryCommands(listener);
    registerProfileAndConfigCommands(listener);
    registerClipCommands(listener);
}

} // namespace marlune
