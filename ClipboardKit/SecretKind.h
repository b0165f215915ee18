#pragma once

#include <array>
#include <string_view>

namespace marlune {

enum class SecretKind { apiKey, token, privateKey, cardNumber, oneTimeCode };

inline constexpr std::array<SecretKind, 5> allSecretKinds{
    SecretKind::apiKey, SecretKind::token, SecretKind::privateKey, SecretKind::cardNumber,
    SecretKind::oneTimeCode};

// The words the user reads ("Not imported: the clipboard looks like API key.").
constexpr std::string_view secretKindLabel(SecretKind kind) {
    switch (kind) {
    case SecretKind::apiKey:
        return "API key";
    case SecretKind::token:
        return "access token";
    case SecretKind::privateKey:
        return "private key";
    case SecretKind::cardNumber:
        return "card number";
    case SecretKind::oneTimeCode:
        return "one-time code";
    }
    return "API key";
}

// The name written to the log when a secret is skipped; it names the kind, never the content.
constexpr std::string_view secretKindRawValue(SecretKind kind) {
    switch (kind) {
    case SecretKind::apiKey:
        return "apiKey";
    case SecretKind::token:
        return "token";
    case SecretKind::privateKey:
        return "privateKey";
    case SecretKind::cardNumber:
        return "cardNumber";
    case SecretKind::oneTimeCode:
        return "oneTimeCode";
    }
    return "apiKey";
}

} // namespace marlune
