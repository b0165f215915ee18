#include "MarluneCore/CaptureRuleStore.h"

namespace marlune {

namespace {

constexpr std::string_view ruleColumns = "id, bundleID, appName, isEnabled, createdAt";

CaptureRule readRule(const Statement& row) {
    CaptureRule rule;
    rule.id = Uuid::parse(row.textView(0)).value_or(Uuid());
    rule.bundleID = row.text(1);
    rule.appName = row.optionalText(2);
    rule.isEnabled = row.int64(3) != 0;
    rule.createdAt = fromStorage(row.int64(4));
    return rule;
}

} // namespace

std::vector<CaptureRule> CaptureRuleStore::list() {
    MainActor::assertIsolated();
    auto stmt = context_.db().prepare("SELECT " + std::string(ruleColumns) +
                                      " FROM CaptureRule ORDER BY createdAt, rowid");
    std::vector<CaptureRule> rules;
    while (stmt.step()) {
        rules.push_back(readRule(stmt));
    }
    return rules;
}

std::optional<CaptureRule> CaptureRuleStore::find(std::string_view bundleID) {
    // SQLite's NOCASE folds ASCII letters only, which is the comparison wanted here.
    auto stmt = context_.db().prepare("SELECT " + std::string(ruleColumns) +
                                      " FROM CaptureRule WHERE bundleID = ?1 COLLATE NOCASE "
                                      "ORDER BY createdAt, rowid LIMIT 1");
    stmt.bind(1, bundleID);
    if (!stmt.step()) {
        return std::nullopt;
    }
    return readRule(stmt);
}

CaptureRule CaptureRuleStore::add(std::string_view bundleID, std::optional<std::string> appName,
                                  Date now) {
    MainActor::assertIsolated();
    if (auto existing = find(bundleID)) {
        existing->isEnabled = true;
        if (!existing->appName && appName) {
            existing->appName = std::move(appName);
        }
        context_.db()
            .prepare("UPDATE CaptureRule SET isEnabled = 1, appName = ?2 WHERE id = ?1")
            .bind(1, existing->id.string())
            .bind(2, existing->appName)
            .run();
        return *existing;
    }
    CaptureRule rule = CaptureRule::make(now);
    rule.bundleID = std::string(bundleID);
    rule.appName = std::move(appName);
    context_.db()
        .prepare("INSERT INTO CaptureRule (id, bundleID, appName, isEnabled, createdAt) "
                 "VALUES (?1, ?2, ?3, 1, ?4)")
        .bind(1, rule.id.string())
        .bind(2, rule.bundleID)
        .bind(3, rule.appName)
        .bind(4, toStorage(rule.createdAt))
        .run();
    return rule;
}

bool CaptureRuleStore::setEnabled(const Uuid& id, bool enabled) {
    MainActor::assertIsolated();
    context_.db()
        .prepare("UPDATE CaptureRule SET isEnabled = ?2 WHERE id = ?1")
        .bind(1, id.string())
        .bind(2, enabled)
        .run();
    return context_.db().changes() > 0;
}

bool CaptureRuleStore::remove(const Uuid& id) {
    MainActor::assertIsolated();
    context_.db().prepare("DELETE FROM CaptureRule WHERE id = ?1").bind(1, id.string()).run();
    return context_.db().changes() > 0;
}

bool CaptureRuleStore::isExcluded(std::string_view bundleID) {
    MainActor::assertIsolated();
    if (bundleID.empty()) {
        return false;
    }
    auto& stmt = context_.db().cached("SELECT 1 FROM CaptureRule WHERE isEnabled = 1 AND "
                                      "bundleID = ?1 COLLATE NOCASE LIMIT 1");
    stmt.reset();
    stmt.bind(1, bundleID);
    const bool found = stmt.step();
    stmt.reset();
    return found;
}

} // namespace marlune
