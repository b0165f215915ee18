#include "ExpansionEngine/FillInSession.h"

#include "ExpansionEngine/SnippetParser.h"

#include <algorithm>
#include <utility>

namespace marlune {
namespace {

std::vector<std::string> splitAnswer(std::string_view answer) {
    return Placeholder{"", {"options=" + std::string(answer)}}.options();
}

} // namespace

FillInSession::FillInSession(std::vector<FillInField> fields) : fields_(std::move(fields)) {
    // The form opens on the defaults; a single choice without one starts on its first option
    // so that Return alone always yields a valid answer.
    for (const auto& field : fields_) {
        std::string initial = field.defaultValue.value_or("");
        if (const auto* choice = std::get_if<FillInField::Choice>(&field.kind)) {
            if (std::find(choice->options.begin(), choice->options.end(), initial) ==
                choice->options.end()) {
                initial = choice->options.empty() ? std::string() : choice->options.front();
            }
        }
        values_.emplace(field.name, std::move(initial));
    }
}

void FillInSession::focus(std::int64_t index) {
    if (index >= 0 && index < static_cast<std::int64_t>(fields_.size())) {
        activeIndex_ = index;
    }
}

void FillInSession::setValue(std::string_view name, std::string value) {
    if (auto it = values_.find(name); it != values_.end()) {
        it->second = std::move(value);
    }
}

bool FillInSession::isChosen(std::string_view name, std::string_view option) const {
    auto it = values_.find(name);
    if (it == values_.end()) {
        return false;
    }
    auto chosen = splitAnswer(it->second);
    return std::find(chosen.begin(), chosen.end(), option) != chosen.end();
}

void FillInSession::toggleOption(std::string_view name, std::string_view option) {
    auto field = std::find_if(fields_.begin(), fields_.end(),
                              [&](const FillInField& f) { return f.name == name; });
    auto value = values_.find(name);
    if (field == fields_.end() || value == values_.end()) {
        return;
    }
    const auto* multi = std::get_if<FillInField::MultiChoice>(&field->kind);
    if (multi == nullptr) {
        return;
    }
    auto chosen = splitAnswer(value->second);
    if (auto it = std::find(chosen.begin(), chosen.end(), option); it != chosen.end()) {
        chosen.erase(it);
    } else {
        chosen.emplace_back(option);
    }
    std::string joined;
    for (const auto& candidate : multi->options) {
        if (std::find(chosen.begin(), chosen.end(), candidate) != chosen.end()) {
            if (!joined.empty()) {
                joined.append(kMultiChoiceSeparator);
            }
            joined.append(candidate);
        }
    }
    value->second = std::move(joined);
}

FillInSession::ReturnAction FillInSession::returnAction() const {
    return activeIndex_ + 1 < static_cast<std::int64_t>(fields_.size()) ? ReturnAction::next
                                                                        : ReturnAction::insert;
}

FillInSession::ReturnAction FillInSession::pressReturn() {
    auto action = returnAction();
    if (action == ReturnAction::next) {
        ++activeIndex_;
    }
    return action;
}

} // namespace marlune
