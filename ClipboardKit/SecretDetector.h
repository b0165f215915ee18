#pragma once

#include "ClipboardKit/SecretKind.h"
#include "ClipboardKit/SecretPolicy.h"

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

namespace marlune {

// Decides whether a copied text looks like a credential, a card number or a one-time code,
// so that the history never stores it. It sees bytes (UTF-8 or not) and never allocates.
//
// A prefix rule matches where its prefix starts a word (the byte before it, if any, is not
// an ASCII letter, digit or "_") and the body after the prefix is the whole run of the
// rule's alphabet, ending at a word boundary (the byte after it, if any, is not a letter,
// digit or "_"). So "AKIA" with 17 upper-case characters, or with 16 followed by "x", is not
// an access key id: a real one is exactly 20 characters and stands alone, while a longer
// upper-case identifier is ordinary text.
struct SecretDetector {
    enum class BodyAlphabet {
        alphanumeric,           // [A-Za-z0-9]
        alphanumericUnderscore, // [A-Za-z0-9_]
        base64URL,              // [A-Za-z0-9_-]
        alphanumericDash,       // [A-Za-z0-9-]
        upperDigit,             // [A-Z0-9]
        lowerHex,               // [0-9a-f]
    };

    struct PrefixRule {
        std::string_view prefix;
        SecretKind kind;
        BodyAlphabet body;
        int minBody;
        int maxBody;
        bool needsLongRun;
    };

    // The public shapes of well-known services' credentials: prefixes and lengths only. The
    // order is the tie-break when one text matches several rules. "sk-" is short and common,
    // so its body must also hold a long run (see `longRunMinimum`).
    static constexpr std::array<PrefixRule, 24> prefixRules{{
        {"AKIA", SecretKind::apiKey, BodyAlphabet::upperDigit, 16, 16, false},
        {"ASIA", SecretKind::apiKey, BodyAlphabet::upperDigit, 16, 16, false},
        {"ghp_", SecretKind::token, BodyAlphabet::alphanumeric, 36, 255, false},
        {"gho_", SecretKind::token, BodyAlphabet::alphanumeric, 36, 255, false},
        {"ghu_", SecretKind::token, BodyAlphabet::alphanumeric, 36, 255, false},
        {"ghs_", SecretKind::token, BodyAlphabet::alphanumeric, 36, 255, false},
        {"ghr_", SecretKind::token, BodyAlphabet::alphanumeric, 36, 255, false},
        {"github_pat_", SecretKind::token, BodyAlphabet::alphanumericUnderscore, 50, 255, false},
        {"glpat-", SecretKind::token, BodyAlphabet::base64URL, 20, 255, false},
        {"xoxb-", SecretKind::token, BodyAlphabet::alphanumericDash, 20, 255, false},
        {"xoxa-", SecretKind::token, BodyAlphabet::alphanumericDash, 20, 255, false},
        {"xoxp-", SecretKind::token, BodyAlphabet::alphanumericDash, 20, 255, false},
        {"xoxr-", SecretKind::token, BodyAlphabet::alphanumericDash, 20, 255, false},
        {"xoxs-", SecretKind::token, BodyAlphabet::alphanumericDash, 20, 255, false},
        {"sk_live_", SecretKind::apiKey, BodyAlphabet::alphanumeric, 20, 255, false},
        {"rk_live_", SecretKind::apiKey, BodyAlphabet::alphanumeric, 20, 255, false},
        {"sk_test_", SecretKind::apiKey, BodyAlphabet::alphanumeric, 20, 255, false},
        {"rk_test_", SecretKind::apiKey, BodyAlphabet::alphanumeric, 20, 255, false},
        {"whsec_", SecretKind::apiKey, BodyAlphabet::alphanumeric, 32, 255, false},
        {"sk-", SecretKind::apiKey, BodyAlphabet::base64URL, 32, 512, true},
        {"AIza", SecretKind::apiKey, BodyAlphabet::base64URL, 35, 35, false},
        {"SK", SecretKind::apiKey, BodyAlphabet::lowerHex, 32, 32, false},
        {"npm_", SecretKind::token, BodyAlphabet::alphanumeric, 36, 36, false},
        {"pypi-", SecretKind::token, BodyAlphabet::base64URL, 50, 2048, false},
    }};

    // A "long run" is more than 38 characters of [A-Za-z0-9+/=]: a secret access key is 40
    // base-64 characters. For "sk-" the run must lie inside the body.
    static constexpr std::size_t longRunMinimum = 39;

    // The kind the text looks like, limited to the kinds the policy asks to skip. The tests
    // run in this order and the first that fires gives the kind: private key, secret access
    // key assignment (`apiKey`), authorisation header value (`token`), the prefix rules in
    // table order, card number, one-time code.
    static std::optional<SecretKind> classify(std::string_view text, SecretPolicy policy);

    // The index in `prefixRules` of the first rule, in table order, that the text matches.
    static std::optional<std::size_t> firstMatchingPrefixRule(std::string_view text);

    static bool inAlphabet(BodyAlphabet alphabet, unsigned char byte);
    static bool hasLongRun(std::string_view text);
    // Luhn check over a string of ASCII digits.
    static bool luhnValid(std::string_view digits);
};

} // namespace marlune
