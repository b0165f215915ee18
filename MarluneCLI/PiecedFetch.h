#pragma once

#include "MarluneCLI/CLIClient.h"
#include "MarluneCLIProtocol/CLIErrorPayload.h"
#include "MarluneCLIProtocol/CLIRequest.h"
#include "MarluneCLIProtocol/CLIResponse.h"

#include <cstdint>
#include <functional>
#include <string>
#include <variant>

namespace marlune {

// Answers that can be larger than one reply, asked for in pieces and joined, so that the rest
// of the tool sees one response as if the whole had come at once.
class PiecedFetch {
public:
    using Reply = std::variant<CLIResponse, CLIErrorPayload>;
    using Send = std::function<Reply(CLIRequest)>;

    explicit PiecedFetch(Send send) : send_(std::move(send)) {}

    // Any other request, in one reply.
    Reply send(CLIRequest request) const { return send_(std::move(request)); }
    // "data.export": the document with every snippet, from as many pieces as it takes.
    Reply exportDocument(const CLIRequest& request) const;
    // "clip.get": the clip with the text of every textual flavour and, with `raw`, the bytes of
    // the others, fetched piece by piece where the reply left them out.
    Reply clip(const CLIRequest& request) const;
    // The bytes of the clip's flavour of type `utType` (its first flavour when empty), whole.
    std::variant<std::string, CLIErrorPayload> flavour(const CLIRequest& request,
                                                       const std::string& utType) const;

private:
    std::variant<std::string, CLIErrorPayload>
    flavourBytes(const CLIRequest& request, std::int64_t index, std::int64_t size) const;

    Send send_;
};

} // namespace marlune
