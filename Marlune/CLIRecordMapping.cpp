#include "Marlune/CLIRecordMapping.h"

#include "ExpansionEngine/PlaceholderCatalog.h"
#include "ExpansionEngine/SnippetBodyValidator.h"
#include "ExpansionEngine/SnippetParser.h"
#include "Marlune/ConfigRegistry.h"
#include "MarluneCLIProtocol/CLIDateFormat.h"
#include "MarluneCore/LibraryQueries.h"
#include "MarluneCore/SnippetStore.h"

#include <algorithm>

namespace marlune {

namespace {

std::int64_t countOf(const std::map<Uuid, std::int64_t>& counts, const Uuid& id) {
    const auto it = counts.find(id);
    return it == counts.end() ? 0 : it->second;
}

} // namespace

std::string CLIRecordMapping::keywordPrefix(const Settings& settings) {
    const auto value = ConfigRegistry::read(*ConfigRegistry::find("keywordPrefix"), settings);
    return std::get<std::string>(value.value);
}

CLIRecordMapping::CLIRecordMapping(ModelContext& context, const Settings& settings)
    : keywordPrefix_(keywordPrefix(settings)) {
    SnippetStore store(context);
    for (auto& group : store.groups()) {
        groups_.emplace(group.id, std::move(group));
    }
    for (auto& tag : store.tags()) {
        tags_.emplace(tag.id, std::move(tag));
    }
    snippetsPerGroup_ = LibraryQueries::liveSnippetsPerGroup(context);
    snippetsPerTag_ = LibraryQueries::liveSnippetsPerTag(context);
    clipsPerTag_ = LibraryQueries::liveClipsPerTag(context);
}

std::string CLIRecordMapping::date(Date date) {
    return CLIDateFormat::format(date);
}

SnippetDTO CLIRecordMapping::snippet(const Snippet& snippet) const {
    SnippetDTO dto;
    dto.id = snippet.id.string();
    dto.title = snippet.title;
    dto.keyword = snippet.keyword;
    if (!snippet.keyword.empty()) {
        dto.keywordTrigger = keywordPrefix_ + snippet.keyword;
    }
    dto.content = snippet.content;
    dto.contentType = std::string(rawValue(snippet.contentType));
    dto.isFavorite = snippet.isFavorite;
    dto.createdAt = date(snippet.createdAt);
    dto.updatedAt = date(snippet.updatedAt);
    dto.usageCount = snippet.usageCount;
    if (snippet.lastUsedAt) {
        dto.lastUsedAt = date(*snippet.lastUsedAt);
    }
    if (snippet.groupID) {
        if (const auto it = groups_.find(*snippet.groupID); it != groups_.end()) {
            dto.group = GroupRefDTO{it->second.id.string(), it->second.name};
        }
    }
    for (const auto& tagID : snippet.tagIDs) {
        if (const auto it = tags_.find(tagID); it != tags_.end()) {
            dto.tags.push_back({it->second.id.string(), it->second.name});
        }
    }
    std::sort(dto.tags.begin(), dto.tags.end(),
              [](const TagRefDTO& a, const TagRefDTO& b) { return a.name < b.name; });
    dto.fillInCount = SnippetBodyValidator::validate(snippet.content).fillInCount;
    dto.hasAI = hasAI(snippet.content);
    return dto;
}

GroupDTO CLIRecordMapping::group(const SnippetGroup& group) const {
    GroupDTO dto;
    dto.id = group.id.string();
    dto.name = group.name;
    dto.iconSymbol = group.iconSymbol;
    dto.colorRole = group.colorRole;
    dto.sortIndex = group.sortIndex;
    if (group.parentID) {
        if (const auto it = groups_.find(*group.parentID); it != groups_.end()) {
            dto.parent = GroupRefDTO{it->second.id.string(), it->second.name};
        }
    }
    dto.snippetCount = countOf(snippetsPerGroup_, group.id);
    dto.createdAt = date(group.createdAt);
    return dto;
}

TagDTO CLIRecordMapping::tag(const Tag& tag) const {
    TagDTO dto;
    dto.id = tag.id.string();
    dto.name = tag.name;
    dto.colorRole = tag.colorRole;
    dto.snippetCount = countOf(snippetsPerTag_, tag.id);
    dto.clipCount = countOf(clipsPerTag_, tag.id);
    dto.createdAt = date(tag.createdAt);
    return dto;
}

FillDTO CLIRecordMapping::fill(const FillInField& field,
                               const std::map<std::string, std::string>& fills) {
    FillDTO dto;
    dto.name = field.name;
    std::visit(
        [&](const auto& kind) {
            using Kind = std::decay_t<decltype(kind)>;
            if constexpr (std::is_same_v<Kind, FillInField::Choice>) {
                dto.kind = "choice";
                dto.options = kind.options;
            } else if constexpr (std::is_same_v<Kind, FillInField::MultiChoice>) {
                dto.kind = "multiChoice";
                dto.options = kind.options;
            } else if constexpr (std::is_same_v<Kind, FillInField::Date>) {
                dto.kind = "date";
            } else {
                dto.kind = "text";
            }
        },
        field.kind);
    dto.defaultValue = field.defaultValue;
    if (const auto it = fills.find(field.name); it != fills.end()) {
        dto.value = it->second;
        dto.filled = true;
    }
    return dto;
}

AIRequestDTO CLIRecordMapping::aiRequest(const AIRequest& request) {
    AIRequestDTO dto;
    dto.id = request.id;
    dto.prompt = request.prompt;
    dto.input = std::string(rawValue(request.input));
    dto.tier = std::string(rawValue(request.tier));
    return dto;
}

bool CLIRecordMapping::hasAI(std::string_view body) {
    const auto tokens = SnippetParser::parse(body);
    return std::any_of(tokens.begin(), tokens.end(), [](const Token& token) {
        const auto* placeholder = std::get_if<Placeholder>(&token);
        return placeholder && PlaceholderCatalog::kind(placeholder->type) == PlaceholderKind::ai;
    });
}

} // namespace marlune
