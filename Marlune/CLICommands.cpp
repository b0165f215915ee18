#include "Marlune/CLIListener.h"

namespace marlune {

void registerAllCommands(CLIListener& listener) {
    registerSystemCommands(listener);
    registerSnippetCommands(listener);
    registerLibraryCommands(listener);
    registerProfileAndConfigCommands(listener);
    registerClipCommands(listener);
    // --- cli2 register begin
    registerPinboardCommands(listener);
    registerTrashAndRuleCommands(listener);
    registerStackCommands(listener);
    // --- cli2 register end
    // --- data register begin
    registerDataCommands(listener);
    // --- data register end
    // --- board register begin
    registerBoardCommands(listener);
    // --- board register end
}

} // namespace marlune
