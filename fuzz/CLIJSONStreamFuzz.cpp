// The streaming record codec against the document one, on arbitrary text: both readers must
// give the same record or the same failure, and whatever was read must be written back to the
// same bytes by both writers. The input is also written as a string, invalid UTF-8 included.

#include "MarluneCLIProtocol/BoardRecords.h"
#include "tests/support/WireProbe.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace {

void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

template <class T> void compare(std::string_view text) {
    using namespace marlune::testing;
    const auto expected = decodeThroughDocument<T>(text);
    const auto actual = decodeStreaming<T>(text);
    check(actual == expected);
    if (const auto* value = std::get_if<T>(&actual)) {
        check(marlune::encodeWireText(*value) == encodeThroughDocument(*value));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    compare<marlune::testing::WireProbe>(text);
    compare<std::vector<marlune::BoardItemDTO>>(text);
    compare<std::map<std::string, marlune::CLIJSONValue>>(text);

    if (const auto direct = marlune::cliJSONText::indented(text, marlune::cliMaxJSONDepth, 2)) {
        check(direct == marlune::testing::indentThroughDocument(text));
    }

    marlune::testing::WireProbe probe;
    probe.text = std::string(text);
    probe.tags = {std::string(text.substr(0, size / 2))};
    check(marlune::encodeWireText(probe) == marlune::testing::encodeThroughDocument(probe));
    return 0;
}
