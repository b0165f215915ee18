#include "Marlune/CLIListener.h"
#include "Marlune/CLIRecordMapping.h"
#include "Marlune/CLIResolvers.h"
#include "MarluneCLIProtocol/CLICommandName.h"
#include "MarluneCLIProtocol/LibraryRecords.h"
#include "MarluneCLIProtocol/Paging.h"
#include "MarluneCore/SnippetStore.h"

#include <algorithm>
#include <set>

namespace marlune {

namespace {

void refuseListFilters(const ListArgs& args, std::string_view kind) {
    if (args.groupRef || args.tagRef || args.pinboardRef || args.sourceAppBundleID || args.kind ||
        args.favoriteOnly || args.pinnedOnly || args.trashed.value_or(false)) {
        throw CLIError(CLIErrorCode::usage,
                       "Listing " + std::string(kind) + "s takes only a query and paging.");
    }
    if (args.sort && *args.sort != "name" && *args.sort != "manual") {
        throw CLIError(CLIErrorCode::usage,
                       "'" + *args.sort + "' is not a way to sort " + std::string(kind) + "s.",
                       "Use name or manual.");
    }
}

template <class Record> void sortByName(std::vector<Record>& records, const ListArgs& args) {
    if (args.sort.value_or("") == "name") {
        std::stable_sort(records.begin(), records.end(), [](const Record& a, const Record& b) {
            return CLIResolvers::foldCase(a.name) < CLIResolvers::foldCase(b.name);
        });
    }
    if (args.order == "desc") {
        std::reverse(records.begin(), records.end());
    } else if (args.order && *args.order != "asc") {
        throw CLIError(CLIErrorCode::usage, "'" + *args.order + "' is not an order.",
                       "Use asc or desc.");
    }
}

// --- groups -----------------------------------------------------------------------------

// Names are kept unique among siblings: a reference by name could never pick one of two.
void refuseSiblingName(const std::vector<SnippetGroup>& groups, const SnippetGroup& group) {
    for (const auto& other : groups) {
        if (other.id != group.id && other.parentID == group.parentID &&
            CLIResolvers::sameName(other.name, group.name)) {
            throw CLIError(CLIErrorCode::conflict,
                           "A group named \"" + other.name + "\" already exists there.",
                           "Choose another name, or update the existing group.");
        }
    }
}

void refuseCycle(const std::vector<SnippetGroup>& groups, const SnippetGroup& group) {
    std::optional<Uuid> parent = group.parentID;
    std::set<Uuid> seen;
    while (parent && seen.insert(*parent).second) {
        if (*parent == group.id) {
            throw CLIError(CLIErrorCode::validation, "A group can't be put inside itself.",
                           "Choose a parent outside the group and its sub-groups.");
        }
        const auto it = std::find_if(groups.begin(), groups.end(),
                                     [&](const SnippetGroup& g) { return g.id == *parent; });
        parent = it == groups.end() ? std::nullopt : it->parentID;
    }
}

Page<GroupDTO> listGroups(const ListArgs& args, CLICall& call) {
    refuseListFilters(args, "group");
    auto& context = call.context();
    auto groups = SnippetStore(context).groups();
    if (args.query) {
        std::erase_if(groups, [&](const SnippetGroup& g) {
            return !CLIResolvers::nameContains(g.name, *args.query);
        });
    }
    sortByName(groups, args);
    const CLIRecordMapping mapping(context, call.settings());
    std::vector<GroupDTO> items;
    for (const auto& group : groups) {
        items.push_back(mapping.group(group));
    }
    return Page<GroupDTO>::slice(std::move(items), args.limit, args.offset);
}

GroupDTO getGroup(const GetArgs& args, CLICall& call) {
    auto& context = call.context();
    const auto group = CLIResolvers::group(context, args.ref, args.by);
    return CLIRecordMapping(context, call.settings()).group(group);
}

void applyGroupFields(const GroupWriteArgs& args, ModelContext& context, SnippetGroup& group) {
    if (args.iconSymbol && !args.iconSymbol->empty()) {
        group.iconSymbol = *args.iconSymbol;
    }
    if (args.colorRole) {
        group.colorRole = CLIResolvers::colorRole(args.colorRole);
    }
    if (args.parentRef) {
        // An empty parent moves the group to the top level.
        group.parentID = args.parentRef->empty()
                             ? std::nullopt
                             : std::optional(CLIResolvers::group(context, *args.parentRef).id);
    }
    if (args.sortIndex) {
        group.sortIndex = *args.sortIndex;
    }
}

GroupDTO createGroup(const GroupWriteArgs& args, CLICall& call) {
    if (args.ref) {
        throw CLIError(CLIErrorCode::usage, "A new group takes no ref.",
                       "Change an existing group with `marlune group update`.");
    }
    auto& context = call.context();
    SnippetStore store(context);
    const auto groups = store.groups();
    SnippetGroup group = SnippetGroup::make(call.now());
    group.name = CLIResolvers::requireName(args.name, "group");
    applyGroupFields(args, context, group);
    if (!args.sortIndex) {
        // New groups go after their siblings.
        for (const auto& other : groups) {
            if (other.parentID == group.parentID) {
                group.sortIndex = std::max(group.sortIndex, other.sortIndex + 1);
            }
        }
    }
    refuseSiblingName(groups, group);
    group = store.createGroup(std::move(group), call.now());
    return CLIRecordMapping(context, call.settings()).group(group);
}

GroupDTO updateGroup(const GroupWriteArgs& args, CLICall& call) {
    auto& context = call.context();
    CLIResolvers::requireRef(args.ref.value_or(""), "A group ref is required.");
    SnippetGroup group = CLIResolvers::group(context, *args.ref);
    if (args.name) {
        group.name = CLIResolvers::requireName(args.name, "group");
    }
    applyGroupFields(args, context, group);
    SnippetStore store(context);
    const auto groups = store.groups();
    refuseCycle(groups, group);
    refuseSiblingName(groups, group);
    store.updateGroup(group);
    return CLIRecordMapping(context, call.settings()).group(group);
}

// Groups have no Trash: deleting one deletes it and its sub-groups at once, and their
// snippets stay in the library without a group.
DeleteResultDTO deleteGroup(const RefArgs& args, CLICall& call) {
    auto& context = call.context();
    const auto group = CLIResolvers::group(context, args.ref, args.by);
    SnippetStore store(context);
    const auto groups = store.groups();
    std::vector<std::string> affected{group.id.string()};
    std::set<Uuid> doomed{group.id};
    for (bool grew = true; grew;) {
        grew = false;
        for (const auto& g : groups) {
            if (g.parentID && doomed.contains(*g.parentID) && doomed.insert(g.id).second) {
                affected.push_back(g.id.string());
                grew = true;
            }
        }
    }
    if (!args.dryRun) {
        store.deleteGroup(group.id);
    }
    return {static_cast<std::int64_t>(affected.size()), args.dryRun, std::move(affected)};
}

// --- tags -------------------------------------------------------------------------------

void refuseTagName(const std::vector<Tag>& tags, const Tag& tag) {
    for (const auto& other : tags) {
        if (other.id != tag.id && CLIResolvers::sameName(other.name, tag.name)) {
            throw CLIError(CLIErrorCode::conflict,
                           "A tag named \"" + other.name + "\" already exists.",
                           "Choose another name, or update the existing tag.");
        }
    }
}

Page<TagDTO> listTags(const ListArgs& args, CLICall& call) {
    refuseListFilters(args, "tag");
    auto& context = call.context();
    auto tags = SnippetStore(context).tags();
    if (args.query) {
        std::erase_if(
            tags, [&](const Tag& t) { return !CLIResolvers::nameContains(t.name, *args.query); });
    }
    sortByName(tags, args);
    const CLIRecordMapping mapping(context, call.settings());
    std::vector<TagDTO> items;
    for (const auto& tag : tags) {
        items.push_back(mapping.tag(tag));
    }
    return Page<TagDTO>::slice(std::move(items), args.limit, args.offset);
}

TagDTO getTag(const GetArgs& args, CLICall& call) {
    auto& context = call.context();
    const auto tag = CLIResolvers::tag(context, args.ref, args.by);
    return CLIRecordMapping(context, call.settings()).tag(tag);
}

TagDTO createTag(const TagWriteArgs& args, CLICall& call) {
    if (args.ref) {
        throw CLIError(CLIErrorCode::usage, "A new tag takes no ref.",
                       "Change an existing tag with `marlune tag update`.");
    }
    auto& context = call.context();
    SnippetStore store(context);
    Tag tag = Tag::make(call.now());
    tag.name = CLIResolvers::requireName(args.name, "tag");
    tag.colorRole = CLIResolvers::colorRole(args.colorRole);
    refuseTagName(store.tags(), tag);
    tag = store.createTag(std::move(tag), call.now());
    return CLIRecordMapping(context, call.settings()).tag(tag);
}

TagDTO updateTag(const TagWriteArgs& args, CLICall& call) {
    auto& context = call.context();
    CLIResolvers::requireRef(args.ref.value_or(""), "A tag ref is required.");
    Tag tag = CLIResolvers::tag(context, *args.ref);
    if (args.name) {
        tag.name = CLIResolvers::requireName(args.name, "tag");
    }
    if (args.colorRole) {
        tag.colorRole = CLIResolvers::colorRole(args.colorRole);
    }
    SnippetStore store(context);
    refuseTagName(store.tags(), tag);
    store.updateTag(tag);
    return CLIRecordMapping(context, call.settings()).tag(tag);
}

// Tags have no Trash either; snippets and clips only lose the tag.
DeleteResultDTO deleteTag(const RefArgs& args, CLICall& call) {
    auto& context = call.context();
    const auto tag = CLIResolvers::tag(context, args.ref, args.by);
    if (!args.dryRun) {
        SnippetStore(context).deleteTag(tag.id);
    }
    return {1, args.dryRun, {tag.id.string()}};
}

} // namespace

void registerLibraryCommands(CLIListener& listener) {
    namespace N = CLICommandName;
    listener.addTyped<ListArgs>(std::string(N::groupList), listGroups);
    listener.addTyped<GetArgs>(std::string(N::groupGet), getGroup);
    listener.addTyped<GroupWriteArgs>(std::string(N::groupCreate), createGroup);
    listener.addTyped<GroupWriteArgs>(std::string(N::groupUpdate), updateGroup);
    listener.addTyped<RefArgs>(std::string(N::groupDelete), deleteGroup);
    listener.addTyped<ListArgs>(std::string(N::tagList), listTags);
    listener.addTyped<GetArgs>(std::string(N::tagGet), getTag);
    listener.addTyped<TagWriteArgs>(std::string(N::tagCreate), createTag);
    listener.addTyped<TagWriteArgs>(std::string(N::tagUpdate), updateTag);
    listener.addTyped<RefArgs>(std::string(N::tagDelete), deleteTag);
}

} // namespace marlune
