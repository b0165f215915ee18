#include "LibraryImport/EspansoImporter.h"

#include "LibraryImport/DocumentBuilder.h"
#include "LibraryImport/StableID.h"

#include <algorithm>
#include <cctype>
#include <set>
#include <yaml-cpp/yaml.h>

namespace marlune {

namespace {

constexpr ImportFormat kFormat = ImportFormat::espanso;

// yaml-cpp throws when a missing key's node is asked what it is, so every read checks first.
std::string lossy(const YAML::Node& node) {
    if (node && node.IsScalar()) {
        return node.Scalar();
    }
    return {};
}

std::vector<EspansoVar> readVars(const YAML::Node& list) {
    std::vector<EspansoVar> vars;
    if (!list || !list.IsSequence()) {
        return vars;
    }
    for (const auto& item : list) {
        if (!item.IsMap()) {
            continue;
        }
        EspansoVar var;
        var.name = lossy(item["name"]);
        var.type = lossy(item["type"]);
        const auto params = item["params"];
        if (params && params.IsMap()) {
            for (const auto& param : params) {
                if (param.second.IsScalar()) {
                    var.params[lossy(param.first)] = param.second.Scalar();
                }
            }
        }
        vars.push_back(std::move(var));
    }
    return vars;
}

std::vector<std::string> valuesOf(const YAML::Node& node) {
    std::vector<std::string> values;
    if (!node) {
        return values;
    }
    if (node.IsSequence()) {
        for (const auto& item : node) {
            values.push_back(lossy(item));
        }
    } else if (node.IsScalar()) {
        // A block of lines, one choice per line.
        std::string all = node.Scalar();
        std::size_t start = 0;
        while (start < all.size()) {
            auto end = all.find('\n', start);
            if (end == std::string::npos) {
                end = all.size();
            }
            if (end > start) {
                values.push_back(all.substr(start, end - start));
            }
            start = end + 1;
        }
    }
    return values;
}

EspansoMatch readMatch(const YAML::Node& item) {
    EspansoMatch match;
    if (item["trigger"] && item["trigger"].IsScalar()) {
        match.triggers.push_back(item["trigger"].Scalar());
    }
    if (item["triggers"] && item["triggers"].IsSequence()) {
        for (const auto& trigger : item["triggers"]) {
            if (trigger.IsScalar()) {
                match.triggers.push_back(trigger.Scalar());
            }
        }
    }
    const auto optionalText = [&item](const char* key) -> std::optional<std::string> {
        if (item[key] && item[key].IsScalar()) {
            return item[key].Scalar();
        }
        return std::nullopt;
    };
    match.regex = optionalText("regex");
    match.replace = optionalText("replace");
    match.markdown = optionalText("markdown");
    match.label = optionalText("label");
    match.form = optionalText("form");
    if (item["form_fields"] && item["form_fields"].IsMap()) {
        for (const auto& field : item["form_fields"]) {
            EspansoFormField form;
            if (field.second.IsMap()) {
                form.type = lossy(field.second["type"]);
                form.values = valuesOf(field.second["values"]);
                if (field.second["default"] && field.second["default"].IsScalar()) {
                    form.defaultValue = field.second["default"].Scalar();
                }
                form.multiline = field.second["multiline"] &&
                                 field.second["multiline"].IsScalar() &&
                                 field.second["multiline"].Scalar() == "true";
            }
            match.formFields[lossy(field.first)] = std::move(form);
        }
    }
    match.vars = readVars(item["vars"]);
    for (const char* option : {"word", "propagate_case", "force_mode", "left_word", "right_word"}) {
        const auto value = item[option];
        if (value && value.IsScalar() && value.Scalar() != "false") {
            match.options.emplace_back(option);
        }
    }
    return match;
}

// strftime to the date pattern letters; nothing when a token has no clean equivalent.
std::optional<std::string> datePattern(std::string_view format) {
    static constexpr std::pair<char, std::string_view> table[] = {
        {'Y', "yyyy"},     {'y', "yy"},    {'m', "MM"},  {'d', "dd"},         {'e', "d"},
        {'B', "MMMM"},     {'b', "MMM"},   {'h', "MMM"}, {'A', "EEEE"},       {'a', "EEE"},
        {'H', "HH"},       {'I', "hh"},    {'M', "mm"},  {'S', "ss"},         {'p', "a"},
        {'j', "DDD"},      {'Z', "zzz"},   {'z', "xx"},  {'F', "yyyy-MM-dd"}, {'T', "HH:mm:ss"},
        {'D', "MM/dd/yy"}, {'R', "HH:mm"},
    };
    std::string out;
    std::string literal;
    const auto flush = [&] {
        if (literal.empty()) {
            return;
        }
        bool letters = false;
        for (char c : literal) {
            letters = letters || std::isalpha(static_cast<unsigned char>(c)) != 0 || c == '\'';
        }
        if (letters) {
            std::string quoted;
            for (char c : literal) {
                quoted += c == '\'' ? std::string("''") : std::string(1, c);
            }
            out += "'" + quoted + "'";
        } else {
            out += literal;
        }
        literal.clear();
    };
    for (std::size_t i = 0; i < format.size(); ++i) {
        if (format[i] != '%') {
            literal += format[i];
            continue;
        }
        if (i + 1 >= format.size()) {
            return std::nullopt;
        }
        const char code = format[++i];
        if (code == '%') {
            literal += '%';
            continue;
        }
        const auto* found = std::find_if(std::begin(table), std::end(table),
                                         [code](const auto& row) { return row.first == code; });
        if (found == std::end(table)) {
            return std::nullopt;
        }
        flush();
        out += found->second;
    }
    flush();
    return out;
}

class MatchConverter {
public:
    MatchConverter(DocumentBuilder& builder, const EspansoMatch& match,
                   const std::vector<EspansoVar>& globals, std::string trigger)
        : builder_(builder), match_(match), globals_(globals),
          label_("Match '" + std::move(trigger) + "'") {}

    std::string convert(std::string_view text) {
        if (TemplateText::opensPlaceholder(text)) {
            builder_.note(label_ +
                          ": the text contains “{@”, which Marlune reads as the start of a "
                          "placeholder.");
        }
        for (const auto& option : match_.options) {
            builder_.note(label_ + ": " + option +
                          " — no Marlune equivalent, imported without it.");
        }
        std::string out;
        std::size_t i = 0;
        while (i < text.size()) {
            if (text.substr(i).starts_with("$|$")) {
                out += "{@cursor@}";
                i += 3;
                continue;
            }
            if (text.substr(i).starts_with("{{")) {
                const auto close = text.find("}}", i + 2);
                if (close != std::string_view::npos) {
                    out += reference(text.substr(i + 2, close - i - 2));
                    i = close + 2;
                    continue;
                }
            }
            if (match_.form && text.substr(i).starts_with("[[")) {
                const auto close = text.find("]]", i + 2);
                if (close != std::string_view::npos) {
                    out += formField(std::string(trim(text.substr(i + 2, close - i - 2))));
                    i = close + 2;
                    continue;
                }
            }
            out += text[i++];
        }
        return out;
    }

    std::int64_t fieldCount() const { return static_cast<std::int64_t>(fields_.size()); }

private:
    static std::string_view trim(std::string_view s) {
        while (!s.empty() && s.front() == ' ') {
            s.remove_prefix(1);
        }
        while (!s.empty() && s.back() == ' ') {
            s.remove_suffix(1);
        }
        return s;
    }

    const EspansoVar* findVar(std::string_view name) const {
        for (const auto& var : match_.vars) {
            if (var.name == name) {
                return &var;
            }
        }
        for (const auto& var : globals_) {
            if (var.name == name) {
                return &var;
            }
        }
        return nullptr;
    }

    std::string reference(std::string_view inside) {
        const std::string name(trim(inside));
        const std::string typed = "{{" + std::string(inside) + "}}";
        if (name.find('.') != std::string::npos) {
            builder_.note(label_ + ": '" + typed +
                          "' — inline form references aren't portable; left verbatim.");
            return typed;
        }
        const EspansoVar* var = findVar(name);
        if (var == nullptr) {
            builder_.note(label_ + ": '" + typed + "' has no matching var — left verbatim.");
            return typed;
        }
        const std::string varLabel = label_ + ": variable '" + name + "'";
        if (var->type == "clipboard") {
            return "{@clipboard@}";
        }
        if (var->type == "date") {
            const auto format = var->params.find("format");
            const auto pattern = format == var->params.end() ? std::optional<std::string>()
                                                             : datePattern(format->second);
            if (!pattern) {
                builder_.note(varLabel +
                              " uses strftime tokens with no clean mapping — left verbatim.");
                return typed;
            }
            bool swapped = false;
            return TemplateText::placeholder(
                "date", {{"format", TemplateText::safeValue(*pattern, swapped)}});
        }
        if (var->type == "echo") {
            const auto echo = var->params.find("echo");
            if (echo == var->params.end() || echo->second.empty()) {
                builder_.note(varLabel + " has no value — left verbatim.");
                return typed;
            }
            return echo->second;
        }
        builder_.note(varLabel + " (" + (var->type.empty() ? "untyped" : var->type) +
                      ") — its {{…}} references are left verbatim.");
        return typed;
    }

    std::string formField(const std::string& rawName) {
        bool swapped = false;
        const std::string name = TemplateText::safeName(rawName, swapped);
        fields_.insert(name);
        const auto found = match_.formFields.find(rawName);
        std::string placeholder;
        if (found == match_.formFields.end() || found->second.values.empty() ||
            (found->second.type != "choice" && found->second.type != "list")) {
            std::vector<std::pair<std::string, std::string>> params = {{"name", name}};
            if (found != match_.formFields.end() && found->second.defaultValue &&
                !found->second.defaultValue->empty()) {
                params.emplace_back("default",
                                    TemplateText::safeValue(*found->second.defaultValue, swapped));
            }
            if (found != match_.formFields.end() && found->second.multiline) {
                builder_.note(label_ + ": field '" + rawName +
                              "' is multiline — imported as a single-line fill-in.");
            }
            placeholder = TemplateText::placeholder("text", params);
        } else {
            const auto& field = found->second;
            std::string options;
            for (const auto& value : field.values) {
                options += (options.empty() ? "" : ",") + TemplateText::safeName(value, swapped);
            }
            if (field.defaultValue && !field.defaultValue->empty() &&
                *field.defaultValue != field.values.front()) {
                builder_.note(label_ + ": field '" + rawName + "': espanso default '" +
                              *field.defaultValue + "' isn't the first choice" +
                              " — Marlune choices always default to the first option.");
            }
            placeholder =
                TemplateText::placeholder("select", {{"name", name}, {"options", options}});
        }
        if (swapped) {
            builder_.note(label_ + ": a field's name or value contained | , = or @} — swapped for "
                                   "look-alikes Marlune can store.");
        }
        return placeholder;
    }

    DocumentBuilder& builder_;
    const EspansoMatch& match_;
    const std::vector<EspansoVar>& globals_;
    std::string label_;
    std::set<std::string> fields_;
};

} // namespace

std::variant<EspansoFile, ImportError> EspansoImporter::parse(std::string_view text) {
    if (!TemplateText::isUTF8(text)) {
        return ImportError::notText(kFormat);
    }
    try {
        const YAML::Node root = YAML::Load(std::string(text));
        if (!root.IsMap()) {
            return ImportError::invalidFile(kFormat, "the file isn't a map of settings.");
        }
        EspansoFile file;
        if (root["matches"]) {
            if (!root["matches"].IsSequence()) {
                return ImportError::invalidFile(kFormat, "`matches` isn't a list.");
            }
            for (const auto& item : root["matches"]) {
                if (item.IsMap()) {
                    file.matches.push_back(readMatch(item));
                }
            }
        }
        file.globalVars = readVars(root["global_vars"]);
        return file;
    } catch (const YAML::Exception& error) {
        std::string detail = error.msg;
        if (error.mark.line >= 0) {
            detail += " (line " + std::to_string(error.mark.line + 1) + ")";
        }
        return ImportError::invalidFile(kFormat, detail);
    }
}

ImportOutcome EspansoImporter::convert(std::string_view text, const ImportOptions& options) {
    auto parsed = parse(text);
    if (auto* error = std::get_if<ImportError>(&parsed)) {
        return *error;
    }
    const auto& file = std::get<EspansoFile>(parsed);
    DocumentBuilder builder(kFormat, options);
    std::string groupName = options.sourceName;
    if (const auto slash = groupName.find_last_of('/'); slash != std::string::npos) {
        groupName.erase(0, slash + 1);
    }
    for (std::string_view extension : {".yml", ".yaml"}) {
        if (groupName.ends_with(extension)) {
            groupName.resize(groupName.size() - extension.size());
        }
    }
    if (groupName.empty()) {
        groupName = "espanso";
    }
    const auto group = builder.group(groupName, groupName);
    for (const auto& match : file.matches) {
        if (match.regex) {
            builder.skip("Match '" + *match.regex + "' skipped — Marlune has no regex triggers.");
            continue;
        }
        if (match.triggers.empty()) {
            builder.skip("A match with no trigger was skipped.");
            continue;
        }
        const std::optional<std::string>& body =
            match.replace ? match.replace : (match.markdown ? match.markdown : match.form);
        if (!body) {
            builder.skip("Match '" + match.triggers.front() +
                         "' has no replace/markdown/form content — skipped.");
            continue;
        }
        for (const auto& trigger : match.triggers) {
            MatchConverter converter(builder, match, file.globalVars, trigger);
            SourceSnippet source;
            source.sourceID = trigger;
            source.keyword = trigger;
            source.title = match.label.value_or(trigger);
            source.content = converter.convert(*body);
            source.fillInCount = converter.fieldCount();
            source.contentType = !match.replace && match.markdown ? "markdown" : "plainText";
            source.group = group;
            if (!builder.add(StableID::espanso, std::move(source))) {
                builder.skip("Match '" + trigger +
                             "' appears twice in the file — only the first one is imported.");
            }
        }
    }
    return builder.finish();
}

} // namespace marlune
