#include "ClipboardKit/SecretDetector.h"

#include <fstream>
#include <gtest/gtest.h>
#include <iomanip>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

// Two corpora written by data/make_corpora.py: secret-shaped strings built from the prefix
// table and the other tests, and everyday clipboard texts.

namespace marlune {
namespace {

std::vector<nlohmann::json> readLines(const std::string& name) {
    std::ifstream in(std::string(CLIPBOARDKIT_TEST_DATA) + "/" + name);
    EXPECT_TRUE(in) << "cannot open " << name;
    std::vector<nlohmann::json> rows;
    for (std::string line; std::getline(in, line);) {
        if (!line.empty()) {
            rows.push_back(nlohmann::json::parse(line));
        }
    }
    return rows;
}

std::optional<SecretKind> kindNamed(const std::string& raw) {
    for (SecretKind kind : allSecretKinds) {
        if (secretKindRawValue(kind) == raw) {
            return kind;
        }
    }
    return std::nullopt;
}

TEST(ClipboardCorpusTest, EverySecretShapedStringIsFlaggedWithItsKind) {
    const auto rows = readLines("likely-secrets.jsonl");
    ASSERT_GE(rows.size(), 200U);
    std::map<std::string, int> perRule;
    std::size_t flagged = 0;
    for (const auto& row : rows) {
        const std::string text = row.at("text");
        const auto expected = kindNamed(row.at("kind"));
        const auto got = SecretDetector::classify(text, SecretPolicy{});
        ++perRule[row.at("rule")];
        if (got == expected) {
            ++flagged;
        } else {
            ADD_FAILURE() << "rule " << row.at("rule") << " not flagged as " << row.at("kind")
                          << ": " << text.substr(0, 120);
        }
    }
    for (const auto& rule : SecretDetector::prefixRules) {
        EXPECT_GE(perRule[std::string(rule.prefix)], 2) << rule.prefix << " has no edge cases";
    }
    const double rate = 100.0 * static_cast<double>(flagged) / static_cast<double>(rows.size());
    std::cout << "[ corpus   ] secret-shaped strings flagged: " << flagged << "/" << rows.size()
              << " (" << std::fixed << std::setprecision(2) << rate << "%)\n";
    ::testing::Test::RecordProperty("secretDetectionRate", std::to_string(rate));
}

TEST(ClipboardCorpusTest, AtMostOnePercentOfOrdinaryClipsAreFlagged) {
    const auto rows = readLines("ordinary-clips.jsonl");
    ASSERT_GE(rows.size(), 1000U);
    std::size_t flagged = 0;
    for (const auto& row : rows) {
        const std::string text = row.at("text");
        if (const auto kind = SecretDetector::classify(text, SecretPolicy{})) {
            ++flagged;
            std::cout << "[ corpus   ] flagged as " << secretKindRawValue(*kind) << " ("
                      << row.at("category").get<std::string>() << "): " << text.substr(0, 100)
                      << "\n";
        }
    }
    const double rate = 100.0 * static_cast<double>(flagged) / static_cast<double>(rows.size());
    std::cout << "[ corpus   ] ordinary clips flagged: " << flagged << "/" << rows.size() << " ("
              << std::fixed << std::setprecision(2) << rate << "%)\n";
    ::testing::Test::RecordProperty("falsePositiveRate", std::to_string(rate));
    EXPECT_LE(rate, 1.0);
}

} // namespace
} // namespace marlune
