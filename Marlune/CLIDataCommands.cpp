// The library document on the command line: export the library (or some kinds of it), import
// a document (the tool converts other tools' files before sending them), and bring clips in.

#include "Marlune/CLIListener.h"
#include "Marlune/LibraryPortability.h"
#include "MarluneCLIProtocol/CLIBase64.h"
#include "MarluneCLIProtocol/CLICommandName.h"
#include "MarluneCLIProtocol/CLIErrorCode.h"
#include "MarluneCLIProtocol/ClipRecords.h"
#include "MarluneCLIProtocol/DataRecords.h"
#include "MarluneCore/ClipStore.h"

namespace marlune {

namespace {

CLIError portabilityError(const LibraryPortability::Error& error) {
    if (error.kind() == LibraryPortability::Error::Kind::replaceNeedsSnippets) {
        return {CLIErrorCode::validation, error.what(),
                "Drop --replace to add the file's other records without touching your snippets."};
    }
    return {CLIErrorCode::validation, error.what(),
            "Export one with `marlune data export > library.json`."};
}

DataDocumentDTO exportData(const DataExportArgs& args, CLICall& call) {
    LibraryPortability::Parts parts{args.snippets,  args.groups,  args.tags,
                                    args.pinboards, args.profile, args.settings};
    const bool none = !(parts.snippets || parts.groups || parts.tags || parts.pinboards ||
                        parts.profile || parts.settings);
    if (none) {
        parts = LibraryPortability::Parts::of(LibraryPortability::Scope::everything);
    }
    return LibraryPortability(call.context(), call.settings()).exportDocument(parts, call.now());
}

DataImportResultDTO importData(const DataImportArgs& args, CLICall& call) {
    if (args.merge && args.replace) {
        throw CLIError(CLIErrorCode::usage, "Choose merging or replacing, not both.",
                       "Pass --replace to make the file the whole snippet library.");
    }
    LibraryPortability portability(call.context(), call.settings());
    try {
        const auto document = LibraryPortability::decode(args.document);
        LibraryPortability::ApplyOptions options;
        // A document that carries settings was exported with them, to bring them back.
        options.applySettings = document.settings.has_value();
        options.replace = args.replace;
        options.dryRun = args.dryRun;
        const auto result = portability.apply(document, options, call.now());
        for (const auto& keyword : result.duplicateKeywords) {
            call.warn("W_DUPLICATE_KEYWORD",
                      LibraryPortability::ImportResult::keywordClashMessage(keyword));
        }
        for (const auto& refused : result.refusedKeywords) {
            call.warn("W_KEYWORD_REFUSED", refused);
        }
        return LibraryPortability::resultDTO(result);
    } catch (const LibraryPortability::Error& error) {
        throw portabilityError(error);
    }
}

// "clip.import": clips as the command line writes them (`ClipDTO`, with the text or the Base64
// data of each representation). Content already in the history is bumped, not duplicated.
struct ClipImportArgs {
    std::vector<ClipDTO> clips;
    bool dryRun = false;

    static constexpr auto fields() {
        return std::tuple{cliField("clips", &ClipImportArgs::clips),
                          cliField("dryRun", &ClipImportArgs::dryRun)};
    }
};

NewClip newClip(const ClipDTO& dto, std::size_t index, Date now) {
    NewClip clip;
    const auto kind = clipKindFromRaw(dto.primaryKind);
    if (!kind) {
        throw CLIError(CLIErrorCode::validation,
                       "Clip " + std::to_string(index + 1) + " has the unknown kind '" +
                           dto.primaryKind + "'.",
                       "Use text, richText, url, image, file or color.");
    }
    clip.kind = *kind;
    clip.previewText = dto.previewText;
    if (dto.sourceApp) {
        clip.sourceAppBundleID = dto.sourceApp->bundleID;
        clip.sourceAppName = dto.sourceApp->name;
    }
    for (const auto& rep : dto.representations) {
        Representation representation;
        representation.utTypeIdentifier = rep.utType;
        representation.text = rep.text;
        representation.createdAt = now;
        if (rep.dataBase64) {
            auto bytes = CLIBase64::decode(*rep.dataBase64);
            if (!bytes) {
                throw CLIError(CLIErrorCode::validation, "Clip " + std::to_string(index + 1) +
                                                             " has data that isn't Base64.");
            }
            representation.data = std::vector<std::uint8_t>(bytes->begin(), bytes->end());
        }
        if (!representation.text && !representation.data) {
            continue;
        }
        clip.representations.push_back(std::move(representation));
    }
    if (clip.representations.empty()) {
        throw CLIError(CLIErrorCode::validation,
                       "Clip " + std::to_string(index + 1) + " has no content to import.",
                       "Give each clip a representation with text or dataBase64.");
    }
    if (clip.previewText.empty() && clip.representations.front().text) {
        clip.previewText = clip.representations.front().text->substr(0, 200);
    }
    return clip;
}

DataImportResultDTO importClips(const ClipImportArgs& args, CLICall& call) {
    const Date now = call.now();
    std::vector<NewClip> clips;
    clips.reserve(args.clips.size());
    for (std::size_t i = 0; i < args.clips.size(); ++i) {
        clips.push_back(newClip(args.clips[i], i, now));
    }
    DataImportResultDTO result;
    result.dryRun = args.dryRun;
    if (!args.dryRun) {
        ClipStore store(call.context(), ClipStoreSettings::read(call.settings()));
        call.context().performUndoable(clips.size() == 1
                                           ? std::string("Import Clip")
                                           : "Import " + std::to_string(clips.size()) + " Clips",
                                       [&] {
                                           for (const auto& clip : clips) {
                                               store.capture(clip, now);
                                           }
                                       });
    }
    // The result record counts library kinds; clips travel in none of them.
    result.snippets = 0;
    result.createdSnippets = 0;
    return result;
}

} // namespace

void registerDataCommands(CLIListener& listener) {
    listener.addTyped<DataExportArgs>(std::string(CLICommandName::dataExport), exportData);
    listener.addTyped<DataImportArgs>(std::string(CLICommandName::dataImport), importData);
    listener.addTyped<ClipImportArgs>(std::string(CLICommandName::clipImport), importClips);
}

} // namespace marlune
