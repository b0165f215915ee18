#pragma once

#include <array>
#include <string_view>

namespace marlune {

// The command names the tool sends, noun.verb, compared exactly (letter case included).
namespace CLICommandName {

// AI and data
inline constexpr std::string_view aiStatus = "ai.status";
inline constexpr std::string_view aiDescribe = "ai.describe";
inline constexpr std::string_view aiAsk = "ai.ask";
inline constexpr std::string_view dataExport = "data.export";
inline constexpr std::string_view dataImport = "data.import";

// Board
inline constexpr std::string_view boardShow = "board.show";
inline constexpr std::string_view boardHide = "board.hide";
inline constexpr std::string_view boardToggle = "board.toggle";
inline constexpr std::string_view boardSections = "board.sections";
inline constexpr std::string_view boardUse = "board.use";
inline constexpr std::string_view boardList = "board.list";
inline constexpr std::string_view boardAdd = "board.add";
inline constexpr std::string_view boardCapture = "board.capture";
inline constexpr std::string_view boardCheck = "board.check";
inline constexpr std::string_view boardUncheck = "board.uncheck";
inline constexpr std::string_view boardNext = "board.next";
inline constexpr std::string_view boardCopy = "board.copy";
inline constexpr std::string_view boardRemove = "board.remove";
inline constexpr std::string_view boardFile = "board.file";
inline constexpr std::string_view boardPin = "board.pin";
inline constexpr std::string_view boardUnpin = "board.unpin";
inline constexpr std::string_view boardSnooze = "board.snooze";
inline constexpr std::string_view boardWake = "board.wake";
inline constexpr std::string_view boardDue = "board.due";
inline constexpr std::string_view boardNote = "board.note";
inline constexpr std::string_view boardMove = "board.move";
inline constexpr std::string_view boardClearCompleted = "board.clearCompleted";
inline constexpr std::string_view boardSearch = "board.search";
inline constexpr std::string_view boardMerge = "board.merge";
inline constexpr std::string_view boardExport = "board.export";
inline constexpr std::string_view boardDraw = "board.draw";
inline constexpr std::string_view boardTransform = "board.transform";
inline constexpr std::string_view boardTag = "board.tag";
inline constexpr std::string_view boardAsk = "board.ask";

// Read
inline constexpr std::string_view ping = "ping";
inline constexpr std::string_view snippetList = "snippet.list";
inline constexpr std::string_view snippetGet = "snippet.get";
inline constexpr std::string_view snippetSearch = "snippet.search";
inline constexpr std::string_view clipList = "clip.list";
inline constexpr std::string_view clipGet = "clip.get";
inline constexpr std::string_view clipSearch = "clip.search";
inline constexpr std::string_view groupList = "group.list";
inline constexpr std::string_view groupGet = "group.get";
inline constexpr std::string_view tagList = "tag.list";
inline constexpr std::string_view tagGet = "tag.get";
inline constexpr std::string_view pinboardList = "pinboard.list";
inline constexpr std::string_view pinboardGet = "pinboard.get";
inline constexpr std::string_view profileList = "profile.list";
inline constexpr std::string_view profileGet = "profile.get";
inline constexpr std::string_view configList = "config.list";
inline constexpr std::string_view configGet = "config.get";
inline constexpr std::string_view syncStatus = "sync.status";
inline constexpr std::string_view syncDoctor = "sync.doctor";
inline constexpr std::string_view statsShow = "stats.show";
inline constexpr std::string_view ruleList = "rule.list";

// Actions
inline constexpr std::string_view snippetExpand = "snippet.expand";
inline constexpr std::string_view clipCopy = "clip.copy";
inline constexpr std::string_view clipPaste = "clip.paste";
inline constexpr std::string_view clipPasteStack = "clip.pasteStack";
inline constexpr std::string_view appOpen = "app.open";
inline constexpr std::string_view appQuickPaste = "app.quickPaste";
inline constexpr std::string_view appPalette = "app.palette";
inline constexpr std::string_view appCheatSheet = "app.cheatSheet";
inline constexpr std::string_view appQuit = "app.quit";

// Paste stack
inline constexpr std::string_view stackPush = "stack.push";
inline constexpr std::string_view stackList = "stack.list";
inline constexpr std::string_view stackPop = "stack.pop";
inline constexpr std::string_view stackPaste = "stack.paste";
inline constexpr std::string_view stackClear = "stack.clear";

// Trash
inline constexpr std::string_view trashList = "trash.list";
inline constexpr std::string_view trashRestore = "trash.restore";
inline constexpr std::string_view trashEmpty = "trash.empty";

// Write
inline constexpr std::string_view snippetCreate = "snippet.create";
inline constexpr std::string_view snippetUpdate = "snippet.update";
inline constexpr std::string_view snippetDelete = "snippet.delete";
inline constexpr std::string_view snippetDuplicate = "snippet.duplicate";
inline constexpr std::string_view snippetFavorite = "snippet.favorite";
inline constexpr std::string_view snippetMove = "snippet.move";
inline constexpr std::string_view groupCreate = "group.create";
inline constexpr std::string_view groupUpdate = "group.update";
inline constexpr std::string_view groupDelete = "group.delete";
inline constexpr std::string_view tagCreate = "tag.create";
inline constexpr std::string_view tagUpdate = "tag.update";
inline constexpr std::string_view tagDelete = "tag.delete";
inline constexpr std::string_view pinboardCreate = "pinboard.create";
inline constexpr std::string_view pinboardUpdate = "pinboard.update";
inline constexpr std::string_view pinboardDelete = "pinboard.delete";
inline constexpr std::string_view pinboardAddClip = "pinboard.addClip";
inline constexpr std::string_view pinboardRemoveClip = "pinboard.removeClip";
inline constexpr std::string_view clipPin = "clip.pin";
inline constexpr std::string_view clipUnpin = "clip.unpin";
inline constexpr std::string_view clipDelete = "clip.delete";
inline constexpr std::string_view clipPromote = "clip.promote";
inline constexpr std::string_view clipImport = "clip.import";
inline constexpr std::string_view clipPurge = "clip.purge";
inline constexpr std::string_view profileSet = "profile.set";
inline constexpr std::string_view profileUnset = "profile.unset";
inline constexpr std::string_view configSet = "config.set";
inline constexpr std::string_view configUnset = "config.unset";
inline constexpr std::string_view ruleAdd = "rule.add";
inline constexpr std::string_view ruleRemove = "rule.remove";

inline constexpr std::array<std::string_view, 101> all = {
    aiStatus,
    aiDescribe,
    aiAsk,
    dataExport,
    dataImport,
    boardShow,
    boardHide,
    boardToggle,
    boardSections,
    boardUse,
    boardList,
    boardAdd,
    boardCapture,
    boardCheck,
    boardUncheck,
    boardNext,
    boardCopy,
    boardRemove,
    boardFile,
    boardPin,
    boardUnpin,
    boardSnooze,
    boardWake,
    boardDue,
    boardNote,
    boardMove,
    boardClearCompleted,
    boardSearch,
    boardMerge,
    boardExport,
    boardDraw,
    boardTransform,
    boardTag,
    boardAsk,
    ping,
    snippetList,
    snippetGet,
    snippetSearch,
    clipList,
    clipGet,
    clipSearch,
    groupList,
    groupGet,
    tagList,
    tagGet,
    pinboardList,
    pinboardGet,
    profileList,
    profileGet,
    configList,
    configGet,
    syncStatus,
    syncDoctor,
    statsShow,
    ruleList,
    snippetExpand,
    clipCopy,
    clipPaste,
    clipPasteStack,
    appOpen,
    appQuickPaste,
    appPalette,
    appCheatSheet,
    appQuit,
    stackPush,
    stackList,
    stackPop,
    stackPaste,
    stackClear,
    trashList,
    trashRestore,
    trashEmpty,
    snippetCreate,
    snippetUpdate,
    snippetDelete,
    snippetDuplicate,
    snippetFavorite,
    snippetMove,
    groupCreate,
    groupUpdate,
    groupDelete,
    tagCreate,
    tagUpdate,
    tagDelete,
    pinboardCreate,
    pinboardUpdate,
    pinboardDelete,
    pinboardAddClip,
    pinboardRemoveClip,
    clipPin,
    clipUnpin,
    clipDelete,
    clipPromote,
    clipImport,
    clipPurge,
    profileSet,
    profileUnset,
    configSet,
    configUnset,
    ruleAdd,
    ruleRemove,
};

} // namespace CLICommandName

} // namespace marlune
