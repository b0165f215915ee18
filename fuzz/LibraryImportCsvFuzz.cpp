// TextExpander exports are edited by hand and by spreadsheets: any bytes must read into
// records or fail with a reason, and reading what was read, written back out, gives the
// same records.
#include "LibraryImport/CSVReader.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <variant>

namespace {

std::string writeBack(const std::vector<marlune::CSVRow>& rows) {
    std::string out;
    for (const auto& row : rows) {
        for (std::size_t i = 0; i < row.fields.size(); ++i) {
            out += i == 0 ? "\"" : ",\"";
            for (const char c : row.fields[i]) {
                out += c == '"' ? std::string_view("\"\"") : std::string_view(&c, 1);
            }
            out += '"';
        }
        out += "\r\n";
    }
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    auto read = marlune::CSVReader::read(text);
    const auto* rows = std::get_if<std::vector<marlune::CSVRow>>(&read);
    if (rows == nullptr) {
        return 0;
    }
    std::int64_t lastLine = 0;
    for (const auto& row : *rows) {
        if (row.fields.empty() || row.line <= lastLine) {
            std::abort();
        }
        lastLine = row.line;
    }
    auto reread = marlune::CSVReader::read(writeBack(*rows));
    const auto* rows2 = std::get_if<std::vector<marlune::CSVRow>>(&reread);
    if (rows2 == nullptr || rows2->size() != rows->size()) {
        std::abort();
    }
    for (std::size_t i = 0; i < rows->size(); ++i) {
        if ((*rows2)[i].fields != (*rows)[i].fields) {
            std::abort();
        }
    }
    return 0;
}
