#pragma once

#include "ExpansionEngine/AIRequest.h"
#include "ExpansionEngine/FillInField.h"
#include "MarluneCLIProtocol/LibraryRecords.h"
#include "MarluneCLIProtocol/SnippetRecords.h"
#include "MarluneCore/ModelContext.h"
#include "MarluneCore/Records.h"
#include "MarluneCore/Settings.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace marlune {

// Library records as the command line shows them. The names of groups and tags that a
// snippet refers to are looked up once per command, not once per snippet.
class CLIRecordMapping {
public:
    // Reads the groups and tags of the library, and the keyword prefix for `keywordTrigger`.
    CLIRecordMapping(ModelContext& context, const Settings& settings);

    // The keyword prefix in force.
    static std::string keywordPrefix(const Settings& settings);

    SnippetDTO snippet(const Snippet& snippet) const;
    GroupDTO group(const SnippetGroup& group) const;
    TagDTO tag(const Tag& tag) const;

    static std::string date(Date date);
    static FillDTO fill(const FillInField& field, const std::map<std::string, std::string>& fills);
    static AIRequestDTO aiRequest(const AIRequest& request);
    // Whether a body asks for generated text anywhere.
    static bool hasAI(std::string_view body);

private:
    std::string keywordPrefix_;
    std::map<Uuid, SnippetGroup> groups_;
    std::map<Uuid, Tag> tags_;
    std::map<Uuid, std::int64_t> snippetsPerGroup_;
    std::map<Uuid, std::int64_t> snippetsPerTag_;
    std::map<Uuid, std::int64_t> clipsPerTag_;
};

} // namespace marlune
