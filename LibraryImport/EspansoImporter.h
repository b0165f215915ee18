#pragma once

#include "LibraryImport/ImportTypes.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace marlune {

// A value that espanso files write as a number or a string alike ("default: 5"), read as text.
using EspansoLossyString = std::string;

struct EspansoFormField {
    std::string type;
    std::vector<EspansoLossyString> values;
    std::optional<EspansoLossyString> defaultValue;
    bool multiline = false;
};

struct EspansoVar {
    std::string name;
    std::string type;
    // The parameters read: "echo", "format", "layout"; others are kept by name.
    std::map<std::string, EspansoLossyString> params;
};

struct EspansoMatch {
    std::vector<std::string> triggers;
    std::optional<std::string> regex;
    std::optional<std::string> replace;
    std::optional<std::string> markdown;
    std::optional<std::string> label;
    std::optional<std::string> form;
    std::map<std::string, EspansoFormField> formFields;
    std::vector<EspansoVar> vars;
    // "word", "propagate_case", "force_mode", "left_word", "right_word" when set.
    std::vector<std::string> options;
};

struct EspansoFile {
    std::vector<EspansoMatch> matches;
    std::vector<EspansoVar> globalVars;
};

// espanso's YAML match files. Triggers become keywords, "{{var}}" references and form fields
// become placeholders where a variable has an equivalent; the command line converts these
// files itself and sends the document.
struct EspansoImporter {
    // Throws nothing: a file that YAML can't read, or that isn't shaped like a match file,
    // is invalidFile with the parser's detail.
    static std::variant<EspansoFile, ImportError> parse(std::string_view text);
    static ImportOutcome convert(std::string_view text, const ImportOptions& options);
};

} // namespace marlune
