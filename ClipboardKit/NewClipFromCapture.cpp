#include "ClipboardKit/NewClipFromCapture.h"

#include <string>

namespace marlune {

NewClip newClipFromCapture(const CapturedClip& captured, Date now,
                           std::string_view sourceWindowClass) {
    NewClip clip;
    clip.kind = captured.kind;
    clip.previewText = captured.previewText;
    clip.contentHash = captured.contentHash;
    clip.representations.reserve(captured.representations.size());
    for (const CapturedRepresentation& rep : captured.representations) {
        Representation stored;
        stored.utTypeIdentifier = rep.utType;
        stored.text = rep.text;
        stored.data = rep.data;
        stored.createdAt = now;
        clip.representations.push_back(std::move(stored));
    }
    if (!sourceWindowClass.empty()) {
        clip.sourceAppBundleID = std::string(sourceWindowClass);
        // X11 has no localized application name; the window class is the nearest thing, and
        // unlike the window title it never carries a document name or an e-mail subject.
        clip.sourceAppName = std::string(sourceWindowClass);
    }
    return clip;
}

} // namespace marlune
