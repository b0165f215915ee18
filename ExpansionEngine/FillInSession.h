#pragma once

#include "ExpansionEngine/FillInField.h"

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace marlune {

// The state of one fill-in form: its fields, the answers so far and the focused field. The
// form view only draws it; every rule about answers and Return lives here.
class FillInSession {
public:
    enum class ReturnAction { next, insert };

    explicit FillInSession(std::vector<FillInField> fields);

    const std::vector<FillInField>& fields() const { return fields_; }
    const std::map<std::string, std::string, std::less<>>& values() const { return values_; }
    std::int64_t activeIndex() const { return activeIndex_; }

    void focus(std::int64_t index);
    void setValue(std::string_view name, std::string value);
    // Ticks or unticks one option of a multiple-choice field; the answer always lists the
    // ticked options in the order the field offers them.
    void toggleOption(std::string_view name, std::string_view option);
    bool isChosen(std::string_view name, std::string_view option) const;

    // Return moves on while a later field remains and inserts on the last one.
    ReturnAction returnAction() const;
    // Carries out Return: focuses the next field, or reports that the form is done.
    ReturnAction pressReturn();

private:
    std::vector<FillInField> fields_;
    std::map<std::string, std::string, std::less<>> values_;
    std::int64_t activeIndex_ = 0;
};

} // namespace marlune
