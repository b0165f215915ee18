// Feeds arbitrary bytes to the server's side of the wire: as a whole frame (header, payload,
// request, version and token checks) through both the buffer decoder and the stream reader,
// and as an argument record of a few shapes. Whatever comes in, the outcome is either an
// admitted request that re-encodes to itself or one of the server's fixed refusals.

#include "MarluneCLIProtocol/CLIArgs.h"
#include "MarluneCLIProtocol/CLIRequestGate.h"
#include "MarluneCLIProtocol/ClipRecords.h"
#include "MarluneCLIProtocol/DataRecords.h"
#include "MarluneCLIProtocol/SnippetRecords.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

namespace {

const std::string kToken(64, '7');

void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

template <class Args> void decodeAndReencode(const marlune::CLIRequest& request) {
    const auto decoded = marlune::decodeArgs<Args>(request);
    if (const auto* args = std::get_if<Args>(&decoded)) {
        marlune::CLIRequest again = request;
        again.argsJSON = marlune::encodeWireText(*args);
        check(std::get<Args>(marlune::decodeArgs<Args>(again)) == *args);
    } else {
        check(std::get<marlune::CLIErrorPayload>(decoded).code == "E_USAGE");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace marlune;
    const std::span<const std::uint8_t> bytes(data, size);

    const auto fromBuffer = CLIRequestGate::admitFrame(bytes, kToken);

    std::size_t position = 0;
    const auto reader = [&](std::span<std::uint8_t> buffer) {
        if (position == size) {
            return CLIWireIO{CLIWireIO::Status::closed, 0};
        }
        // Odd-sized reads exercise the reassembly of the header and the payload.
        const std::size_t n = std::min({buffer.size(), size - position, std::size_t{7}});
        std::memcpy(buffer.data(), data + position, n);
        position += n;
        return CLIWireIO{CLIWireIO::Status::transferred, n};
    };
    const auto frame = CLIWire::readFrame(reader);
    const auto fromStream = CLIRequestGate::admitRead(frame, kToken);
    check(fromBuffer == fromStream);

    if (const auto* request = std::get_if<CLIRequest>(&fromBuffer)) {
        check(request->v == cliProtocolVersion && request->token == kToken);
        check(CLIRequest::decode(request->encode()) == *request);
    } else {
        const auto& response = std::get<CLIResponse>(fromBuffer);
        check(!response.ok && response.error && !response.resultJSON);
        check(response.error->code == "E_USAGE" || response.error->code == "E_UNAUTHORIZED");
        check(CLIResponse::decode(response.encode()) == response);
    }

    // The same bytes as an argument record.
    CLIRequest request;
    request.command = "fuzz";
    request.argsJSON.assign(reinterpret_cast<const char*>(data), size);
    decodeAndReencode<ListArgs>(request);
    decodeAndReencode<ExpandArgs>(request);
    decodeAndReencode<ClipDTO>(request);
    decodeAndReencode<DataDocumentDTO>(request);
    (void)CLIResponse::decode(request.argsJSON);
    return 0;
}
