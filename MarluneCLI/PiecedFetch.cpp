#include "MarluneCLI/PiecedFetch.h"

#include "MarluneCLIProtocol/CLIArgs.h"
#include "MarluneCLIProtocol/CLIBase64.h"
#include "MarluneCLIProtocol/CLICommandName.h"
#include "MarluneCLIProtocol/CLIErrorCode.h"
#include "MarluneCLIProtocol/ClipRecords.h"
#include "MarluneCLIProtocol/CommonRecords.h"
#include "MarluneCLIProtocol/DataRecords.h"

namespace marlune {

namespace {

template <class Args> Args argsOf(const CLIRequest& request) {
    return decodeWireText<Args>(request.argsJSON);
}

CLIErrorPayload brokenPieces(const std::string& what) {
    return CLIErrorPayload{std::string(CLIErrorCode::runtime),
                           "The " + what +
                               " changed while it was being fetched in pieces; nothing was kept.",
                           std::string("Run the command again.")};
}

template <class Result>
std::variant<Result, CLIErrorPayload> ask(const PiecedFetch::Send& send,
                                          const CLIRequest& request) {
    auto reply = send(request);
    if (auto* error = std::get_if<CLIErrorPayload>(&reply)) {
        return std::move(*error);
    }
    return decodeResult<Result>(std::get<CLIResponse>(reply));
}

} // namespace

PiecedFetch::Reply PiecedFetch::exportDocument(const CLIRequest& request) const {
    auto first = send_(request);
    auto* response = std::get_if<CLIResponse>(&first);
    if (response == nullptr || !response->ok) {
        return first;
    }
    auto decoded = decodeResult<DataDocumentDTO>(*response);
    if (auto* error = std::get_if<CLIErrorPayload>(&decoded)) {
        return std::move(*error);
    }
    auto document = std::move(std::get<DataDocumentDTO>(decoded));
    auto args = argsOf<DataExportArgs>(request);
    while (document.nextSnippetOffset) {
        const auto offset = *document.nextSnippetOffset;
        args.snippetOffset = offset;
        auto piece = ask<DataDocumentDTO>(send_, makeRequest(request.command, args, request.token));
        if (auto* error = std::get_if<CLIErrorPayload>(&piece)) {
            return std::move(*error);
        }
        auto& next = std::get<DataDocumentDTO>(piece);
        // Each piece must move on, or a library changing under us could loop for ever.
        if (!next.snippets || next.snippets->empty() ||
            (next.nextSnippetOffset && *next.nextSnippetOffset <= offset)) {
            return brokenPieces("library");
        }
        auto& all = document.snippets ? *document.snippets : document.snippets.emplace();
        all.insert(all.end(), std::make_move_iterator(next.snippets->begin()),
                   std::make_move_iterator(next.snippets->end()));
        document.nextSnippetOffset = next.nextSnippetOffset;
    }
    response->resultJSON = encodeWireText(document);
    return first;
}

std::variant<std::string, CLIErrorPayload>
PiecedFetch::flavourBytes(const CLIRequest& request, std::int64_t index, std::int64_t size) const {
    auto args = argsOf<GetArgs>(request);
    args.representation = index;
    std::string bytes;
    bytes.reserve(static_cast<std::size_t>(size));
    while (static_cast<std::int64_t>(bytes.size()) < size) {
        args.byteOffset = static_cast<std::int64_t>(bytes.size());
        auto piece = ask<ClipDTO>(send_, makeRequest(CLICommandName::clipGet, args, request.token));
        if (auto* error = std::get_if<CLIErrorPayload>(&piece)) {
            return std::move(*error);
        }
        const auto& reps = std::get<ClipDTO>(piece).representations;
        if (reps.size() != 1 || !reps.front().dataBase64 || reps.front().byteSize != size) {
            return brokenPieces("clip");
        }
        auto decoded = CLIBase64::decode(*reps.front().dataBase64);
        if (!decoded || decoded->empty()) {
            return brokenPieces("clip");
        }
        bytes.append(decoded->begin(), decoded->end());
    }
    if (static_cast<std::int64_t>(bytes.size()) != size) {
        return brokenPieces("clip");
    }
    return bytes;
}

PiecedFetch::Reply PiecedFetch::clip(const CLIRequest& request) const {
    auto first = send_(request);
    auto* response = std::get_if<CLIResponse>(&first);
    if (response == nullptr || !response->ok) {
        return first;
    }
    const auto args = argsOf<GetArgs>(request);
    auto decoded = decodeResult<ClipDTO>(*response);
    if (auto* error = std::get_if<CLIErrorPayload>(&decoded)) {
        return std::move(*error);
    }
    auto clip = std::move(std::get<ClipDTO>(decoded));
    bool filled = false;
    for (std::size_t i = 0; i < clip.representations.size(); ++i) {
        auto& r = clip.representations[i];
        const auto size = r.byteSize.value_or(0);
        const bool textLeftOut = r.hasText && !r.text && size > 0;
        const bool dataLeftOut = args.raw && !r.hasText && !r.dataBase64 && size > 0;
        if (!textLeftOut && !dataLeftOut) {
            continue;
        }
        auto bytes = flavourBytes(request, static_cast<std::int64_t>(i), size);
        if (auto* error = std::get_if<CLIErrorPayload>(&bytes)) {
            return std::move(*error);
        }
        auto& whole = std::get<std::string>(bytes);
        if (textLeftOut) {
            r.text = std::move(whole);
        } else {
            r.dataBase64 = CLIBase64::encode(whole);
        }
        filled = true;
    }
    if (filled) {
        response->resultJSON = encodeWireText(clip);
    }
    return first;
}

std::variant<std::string, CLIErrorPayload> PiecedFetch::flavour(const CLIRequest& request,
                                                                const std::string& utType) const {
    auto args = argsOf<GetArgs>(request);
    args.raw = false;
    auto listing = ask<ClipDTO>(send_, makeRequest(CLICommandName::clipGet, args, request.token));
    if (auto* error = std::get_if<CLIErrorPayload>(&listing)) {
        return std::move(*error);
    }
    const auto& reps = std::get<ClipDTO>(listing).representations;
    std::string types;
    for (std::size_t i = 0; i < reps.size(); ++i) {
        if (utType.empty() || reps[i].utType == utType) {
            return flavourBytes(request, static_cast<std::int64_t>(i),
                                reps[i].byteSize.value_or(0));
        }
        types += (types.empty() ? "" : ", ") + reps[i].utType;
    }
    return CLIErrorPayload{std::string(CLIErrorCode::notFound),
                           reps.empty() ? std::string("The clip has no flavours.")
                                        : "The clip has no " + utType + " flavour.",
                           types.empty()
                               ? std::optional<std::string>()
                               : std::optional<std::string>("Its flavours: " + types + ".")};
}

} // namespace marlune
