#include "LibraryImport/CSVReader.h"

#include <algorithm>

namespace marlune {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

template <class... Ts> struct Overloaded : Ts... { using Ts::operator()...; };
template <class... Ts> Overloaded(Ts...) -> Overloaded<Ts...>;

// Line breaks in text[from, to): LF, CRLF and a lone CR each count once.
std::int64_t countLineBreaks(std::string_view text, std::size_t from, std::size_t to) {
    std::int64_t count = 0;
    for (std::size_t i = from; i < to; ++i) {
        if (text[i] == '\n' || (text[i] == '\r' && (i + 1 == text.size() || text[i + 1] != '\n'))) {
            ++count;
        }
    }
    return count;
}

class Parser {
public:
    explicit Parser(std::string_view text) : text_(text) {}

    std::variant<std::vector<CSVRow>, CSVError> run() {
        while (pos_ < text_.size()) {
            if (!step()) {
                return CSVError{CSVError::TooLarge{}};
            }
        }
        if (inQuotes_) {
            return CSVError{CSVError::UnterminatedQuote{quoteLine_}};
        }
        if (!endRecord()) {
            return CSVError{CSVError::TooLarge{}};
        }
        return std::move(rows_);
    }

private:
    bool step() {
        if (inQuotes_) {
            const std::size_t quote = std::min(text_.find('"', pos_), text_.size());
            line_ += countLineBreaks(text_, pos_, quote);
            field_.append(text_.substr(pos_, quote - pos_));
            if (quote == text_.size()) {
                pos_ = quote;
                return true;
            }
            pos_ = quote + 1;
            if (pos_ < text_.size() && text_[pos_] == '"') {
                field_.push_back('"');
                ++pos_;
            } else {
                inQuotes_ = false;
            }
            return true;
        }
        const std::size_t special = std::min(text_.find_first_of(",\r\n\"", pos_), text_.size());
        if (special > pos_) {
            field_.append(text_.substr(pos_, special - pos_));
            fieldStarted_ = true;
            pos_ = special;
            return true;
        }
        const char c = text_[pos_++];
        if (c == '"') {
            if (fieldStarted_) {
                field_.push_back('"');
            } else {
                inQuotes_ = true;
                quoteLine_ = line_;
            }
            fieldStarted_ = true;
            return true;
        }
        if (c == ',') {
            return endField();
        }
        if (c == '\r' && pos_ < text_.size() && text_[pos_] == '\n') {
            ++pos_;
        }
        const bool ok = endRecord();
        ++line_;
        rowLine_ = line_;
        return ok;
    }

    bool endField() {
        if (++fieldCount_ > CSVReader::kMaxFields) {
            return false;
        }
        row_.fields.push_back(std::move(field_));
        field_.clear();
        fieldStarted_ = false;
        return true;
    }

    bool endRecord() {
        if (row_.fields.empty() && !fieldStarted_) {
            return true;
        }
        if (!endField()) {
            return false;
        }
        row_.line = rowLine_;
        rows_.push_back(std::move(row_));
        row_ = CSVRow{};
        return true;
    }

    std::string_view text_;
    std::size_t pos_ = 0;
    std::int64_t line_ = 1;
    std::int64_t rowLine_ = 1;
    std::int64_t quoteLine_ = 0;
    bool inQuotes_ = false;
    bool fieldStarted_ = false;
    std::size_t fieldCount_ = 0;
    std::string field_;
    CSVRow row_;
    std::vector<CSVRow> rows_;
};

} // namespace

std::string CSVError::reason() const {
    return std::visit(Overloaded{
                          [](const UnterminatedQuote& error) {
                              return "a quoted field that starts on line " +
                                     std::to_string(error.line);
                          },
                          [](const TooLarge&) {
                              return std::string("it has more fields than Marlune will read.");
                          },
                      },
                      kind);
}

std::variant<std::vector<CSVRow>, CSVError> CSVReader::read(std::string_view text) {
    if (text.starts_with(kByteOrderMark)) {
        text.remove_prefix(kByteOrderMark.size());
    }
    return Parser(text).run();
}

} // namespace marlune
