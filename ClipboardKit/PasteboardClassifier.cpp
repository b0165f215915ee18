#include "ClipboardKit/PasteboardClassifier.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <string>

namespace marlune {

namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::size_t kib = 1024;
constexpr std::size_t mib = 1024 * kib;

enum class TextEncoding { utf8, latin1 };

// What a clipboard type is, before its data is seen.
enum class Family { unknown, plainText, html, rtf, uriList, png, jpeg, tiff, color, url, fileURL };

struct TypeInfo {
    Family family = Family::unknown;
    TextEncoding encoding = TextEncoding::utf8;
    bool recognised = false; // a known text type in an encoding that is not read
};

std::string lowerAscii(std::string_view s) {
    std::string out(s);
    for (char& c : out) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
    return out;
}

std::string_view trim(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) {
        s.remove_prefix(1);
    }
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) {
        s.remove_suffix(1);
    }
    return s;
}

TypeInfo typeInfo(std::string_view type) {
    // X11 target names and a legacy name that some applications still offer.
    if (type == "UTF8_STRING" || type == "TEXT") {
        return {Family::plainText, TextEncoding::utf8};
    }
    if (type == "STRING") { // ICCCM: Latin-1
        return {Family::plainText, TextEncoding::latin1};
    }
    const std::string lower = lowerAscii(type);
    if (lower == "nsstringpboardtype") {
        return {Family::plainText, TextEncoding::utf8};
    }
    // Our own stored identifiers, so that a snapshot made from history reads back alike.
    static constexpr std::array<std::pair<std::string_view, Family>, 11> identifiers{{
        {"public.utf8-plain-text", Family::plainText},
        {"public.plain-text", Family::plainText},
        {"public.text", Family::plainText},
        {"public.html", Family::html},
        {"public.rtf", Family::rtf},
        {"public.url", Family::url},
        {"public.file-url", Family::fileURL},
        {"public.png", Family::png},
        {"public.jpeg", Family::jpeg},
        {"public.tiff", Family::tiff},
        {"org.marlune.x-color", Family::color},
    }};
    for (const auto& [name, family] : identifiers) {
        if (type == name) {
            return {family, TextEncoding::utf8};
        }
    }

    // MIME types: case-insensitive, parameters after ";".
    const std::string_view mime = lower;
    const std::size_t semicolon = mime.find(';');
    const std::string_view base = trim(mime.substr(0, semicolon));
    std::string_view charset;
    if (semicolon != std::string_view::npos) {
        const std::string_view params = mime.substr(semicolon + 1);
        const std::size_t at = params.find("charset=");
        if (at != std::string_view::npos) {
            charset = params.substr(at + 8);
            charset = trim(charset.substr(0, charset.find(';')));
            if (charset.size() >= 2 && charset.front() == '"' && charset.back() == '"') {
                charset = charset.substr(1, charset.size() - 2);
            }
        }
    }
    if (base == "text/plain" || base == "text/html") {
        TypeInfo info{base == "text/plain" ? Family::plainText : Family::html, TextEncoding::utf8};
        if (charset.empty() || charset == "utf-8" || charset == "utf8" || charset == "us-ascii") {
            return info;
        }
        if (charset == "iso-8859-1" || charset == "latin1") {
            info.encoding = TextEncoding::latin1;
            return info;
        }
        // Other encodings are offered beside a UTF-8 flavour by every toolkit; skip them.
        return TypeInfo{Family::unknown, TextEncoding::utf8, true};
    }
    if (base == "text/rtf" || base == "application/rtf") {
        return {Family::rtf};
    }
    if (base == "text/uri-list") {
        return {Family::uriList};
    }
    if (base == "image/png") {
        return {Family::png};
    }
    if (base == "image/jpeg") {
        return {Family::jpeg};
    }
    if (base == "image/tiff") {
        return {Family::tiff};
    }
    if (base == "application/x-color") {
        return {Family::color};
    }
    return {};
}

bool isImageType(std::string_view utType) {
    return utType == PasteboardClassifier::pngType || utType == PasteboardClassifier::jpegType ||
           utType == PasteboardClassifier::tiffType;
}

// --- text decoding ---------------------------------------------------------------------------

void appendUtf8(std::string& out, char32_t cp) {
    if (cp < 0x80) {
        out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

bool isValidUtf8(Bytes b) {
    std::size_t i = 0;
    while (i < b.size()) {
        const std::uint8_t c = b[i];
        std::size_t extra = 0;
        char32_t cp = 0;
        if (c < 0x80) {
            ++i;
            continue;
        } else if ((c & 0xE0) == 0xC0) {
            extra = 1;
            cp = c & 0x1F;
        } else if ((c & 0xF0) == 0xE0) {
            extra = 2;
            cp = c & 0x0F;
        } else if ((c & 0xF8) == 0xF0) {
            extra = 3;
            cp = c & 0x07;
        } else {
            return false;
        }
        if (b.size() - i <= extra) {
            return false;
        }
        for (std::size_t k = 1; k <= extra; ++k) {
            if ((b[i + k] & 0xC0) != 0x80) {
                return false;
            }
            cp = (cp << 6) | (b[i + k] & 0x3F);
        }
        static constexpr std::array<char32_t, 4> minimum{0, 0x80, 0x800, 0x10000};
        if (cp < minimum[extra] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
            return false;
        }
        i += extra + 1;
    }
    return true;
}

std::string decodeUtf16(Bytes b, bool littleEndian) {
    std::string out;
    out.reserve(b.size() / 2);
    for (std::size_t i = 0; i + 1 < b.size(); i += 2) {
        char32_t unit = littleEndian ? static_cast<char32_t>(b[i] | (b[i + 1] << 8))
                                     : static_cast<char32_t>((b[i] << 8) | b[i + 1]);
        if (unit >= 0xD800 && unit <= 0xDBFF && i + 3 < b.size()) {
            const char32_t low = littleEndian ? static_cast<char32_t>(b[i + 2] | (b[i + 3] << 8))
                                              : static_cast<char32_t>((b[i + 2] << 8) | b[i + 3]);
            if (low >= 0xDC00 && low <= 0xDFFF) {
                unit = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
                i += 2;
            } else {
                unit = 0xFFFD;
            }
        } else if (unit >= 0xD800 && unit <= 0xDFFF) {
            unit = 0xFFFD;
        }
        appendUtf8(out, unit);
    }
    return out;
}

// Browsers have written text/html as UTF-16, with or without a byte-order mark; plain X11
// owners sometimes add a terminating zero. Anything that is not valid UTF-8 is read as
// Latin-1, which loses nothing and never fails.
std::string decodeText(Bytes b, TextEncoding encoding) {
    std::string out;
    if (b.size() >= 2 && ((b[0] == 0xFF && b[1] == 0xFE) || (b[0] == 0xFE && b[1] == 0xFF))) {
        out = decodeUtf16(b.subspan(2), b[0] == 0xFF);
    } else if (b.size() >= 4 && b.size() % 2 == 0 && b[0] != 0 && b[1] == 0 && b[2] != 0 &&
               b[3] == 0) {
        out = decodeUtf16(b, true);
    } else {
        if (b.size() >= 3 && b[0] == 0xEF && b[1] == 0xBB && b[2] == 0xBF) {
            b = b.subspan(3);
        }
        if (encoding == TextEncoding::utf8 && isValidUtf8(b)) {
            out.assign(b.begin(), b.end());
        } else {
            out.reserve(b.size() + b.size() / 8);
            for (std::uint8_t c : b) {
                appendUtf8(out, c);
            }
        }
    }
    while (!out.empty() && out.back() == '\0') {
        out.pop_back();
    }
    return out;
}

// --- uri lists -------------------------------------------------------------------------------

// The URIs of a text/uri-list: one per line, "#" lines are comments (RFC 2483).
std::vector<std::string_view> uriLines(std::string_view text) {
    std::vector<std::string_view> uris;
    std::size_t start = 0;
    while (start <= text.size()) {
        std::size_t end = text.find('\n', start);
        if (end == std::string_view::npos) {
            end = text.size();
        }
        std::string_view line = text.substr(start, end - start);
        while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) {
            line.remove_suffix(1);
        }
        line = trim(line);
        if (!line.empty() && line.front() != '#') {
            uris.push_back(line);
        }
        start = end + 1;
    }
    return uris;
}

bool isFileURI(std::string_view uri) {
    return uri.size() >= 5 && lowerAscii(uri.substr(0, 5)) == "file:";
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

std::string percentDecode(std::string_view s) {
    std::string out;
    out.reserve(s.size());
    for (std::size_t i = 0; i < s.size(); ++i) {
        if (s[i] == '%' && i + 2 < s.size() && hexValue(s[i + 1]) >= 0 && hexValue(s[i + 2]) >= 0) {
            out.push_back(static_cast<char>(hexValue(s[i + 1]) * 16 + hexValue(s[i + 2])));
            i += 2;
        } else {
            out.push_back(s[i]);
        }
    }
    return out;
}

std::string fileName(std::string_view uri) {
    std::string_view path = uri.substr(5);
    if (path.starts_with("//")) {
        const std::size_t slash = path.find('/', 2);
        path = slash == std::string_view::npos ? std::string_view{} : path.substr(slash);
    }
    while (path.size() > 1 && path.back() == '/') {
        path.remove_suffix(1);
    }
    const std::size_t slash = path.rfind('/');
    const std::string_view name =
        slash == std::string_view::npos || slash + 1 == path.size() ? path : path.substr(slash + 1);
    return percentDecode(name);
}

// --- previews --------------------------------------------------------------------------------

// Collapses every run of white space (new lines included) to one space, trims, and cuts at
// `previewLength` scalar values without splitting a UTF-8 sequence.
std::string normalisePreview(std::string_view text) {
    std::string out;
    out.reserve(std::min(text.size(), PasteboardClassifier::previewLength * 4));
    std::size_t scalars = 0;
    bool pendingSpace = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v') {
            pendingSpace = !out.empty();
            continue;
        }
        const bool startsScalar = (c & 0xC0) != 0x80;
        if (startsScalar) {
            if (scalars + (pendingSpace ? 1 : 0) >= PasteboardClassifier::previewLength) {
                break;
            }
            if (pendingSpace) {
                out.push_back(' ');
                ++scalars;
                pendingSpace = false;
            }
            ++scalars;
        }
        out.push_back(static_cast<char>(c));
    }
    return out;
}

// Enough of HTML to preview it: tags and comments dropped, the common entities decoded,
// scripts and styles skipped. Reads only as far as the preview needs.
std::string htmlPreviewSource(std::string_view html) {
    std::string out;
    const std::size_t budget = PasteboardClassifier::previewLength * 8;
    std::size_t i = 0;
    while (i < html.size() && out.size() < budget) {
        const char c = html[i];
        if (c == '<') {
            const std::string lowerHead = lowerAscii(html.substr(i, 8));
            std::string_view closer = ">";
            if (lowerHead.starts_with("<!--")) {
                closer = "-->";
            } else if (lowerHead.starts_with("<script")) {
                closer = "</script>";
            } else if (lowerHead.starts_with("<style")) {
                closer = "</style>";
            }
            std::size_t end =
                closer == ">" ? html.find('>', i) : lowerAscii(html.substr(i)).find(closer);
            if (end == std::string_view::npos) {
                break;
            }
            if (closer != ">") {
                end += i;
            }
            i = end + closer.size();
            out.push_back(' ');
            continue;
        }
        if (c == '&') {
            static constexpr std::array<std::pair<std::string_view, char>, 6> entities{
                {{"&amp;", '&'},
                 {"&lt;", '<'},
                 {"&gt;", '>'},
                 {"&quot;", '"'},
                 {"&#39;", '\''},
                 {"&nbsp;", ' '}}};
            bool decoded = false;
            for (const auto& [name, value] : entities) {
                if (html.substr(i).starts_with(name)) {
                    out.push_back(value);
                    i += name.size();
                    decoded = true;
                    break;
                }
            }
            if (decoded) {
                continue;
            }
        }
        out.push_back(c);
        ++i;
    }
    return out;
}

// RTF without its control words and groups; good enough for a one-line preview.
std::string rtfPreviewSource(std::string_view rtf) {
    std::string out;
    const std::size_t budget = PasteboardClassifier::previewLength * 8;
    int depth = 0;
    int skipDepth = -1; // inside a destination such as {\fonttbl ...} or {\*\...}
    for (std::size_t i = 0; i < rtf.size() && out.size() < budget; ++i) {
        const char c = rtf[i];
        if (c == '{') {
            ++depth;
            if (skipDepth < 0 && i + 1 < rtf.size() && rtf[i + 1] == '\\') {
                const std::string_view word = rtf.substr(i + 1, 12);
                if (word.starts_with("\\*") || word.starts_with("\\fonttbl") ||
                    word.starts_with("\\colortbl") || word.starts_with("\\stylesheet") ||
                    word.starts_with("\\info") || word.starts_with("\\pict")) {
                    skipDepth = depth;
                }
            }
        } else if (c == '}') {
            if (depth == skipDepth) {
                skipDepth = -1;
            }
            --depth;
        } else if (skipDepth >= 0) {
            continue;
        } else if (c == '\\') {
            std::size_t j = i + 1;
            if (j < rtf.size() && !std::isalpha(static_cast<unsigned char>(rtf[j]))) {
                if (rtf[j] == '\\' || rtf[j] == '{' || rtf[j] == '}') {
                    out.push_back(rtf[j]);
                }
                i = j;
                continue;
            }
            const std::size_t wordStart = j;
            while (j < rtf.size() && std::isalpha(static_cast<unsigned char>(rtf[j]))) {
                ++j;
            }
            const std::string_view word = rtf.substr(wordStart, j - wordStart);
            while (j < rtf.size() &&
                   (rtf[j] == '-' || std::isdigit(static_cast<unsigned char>(rtf[j])))) {
                ++j;
            }
            if (word == "par" || word == "line" || word == "tab") {
                out.push_back(' ');
            }
            i = (j < rtf.size() && rtf[j] == ' ') ? j : j - 1;
        } else if (c != '\r' && c != '\n') {
            out.push_back(c);
        }
    }
    return out;
}

std::string byteCountText(std::size_t bytes) {
    char buffer[32];
    if (bytes < kib) {
        std::snprintf(buffer, sizeof buffer, "%zu bytes", bytes);
    } else if (bytes < mib) {
        std::snprintf(buffer, sizeof buffer, "%zu KB", (bytes + kib / 2) / kib);
    } else {
        std::snprintf(buffer, sizeof buffer, "%.1f MB", static_cast<double>(bytes) / mib);
    }
    return buffer;
}

// application/x-color: red, green, blue and alpha as 16-bit values in the owner's byte order,
// which on every machine we run on is little-endian.
std::string colorPreview(Bytes data) {
    if (data.size() < 8) {
        return "Colour";
    }
    auto channel = [&](std::size_t i) { return data[2 * i + 1]; }; // high byte of each channel
    char buffer[16];
    if (channel(3) == 0xFF) {
        std::snprintf(buffer, sizeof buffer, "#%02X%02X%02X", channel(0), channel(1), channel(2));
    } else {
        std::snprintf(buffer, sizeof buffer, "#%02X%02X%02X%02X", channel(0), channel(1),
                      channel(2), channel(3));
    }
    return buffer;
}

const CapturedRepresentation* find(const std::vector<CapturedRepresentation>& reps,
                                   std::string_view utType) {
    for (const auto& rep : reps) {
        if (rep.utType == utType) {
            return &rep;
        }
    }
    return nullptr;
}

// Toolkits offer one picture in every format they can convert to; keeping them all would
// store the same image three times. PNG is lossless and compact, JPEG is usually the
// original of a photograph, TIFF is the bulkiest.
std::size_t imagePreference(std::string_view utType) {
    if (utType == PasteboardClassifier::pngType) {
        return 0;
    }
    if (utType == PasteboardClassifier::jpegType) {
        return 1;
    }
    return 2;
}

} // namespace

bool PasteboardClassifier::isConcealedMarker(std::string_view type) {
    return type == "org.nspasteboard.ConcealedType" || type == "org.nspasteboard.TransientType" ||
           type == "org.nspasteboard.AutoGeneratedType" || type == "x-kde-passwordManagerHint";
}

bool PasteboardClassifier::isNeverContent(std::string_view type) {
    return type.starts_with("org.nspasteboard.") || type == "com.apple.pasteboard.promised" ||
           type == "x-kde-passwordManagerHint" || type == "TARGETS" || type == "TIMESTAMP" ||
           type == "MULTIPLE" || type == "SAVE_TARGETS" || type == "DELETE" ||
           type == "INSERT_SELECTION" || type == "INSERT_PROPERTY";
}

bool PasteboardClassifier::isConcealed(const PasteboardSnapshot& snapshot) {
    for (const auto& item : snapshot.items) {
        for (const auto& payload : item.payloads) {
            if (isConcealedMarker(payload.type)) {
                return true;
            }
        }
    }
    return false;
}

std::optional<std::string_view>
PasteboardClassifier::uniformType(std::string_view mimeType, std::span<const std::uint8_t> data) {
    if (isNeverContent(mimeType)) {
        return std::nullopt;
    }
    switch (typeInfo(mimeType).family) {
    case Family::plainText:
        return plainTextType;
    case Family::html:
        return htmlType;
    case Family::rtf:
        return rtfType;
    case Family::png:
        return pngType;
    case Family::jpeg:
        return jpegType;
    case Family::tiff:
        return tiffType;
    case Family::color:
        return colorType;
    case Family::url:
        return urlType;
    case Family::fileURL:
        return fileURLType;
    case Family::uriList: {
        const std::string text = decodeText(data, TextEncoding::utf8);
        const auto uris = uriLines(text);
        if (uris.empty()) {
            return std::nullopt;
        }
        return std::all_of(uris.begin(), uris.end(), isFileURI) ? fileURLType : urlType;
    }
    case Family::unknown:
        return std::nullopt;
    }
    return std::nullopt;
}

std::string_view PasteboardClassifier::mimeType(std::string_view utType) {
    if (utType == plainTextType) {
        return "text/plain;charset=utf-8";
    }
    if (utType == htmlType) {
        return "text/html";
    }
    if (utType == rtfType) {
        return "text/rtf";
    }
    if (utType == urlType || utType == fileURLType) {
        return "text/uri-list";
    }
    if (utType == pngType) {
        return "image/png";
    }
    if (utType == jpegType) {
        return "image/jpeg";
    }
    if (utType == tiffType) {
        return "image/tiff";
    }
    if (utType == colorType) {
        return "application/x-color";
    }
    return {};
}

bool PasteboardClassifier::isTextual(std::string_view utType) {
    return utType == plainTextType || utType == htmlType || utType == urlType ||
           utType == fileURLType;
}

std::size_t PasteboardClassifier::sizeCap(std::string_view type) {
    if (isNeverContent(type)) {
        return 0;
    }
    // Text beyond 8 MiB is a log or a dump, not something to find again in a history list,
    // and the secret scan has to read all of it. RTF carries pictures inline, so it gets
    // more. 64 MiB holds an uncompressed 4K screenshot as TIFF with room to spare. A link
    // list is small. An X11 colour is 8 bytes.
    switch (typeInfo(type).family) {
    case Family::plainText:
    case Family::html:
        return 8 * mib;
    case Family::rtf:
        return 16 * mib;
    case Family::uriList:
    case Family::url:
    case Family::fileURL:
        return 1 * mib;
    case Family::png:
    case Family::jpeg:
    case Family::tiff:
        return 64 * mib;
    case Family::color:
        return 64;
    case Family::unknown:
        return 0;
    }
    return 0;
}

std::optional<ClipKind>
PasteboardClassifier::kindOf(const std::vector<CapturedRepresentation>& reps) {
    const bool hasText = find(reps, plainTextType) != nullptr;
    const bool hasImage = std::any_of(reps.begin(), reps.end(),
                                      [](const auto& rep) { return isImageType(rep.utType); });
    if (find(reps, fileURLType)) {
        return ClipKind::file;
    }
    // A picture with words beside it (cells of a spreadsheet, a selection of a web page) is
    // text that happens to offer a rendering; a picture alone is an image.
    if (hasImage && !hasText) {
        return ClipKind::image;
    }
    if (find(reps, colorType) && !hasText) {
        return ClipKind::color;
    }
    if (find(reps, urlType)) {
        return ClipKind::url;
    }
    if (find(reps, htmlType) || find(reps, rtfType)) {
        return ClipKind::richText;
    }
    if (hasText) {
        return ClipKind::text;
    }
    if (hasImage) {
        return ClipKind::image;
    }
    return std::nullopt;
}

std::string PasteboardClassifier::previewText(ClipKind kind,
                                              const std::vector<CapturedRepresentation>& reps) {
    const auto* plain = find(reps, plainTextType);
    switch (kind) {
    case ClipKind::file: {
        const auto* files = find(reps, fileURLType);
        std::string names;
        for (std::string_view uri :
             uriLines(files && files->text ? std::string_view(*files->text) : std::string_view{})) {
            if (!names.empty()) {
                names += ", ";
            }
            names += fileName(uri);
            if (names.size() > previewLength * 4) {
                break;
            }
        }
        return normalisePreview(names);
    }
    case ClipKind::image:
        for (const auto& rep : reps) {
            if (isImageType(rep.utType)) {
                const std::string_view format = rep.utType == pngType    ? "PNG"
                                                : rep.utType == jpegType ? "JPEG"
                                                                         : "TIFF";
                return std::string(format) + " image, " + byteCountText(rep.bytes().size());
            }
        }
        return "Image";
    case ClipKind::color: {
        const auto* color = find(reps, colorType);
        return colorPreview(color && color->data ? Bytes(*color->data) : Bytes{});
    }
    case ClipKind::url: {
        const auto* url = find(reps, urlType);
        const auto uris =
            uriLines(url && url->text ? std::string_view(*url->text) : std::string_view{});
        if (!uris.empty()) {
            return normalisePreview(uris.front());
        }
        break;
    }
    case ClipKind::text:
    case ClipKind::richText:
        break;
    }
    if (plain && plain->text) {
        return normalisePreview(*plain->text);
    }
    if (const auto* html = find(reps, htmlType); html && html->text) {
        return normalisePreview(htmlPreviewSource(*html->text));
    }
    if (const auto* rtf = find(reps, rtfType); rtf && rtf->data) {
        const auto& d = *rtf->data;
        return normalisePreview(
            rtfPreviewSource(std::string_view(reinterpret_cast<const char*>(d.data()), d.size())));
    }
    return {};
}

std::optional<CapturedClip> PasteboardClassifier::classify(const PasteboardSnapshot& snapshot) {
    std::vector<CapturedRepresentation> reps;
    std::optional<std::size_t> imageAt;
    for (const auto& item : snapshot.items) {
        for (const auto& payload : item.payloads) {
            if (payload.data.empty() || payload.data.size() > sizeCap(payload.type)) {
                continue;
            }
            const auto utType = uniformType(payload.type, payload.data);
            if (!utType || find(reps, *utType)) {
                continue; // the first flavour of a type wins, as the owner ordered them
            }
            CapturedRepresentation rep;
            rep.utType = std::string(*utType);
            if (isTextual(*utType)) {
                rep.text = decodeText(payload.data, typeInfo(payload.type).encoding);
                if (rep.text->empty()) {
                    continue;
                }
            } else {
                rep.data = payload.data;
            }
            if (isImageType(*utType)) {
                if (imageAt) {
                    if (imagePreference(*utType) >= imagePreference(reps[*imageAt].utType)) {
                        continue;
                    }
                    reps[*imageAt] = std::move(rep);
                    continue;
                }
                imageAt = reps.size();
            }
            reps.push_back(std::move(rep));
        }
    }
    const auto kind = kindOf(reps);
    if (!kind) {
        return std::nullopt;
    }
    CapturedClip clip;
    clip.kind = *kind;
    clip.previewText = previewText(*kind, reps);
    clip.representations = std::move(reps);
    return clip;
}

} // namespace marlune
