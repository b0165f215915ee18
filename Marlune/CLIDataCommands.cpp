// The library document on the command line: export the library (or some kinds of it), import
// a document (the tool converts other tools' files before sending them), and bring clips in.

#include "ClipboardKit/CaptureGate.h"
#include "ClipboardKit/NewClipFromCapture.h"
#include "ClipboardKit/SkippedSecretTally.h"
#include "Marlune/CLIClipSupport.h"
#include "Marlune/CLIListener.h"
#include "Marlune/ClipboardCaptureService.h"
#include "Marlune/LibraryPortability.h"
#include "MarluneCLIProtocol/CLIBase64.h"
#include "MarluneCLIProtocol/CLICommandName.h"
#include "MarluneCLIProtocol/CLIErrorCode.h"
#include "MarluneCLIProtocol/ClipRecords.h"
#include "MarluneCLIProtocol/DataRecords.h"
#include "MarluneCLIProtocol/Paging.h"
#include "MarluneCore/ClipStore.h"
#include "MarluneCore/ContentLimits.h"

#include <algorithm>
#include <variant>

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
    // The first piece carries everything asked for; the next ones only the snippets that follow.
    const std::int64_t offset = std::max<std::int64_t>(args.snippetOffset.value_or(0), 0);
    if (offset > 0) {
        parts = LibraryPortability::Parts{};
        parts.snippets = true;
    }
    auto document =
        LibraryPortability(call.context(), call.settings()).exportDocument(parts, call.now());
    if (document.snippets) {
        auto snippets = std::move(*document.snippets);
        document.snippets.emplace();
        std::size_t used = replyBytes(document);
        for (auto i = static_cast<std::size_t>(
                 std::min<std::int64_t>(offset, static_cast<std::int64_t>(snippets.size())));
             i < snippets.size(); ++i) {
            used += replyBytes(snippets[i]);
            if (!document.snippets->empty() && used > CLIListener::listReplyBudget) {
                document.nextSnippetOffset = static_cast<std::int64_t>(i);
                break;
            }
            document.snippets->push_back(std::move(snippets[i]));
        }
    }
    return document;
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
        options.applySettings = args.applySettings;
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
        for (const auto& skipped : result.skippedSnippets) {
            call.warn("W_SNIPPET_TOO_LARGE", skipped);
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

// As long as a listing's preview of a flavour.
constexpr std::size_t importPreviewCharacters = 200;

// A clip of the file as the capture gate takes it, or the sentence that says why it is left
// out. A clip the tool could not have written fails the whole import instead.
std::variant<CapturedClip, std::string> capturedClip(const ClipDTO& dto, std::size_t index) {
    const std::string name = "Clip " + std::to_string(index + 1);
    const auto kind = clipKindFromRaw(dto.primaryKind);
    if (!kind) {
        throw CLIError(CLIErrorCode::validation,
                       name + " has the unknown kind '" + dto.primaryKind + "'.",
                       "Use text, richText, url, image, file or color.");
    }
    CapturedClip clip;
    clip.kind = *kind;
    clip.previewText = dto.previewText;
    for (const auto& rep : dto.representations) {
        CapturedRepresentation representation;
        representation.utType = rep.utType;
        if (rep.text) {
            representation.text = rep.text;
        } else if (rep.dataBase64) {
            auto bytes = CLIBase64::decode(*rep.dataBase64);
            if (!bytes) {
                throw CLIError(CLIErrorCode::validation, name + " has data that isn't Base64.");
            }
            representation.data = std::vector<std::uint8_t>(bytes->begin(), bytes->end());
        } else {
            continue;
        }
        if (const auto refusal = ContentLimits::refusal(
                "clip flavour", representation.bytes().size(), ContentLimits::clipFlavourBytes)) {
            return name + " was skipped. " + *refusal;
        }
        clip.representations.push_back(std::move(representation));
    }
    if (clip.representations.empty()) {
        throw CLIError(CLIErrorCode::validation, name + " has no content to import.",
                       "Give each clip a representation with text or dataBase64.");
    }
    // The preview is the content's own, as for a copy: a preview written into the file could
    // carry what the content's checks would refuse.
    if (clip.representations.front().text) {
        clip.previewText =
            CLIClipSupport::utf8Prefix(*clip.representations.front().text, importPreviewCharacters);
    } else {
        clip.previewText = CLIClipSupport::utf8Prefix(clip.previewText, importPreviewCharacters);
    }
    return clip;
}

// Imported clips pass the same gate as copies, under the user's own secret settings: a file
// of clips must not be a way round them.
DataImportResultDTO importClips(const ClipImportArgs& args, CLICall& call) {
    const Date now = call.now();
    const SecretPolicy policy = ClipboardCaptureService::secretPolicy(call.settings());
    SkippedSecretTally secrets;
    std::int64_t tooLarge = 0;
    std::vector<NewClip> clips;
    clips.reserve(args.clips.size());
    for (std::size_t i = 0; i < args.clips.size(); ++i) {
        const ClipDTO& dto = args.clips[i];
        auto prepared = capturedClip(dto, i);
        if (const auto* refusal = std::get_if<std::string>(&prepared)) {
            call.warn("W_CLIP_TOO_LARGE", *refusal);
            ++tooLarge;
            continue;
        }
        auto decision = CaptureGate::decide(std::move(std::get<CapturedClip>(prepared)), policy);
        if (const auto kind = decision.secretKind()) {
            secrets.record(*kind);
            continue;
        }
        NewClip clip = newClipFromCapture(*decision.capturedClip(), now);
        if (dto.sourceApp) {
            clip.sourceAppBundleID = dto.sourceApp->bundleID;
            clip.sourceAppName = dto.sourceApp->name;
        }
        clips.push_back(std::move(clip));
    }
    if (const auto summary = secrets.summary()) {
        call.warn("W_LIKELY_SECRETS_SKIPPED", *summary);
    }
    if (!args.dryRun && !clips.empty()) {
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
    DataImportResultDTO result;
    result.dryRun = args.dryRun;
    // The library kinds stay at nought: clips travel in none of them.
    result.createdSnippets = 0;
    result.clips = static_cast<std::int64_t>(clips.size());
    result.skippedClips = tooLarge;
    auto& skipped = result.skippedSecrets.emplace();
    for (const SecretKind kind : allSecretKinds) {
        if (const std::int64_t n = secrets.count(kind); n > 0) {
            skipped.emplace(std::string(secretKindRawValue(kind)), n);
        }
    }
    return result;
}

} // namespace

void registerDataCommands(CLIListener& listener) {
    listener.addTyped<DataExportArgs>(std::string(CLICommandName::dataExport), exportData);
    listener.addTyped<DataImportArgs>(std::string(CLICommandName::dataImport), importData);
    listener.addTyped<ClipImportArgs>(std::string(CLICommandName::clipImport), importClips);
}

} // namespace marlune
