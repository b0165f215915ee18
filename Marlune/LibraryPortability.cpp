#include "Marlune/LibraryPortability.h"

#include "ExpansionEngine/KeywordRules.h"
#include "Marlune/CLIRecordMapping.h"
#include "Marlune/ConfigRegistry.h"
#include "MarluneCLIProtocol/CLIDateFormat.h"
#include "MarluneCLIProtocol/CLIRecordCodec.h"
#include "MarluneCore/ContentLimits.h"
#include "MarluneCore/ProfileStore.h"
#include "MarluneCore/SnippetStore.h"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <unordered_map>
#include <unordered_set>

namespace marlune {

namespace {

using Error = LibraryPortability::Error;

// Records of the document with their ids and dates read, so that nothing can fail half-way
// through writing them.
struct GroupIn {
    Uuid id;
    const GroupDTO* dto;
    Date createdAt;
    std::optional<Uuid> parent;
};
struct TagIn {
    Uuid id;
    const TagDTO* dto;
    Date createdAt;
};
struct PinboardIn {
    Uuid id;
    const PinboardDTO* dto;
    Date createdAt;
};
struct SnippetIn {
    Uuid id;
    const SnippetDTO* dto;
    SnippetContentType contentType;
    Date createdAt;
    Date updatedAt;
    std::optional<Date> lastUsedAt;
    std::optional<Uuid> groupID;
    std::vector<Uuid> tagIDs;
};
struct Prepared {
    std::vector<GroupIn> groups;
    std::vector<TagIn> tags;
    std::vector<PinboardIn> pinboards;
    std::vector<SnippetIn> snippets;
    // Groups and tags that snippets name but the document doesn't list: id to name.
    std::map<Uuid, std::string> namedGroups;
    std::map<Uuid, std::string> namedTags;
};

Uuid idOf(const std::string& text) {
    if (auto id = Uuid::parse(text)) {
        return *id;
    }
    throw Error(Error::Kind::invalidDocument);
}

Date dateOf(const std::string& text) {
    if (auto date = CLIDateFormat::parse(text)) {
        return *date;
    }
    throw Error(Error::Kind::invalidDocument);
}

Prepared prepare(const DataDocumentDTO& document) {
    if (document.schemaVersion < 1 || document.schemaVersion > LibraryPortability::schemaVersion) {
        throw Error(Error::Kind::invalidDocument);
    }
    Prepared p;
    if (document.groups) {
        for (const auto& g : *document.groups) {
            p.groups.push_back({idOf(g.id), &g, dateOf(g.createdAt),
                                g.parent ? std::optional<Uuid>(idOf(g.parent->id)) : std::nullopt});
        }
    }
    if (document.tags) {
        for (const auto& t : *document.tags) {
            p.tags.push_back({idOf(t.id), &t, dateOf(t.createdAt)});
        }
    }
    if (document.pinboards) {
        for (const auto& b : *document.pinboards) {
            p.pinboards.push_back({idOf(b.id), &b, dateOf(b.createdAt)});
        }
    }
    if (document.snippets) {
        for (const auto& s : *document.snippets) {
            SnippetIn in{
                idOf(s.id),
                &s,
                snippetContentTypeFromRaw(s.contentType).value_or(SnippetContentType::plainText),
                dateOf(s.createdAt),
                dateOf(s.updatedAt),
                s.lastUsedAt ? std::optional<Date>(dateOf(*s.lastUsedAt)) : std::nullopt,
                std::nullopt,
                {}};
            if (s.group) {
                in.groupID = idOf(s.group->id);
                p.namedGroups.emplace(*in.groupID, s.group->name);
            }
            for (const auto& tag : s.tags) {
                in.tagIDs.push_back(idOf(tag.id));
                p.namedTags.emplace(in.tagIDs.back(), tag.name);
            }
            p.snippets.push_back(std::move(in));
        }
    }
    if (document.profile) {
        for (const auto& v : *document.profile) {
            if (v.key.empty()) {
                throw Error(Error::Kind::invalidDocument);
            }
        }
    }
    return p;
}

std::unordered_set<std::string> idsIn(Database& db, const char* sql) {
    std::unordered_set<std::string> ids;
    auto stmt = db.prepare(sql);
    while (stmt.step()) {
        ids.insert(stmt.text(0));
    }
    return ids;
}

std::optional<std::int64_t> storage(const std::optional<Date>& date) {
    if (date) {
        return toStorage(*date);
    }
    return std::nullopt;
}

// A document's setting as the registry would store it, or nothing when the key isn't one a
// document may set or the value isn't acceptable for it.
std::optional<CLIJSONValue> acceptedSetting(const ConfigSetting& setting,
                                            const CLIJSONValue& value) {
    if (setting.internal) {
        return std::nullopt;
    }
    bool typed = false;
    switch (setting.type) {
    case ConfigType::boolean:
        typed = std::holds_alternative<bool>(value.value);
        break;
    case ConfigType::integer:
        typed = std::holds_alternative<std::int64_t>(value.value);
        break;
    case ConfigType::string:
        typed = std::holds_alternative<std::string>(value.value);
        break;
    case ConfigType::dictionary:
        typed =
            std::holds_alternative<std::string>(value.value) &&
            nlohmann::json::parse(std::get<std::string>(value.value), nullptr, false).is_object();
        break;
    }
    if (!typed || (setting.check && setting.check(value))) {
        return std::nullopt;
    }
    return value;
}

// Thrown out of a dry run's transaction so that it rolls back, carrying what it found.
struct DryRunFinished {
    LibraryPortability::ImportResult result;
};

} // namespace

LibraryPortability::Error::Error(Kind kind)
    : std::runtime_error(kind == Kind::invalidDocument
                             ? "That file isn't a valid Marlune export."
                             : "Replacing needs a file with at least one snippet — otherwise "
                               "every snippet would move to the Trash."),
      kind_(kind) {}

LibraryPortability::Parts LibraryPortability::Parts::of(Scope scope) {
    if (scope == Scope::snippets) {
        return {true, false, false, false, false, false};
    }
    return {true, true, true, true, true, true};
}

std::string LibraryPortability::ImportResult::keywordClashMessage(const std::string& keyword) {
    return "The keyword " + keyword +
           " would belong to two snippets — only one of them expands. Rename one after "
           "importing.";
}

std::optional<std::string> LibraryPortability::ImportResult::keywordClashMessage() const {
    if (duplicateKeywords.empty()) {
        return std::nullopt;
    }
    if (duplicateKeywords.size() == 1) {
        return keywordClashMessage(duplicateKeywords.front());
    }
    std::string joined;
    for (const auto& keyword : duplicateKeywords) {
        joined += (joined.empty() ? "" : ", ") + keyword;
    }
    return std::to_string(duplicateKeywords.size()) + " keywords would belong to two snippets (" +
           joined + ") — only one of each pair expands. Rename one after importing.";
}

DataDocumentDTO LibraryPortability::exportDocument(Parts parts, Date now) {
    MainActor::assertIsolated();
    DataDocumentDTO document;
    document.schemaVersion = schemaVersion;
    document.exportedAt = CLIDateFormat::format(now);
    const CLIRecordMapping mapping(context_, settings_);
    SnippetStore store(context_);
    if (parts.snippets) {
        auto snippets = store.list(SnippetSortMode::lastEdited);
        std::sort(snippets.begin(), snippets.end(), [](const Snippet& a, const Snippet& b) {
            return a.createdAt != b.createdAt ? a.createdAt < b.createdAt : a.id < b.id;
        });
        auto& out = document.snippets.emplace();
        out.reserve(snippets.size());
        for (const auto& snippet : snippets) {
            out.push_back(mapping.snippet(snippet));
        }
    }
    if (parts.groups) {
        auto& out = document.groups.emplace();
        for (const auto& group : store.groups()) {
            out.push_back(mapping.group(group));
        }
        std::sort(out.begin(), out.end(), [](const GroupDTO& a, const GroupDTO& b) {
            return std::tie(a.sortIndex, a.name, a.id) < std::tie(b.sortIndex, b.name, b.id);
        });
    }
    if (parts.tags) {
        auto& out = document.tags.emplace();
        for (const auto& tag : store.tags()) {
            auto dto = mapping.tag(tag);
            // The document carries no clips, so it counts none.
            dto.clipCount = 0;
            out.push_back(std::move(dto));
        }
        std::sort(out.begin(), out.end(), [](const TagDTO& a, const TagDTO& b) {
            return std::tie(a.name, a.id) < std::tie(b.name, b.id);
        });
    }
    if (parts.pinboards) {
        auto& out = document.pinboards.emplace();
        // Board sections are the Board's own, not collections of clips to carry elsewhere.
        auto stmt = context_.db().prepare(
            "SELECT id, name, iconSymbol, colorRole, sortIndex, createdAt FROM Pinboard "
            "WHERE coalesce(isBoard, 0) = 0 ORDER BY sortIndex, name, id");
        while (stmt.step()) {
            PinboardDTO dto;
            dto.id = stmt.text(0);
            dto.name = stmt.text(1);
            dto.iconSymbol = stmt.text(2);
            dto.colorRole = stmt.optionalText(3);
            dto.sortIndex = stmt.int64(4);
            dto.createdAt = CLIDateFormat::format(fromStorage(stmt.int64(5)));
            out.push_back(std::move(dto));
        }
    }
    if (parts.profile) {
        auto& out = document.profile.emplace();
        for (const auto& [key, value] : ProfileStore(context_).profile().values) {
            out.push_back({key, value});
        }
    }
    if (parts.settings) {
        auto& out = document.settings.emplace();
        for (const auto& setting : ConfigRegistry::settings()) {
            if (!setting.internal) {
                out.emplace(std::string(setting.key), ConfigRegistry::read(setting, settings_));
            }
        }
    }
    return document;
}

std::string LibraryPortability::encode(const DataDocumentDTO& document) {
    // The map-backed JSON sorts its keys.
    return encodeWire<CLIJSONInput>(document).dump(2, ' ', false,
                                                   CLIJSONInput::error_handler_t::replace) +
           "\n";
}

DataDocumentDTO LibraryPortability::decode(std::string_view text) {
    DataDocumentDTO document;
    try {
        document = decodeWireText<DataDocumentDTO>(text);
    } catch (const CLIRecordError&) {
        throw Error(Error::Kind::invalidDocument);
    }
    prepare(document);
    return document;
}

LibraryPortability::ImportResult LibraryPortability::apply(const DataDocumentDTO& document,
                                                           ApplyOptions options, Date now) {
    MainActor::assertIsolated();
    const Prepared prepared = prepare(document);
    if (options.replace && (!document.snippets || document.snippets->empty())) {
        throw Error(Error::Kind::replaceNeedsSnippets);
    }

    ImportResult result;
    result.dryRun = options.dryRun;
    result.snippetsInDocument = static_cast<std::int64_t>(prepared.snippets.size());

    // Settings are worked out first and written only after the library has taken the rest.
    std::vector<std::pair<const ConfigSetting*, CLIJSONValue>> settingsToWrite;
    if (document.settings) {
        for (const auto& [key, value] : *document.settings) {
            const ConfigSetting* setting = ConfigRegistry::find(key);
            if (setting == nullptr) {
                continue;
            }
            auto accepted = acceptedSetting(*setting, value);
            if (!accepted) {
                continue;
            }
            if (!options.applySettings) {
                result.settingsNotApplied.push_back(key);
                continue;
            }
            result.settingsApplied.push_back(key);
            const bool changed = !(ConfigRegistry::read(*setting, settings_) == *accepted);
            if (changed && setting->requiresRelaunch) {
                result.settingsRequiringRelaunch.push_back(key);
            }
            if (changed && key == "pasteShortcutOverrides") {
                result.changedShortcut = true;
            }
            if (changed) {
                settingsToWrite.emplace_back(setting, std::move(*accepted));
            }
        }
    }
    const std::string prefix = CLIRecordMapping::keywordPrefix(settings_);

    const auto run = [&] {
        Database& db = context_.db();
        const auto& crypto = context_.crypto();
        std::unordered_set<std::string> groupIDs = idsIn(db, "SELECT id FROM SnippetGroup");
        std::unordered_set<std::string> tagIDs = idsIn(db, "SELECT id FROM Tag");

        // Groups: every one first, then their parents, which may come later in the list.
        auto upsertGroup = db.prepare(
            "INSERT INTO SnippetGroup (id, name, iconSymbol, colorRole, sortIndex, createdAt) "
            "VALUES (?1, ?2, ?3, ?4, ?5, ?6) ON CONFLICT(id) DO UPDATE SET name = excluded.name, "
            "iconSymbol = excluded.iconSymbol, colorRole = excluded.colorRole, "
            "sortIndex = excluded.sortIndex");
        for (const auto& g : prepared.groups) {
            upsertGroup.bind(1, g.id.string())
                .bind(2, g.dto->name)
                .bind(3, g.dto->iconSymbol.empty() ? std::string("folder") : g.dto->iconSymbol)
                .bind(4, g.dto->colorRole)
                .bind(5, g.dto->sortIndex)
                .bind(6, toStorage(g.createdAt))
                .run();
            groupIDs.insert(g.id.string());
        }
        std::map<Uuid, std::optional<Uuid>> parents;
        for (const auto& g : prepared.groups) {
            parents[g.id] = g.parent;
        }
        auto setParent = db.prepare("UPDATE SnippetGroup SET parent_id = ?2 WHERE id = ?1");
        for (const auto& g : prepared.groups) {
            std::optional<Uuid> parent = g.parent;
            // A parent that is missing, or a chain that comes back to the group, leaves it at
            // the top level.
            std::set<Uuid> seen = {g.id};
            for (auto step = parent; step;) {
                if (!seen.insert(*step).second || !groupIDs.contains(step->string())) {
                    parent.reset();
                    break;
                }
                const auto up = parents.find(*step);
                step = up == parents.end() ? std::nullopt : up->second;
            }
            setParent.bind(1, g.id.string())
                .bind(2, parent ? std::optional<std::string>(parent->string()) : std::nullopt)
                .run();
        }
        result.groups = static_cast<std::int64_t>(prepared.groups.size());

        auto upsertTag = db.prepare(
            "INSERT INTO Tag (id, name, colorRole, createdAt) VALUES (?1, ?2, ?3, ?4) "
            "ON CONFLICT(id) DO UPDATE SET name = excluded.name, colorRole = excluded.colorRole");
        for (const auto& t : prepared.tags) {
            upsertTag.bind(1, t.id.string())
                .bind(2, t.dto->name)
                .bind(3, t.dto->colorRole)
                .bind(4, toStorage(t.createdAt))
                .run();
            tagIDs.insert(t.id.string());
        }
        result.tags = static_cast<std::int64_t>(prepared.tags.size());

        auto upsertPinboard = db.prepare(
            "INSERT INTO Pinboard (id, name, iconSymbol, colorRole, sortIndex, createdAt) "
            "VALUES (?1, ?2, ?3, ?4, ?5, ?6) ON CONFLICT(id) DO UPDATE SET name = excluded.name, "
            "iconSymbol = excluded.iconSymbol, colorRole = excluded.colorRole, "
            "sortIndex = excluded.sortIndex");
        for (const auto& b : prepared.pinboards) {
            upsertPinboard.bind(1, b.id.string())
                .bind(2, b.dto->name)
                .bind(3, b.dto->iconSymbol.empty() ? std::string("pin") : b.dto->iconSymbol)
                .bind(4, b.dto->colorRole)
                .bind(5, b.dto->sortIndex)
                .bind(6, toStorage(b.createdAt))
                .run();
        }
        result.pinboards = static_cast<std::int64_t>(prepared.pinboards.size());

        // Groups and tags a snippet names without the document listing them are made, so that
        // a snippets-only export keeps its snippets' groups and tags.
        for (const auto& [id, name] : prepared.namedGroups) {
            if (groupIDs.insert(id.string()).second) {
                upsertGroup.bind(1, id.string())
                    .bind(2, name)
                    .bind(3, "folder")
                    .bindNull(4)
                    .bind(5, std::int64_t{0})
                    .bind(6, toStorage(now))
                    .run();
            }
        }
        for (const auto& [id, name] : prepared.namedTags) {
            if (tagIDs.insert(id.string()).second) {
                upsertTag.bind(1, id.string())
                    .bind(2, name)
                    .bindNull(3)
                    .bind(4, toStorage(now))
                    .run();
            }
        }

        // Snippets, matched by id; a match in the Trash comes back out.
        std::unordered_map<std::string, bool> existing; // id -> in the Trash
        {
            auto stmt = db.prepare("SELECT id, deletedAt IS NOT NULL FROM Snippet");
            while (stmt.step()) {
                existing.emplace(stmt.text(0), stmt.int64(1) != 0);
            }
        }
        auto insert = db.prepare(
            "INSERT INTO Snippet (id, title, keyword, content, contentTypeRaw, isFavorite, "
            "createdAt, updatedAt, usageCount, lastUsedAt, group_id) "
            "VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11)");
        // Uses made here since the document was written are kept: the larger count, the later
        // last use and the earlier creation win.
        auto update = db.prepare(
            "UPDATE Snippet SET title = ?2, keyword = ?3, content = ?4, contentTypeRaw = ?5, "
            "isFavorite = ?6, createdAt = min(createdAt, ?7), updatedAt = ?8, "
            "usageCount = max(usageCount, ?9), "
            "lastUsedAt = CASE WHEN lastUsedAt IS NULL OR ?10 > lastUsedAt THEN ?10 "
            "ELSE lastUsedAt END, group_id = ?11, deletedAt = NULL WHERE id = ?1");
        auto clearTags = db.prepare("DELETE FROM SnippetTag WHERE snippet_id = ?1");
        auto addTag =
            db.prepare("INSERT OR IGNORE INTO SnippetTag (snippet_id, tag_id) VALUES (?1, ?2)");
        std::unordered_set<std::string> documentIDs;
        // A snippet too large to keep is left out, not the whole document; with `replace` the
        // library's own copy of it stays where it is.
        std::unordered_set<std::string> skippedIDs;
        for (const auto& s : prepared.snippets) {
            const std::string id = s.id.string();
            if (const auto refusal = ContentLimits::refusal("snippet body", s.dto->content.size(),
                                                            ContentLimits::snippetBodyBytes)) {
                result.skippedSnippets.push_back("The snippet \"" + s.dto->title +
                                                 "\" was skipped. " + *refusal);
                skippedIDs.insert(id);
                continue;
            }
            const auto found = existing.find(id);
            const bool isNew = found == existing.end();
            if (!documentIDs.insert(id).second) {
                // The same id twice: the later record wins, counted once.
            } else if (isNew) {
                ++result.createdSnippets;
            } else if (found->second) {
                ++result.restoredSnippets;
            }
            std::string keyword = s.dto->keyword;
            const auto refusal = keyword == prefix
                                     ? std::optional(KeywordRules::refusalForPrefixOnly(prefix))
                                     : KeywordRules::check(keyword, prefix);
            if (refusal) {
                result.refusedKeywords.push_back("The keyword \"" + keyword + "\" of \"" +
                                                 s.dto->title +
                                                 "\" was left out: " + refusal->message);
                keyword.clear();
            }
            auto& stmt = isNew ? insert : update;
            stmt.bind(1, id)
                .bind(2, s.dto->title)
                .bind(3, keyword)
                .bind(4, crypto.sealText(s.dto->content))
                .bind(5, rawValue(s.contentType))
                .bind(6, s.dto->isFavorite)
                .bind(7, toStorage(s.createdAt))
                .bind(8, toStorage(s.updatedAt))
                .bind(9, s.dto->usageCount)
                .bind(10, storage(s.lastUsedAt))
                .bind(11,
                      s.groupID ? std::optional<std::string>(s.groupID->string()) : std::nullopt)
                .run();
            existing[id] = false;
            clearTags.bind(1, id).run();
            for (const auto& tag : s.tagIDs) {
                addTag.bind(1, id).bind(2, tag.string()).run();
            }
        }
        result.snippets = static_cast<std::int64_t>(documentIDs.size());

        if (options.replace) {
            auto trash = db.prepare("UPDATE Snippet SET deletedAt = ?2 WHERE id = ?1");
            for (const auto& [id, trashed] : existing) {
                if (!trashed && !documentIDs.contains(id) && !skippedIDs.contains(id)) {
                    trash.bind(1, id).bind(2, toStorage(now)).run();
                    ++result.trashedSnippets;
                }
            }
        }

        // Clashes are reported, never resolved: which snippet should lose its keyword is the
        // user's call.
        std::set<std::string> documentKeywords;
        for (const auto& s : prepared.snippets) {
            if (!s.dto->keyword.empty() && !skippedIDs.contains(s.id.string())) {
                documentKeywords.insert(s.dto->keyword);
            }
        }
        auto clashes =
            db.prepare("SELECT keyword FROM Snippet WHERE deletedAt IS NULL AND keyword <> '' "
                       "GROUP BY keyword HAVING count(*) > 1 ORDER BY keyword");
        while (clashes.step()) {
            if (documentKeywords.contains(clashes.text(0))) {
                result.duplicateKeywords.push_back(prefix + clashes.text(0));
            }
        }

        if (document.profile) {
            ProfileStore profiles(context_);
            auto values = profiles.profile().values;
            for (const auto& variable : *document.profile) {
                values[variable.key] = variable.value;
            }
            profiles.setValues(values);
            result.profileVars = static_cast<std::int64_t>(document.profile->size());
        }
        if (options.dryRun) {
            throw DryRunFinished{result};
        }
    };

    try {
        context_.performUndoable("Import Library", run);
    } catch (DryRunFinished& finished) {
        return std::move(finished.result);
    }
    for (const auto& [setting, value] : settingsToWrite) {
        ConfigRegistry::write(*setting, value, settings_);
    }
    return result;
}

DataImportResultDTO LibraryPortability::resultDTO(const ImportResult& result) {
    DataImportResultDTO dto;
    dto.snippets = result.snippets;
    dto.groups = result.groups;
    dto.tags = result.tags;
    dto.pinboards = result.pinboards;
    dto.profileVars = result.profileVars;
    dto.settingsApplied = static_cast<std::int64_t>(result.settingsApplied.size());
    dto.settingsRequiringRelaunch = result.settingsRequiringRelaunch;
    dto.dryRun = result.dryRun;
    dto.createdSnippets = result.createdSnippets;
    dto.restoredSnippets = result.restoredSnippets;
    dto.trashedSnippets = result.trashedSnippets;
    dto.appliedSettingKeys = result.settingsApplied;
    dto.unappliedSettingKeys = result.settingsNotApplied;
    dto.skippedSnippets = static_cast<std::int64_t>(result.skippedSnippets.size());
    return dto;
}

} // namespace marlune
