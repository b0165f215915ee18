#include "MarluneCLIProtocol/CLIRequestGate.h"

#include <gtest/gtest.h>
#include <string>

namespace marlune {
namespace {

const std::string token(64, 'a');

std::string frame(std::string_view payload) {
    const auto h = CLIWire::encodeHeader(static_cast<std::uint32_t>(payload.size()));
    return std::string(h.begin(), h.end()) + std::string(payload);
}

CLIRequestGate::Outcome admitFrame(std::string_view bytes) {
    return CLIRequestGate::admitFrame(
        std::span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()), token);
}

std::string errorMessage(const CLIRequestGate::Outcome& outcome) {
    const auto* response = std::get_if<CLIResponse>(&outcome);
    if (response == nullptr) {
        return "(admitted)";
    }
    EXPECT_FALSE(response->ok);
    EXPECT_FALSE(response->resultJSON);
    EXPECT_TRUE(response->warnings.empty());
    return response->error ? response->error->code + " " + response->error->message : "(none)";
}

// "e30=" is "{}".
TEST(CLIRequestGate, EachBadFrameGetsTheResponseTheServerSends) {
    const std::string good =
        R"({"v":1,"token":")" + token + R"(","command":"ping","argsJSON":"e30="})";
    struct Case {
        const char* name;
        std::string frameBytes;
        std::string expected;
    };
    const std::string malformed = "E_USAGE Malformed request.";
    const Case cases[] = {
        {"three-byte header", std::string("\0\0\0", 3), malformed},
        {"header over the limit", std::string("\x01\x00\x00\x01", 4) + good, malformed},
        {"payload shorter than announced", frame(good).substr(0, 20), malformed},
        {"zero-length payload", frame(""), malformed},
        {"not JSON", frame("hello"), malformed},
        {"invalid UTF-8 in a string",
         frame("{\"v\":1,\"token\":\"\xff\",\"command\":\"p\",\"argsJSON\":\"\"}"), malformed},
        {"JSON array", frame("[1,2]"), malformed},
        {"JSON scalar", frame("1"), malformed},
        {"missing token", frame(R"({"v":1,"command":"ping","argsJSON":"e30="})"), malformed},
        {"missing argsJSON", frame(R"({"v":1,"token":"x","command":"ping"})"), malformed},
        {"v as a string", frame(R"({"v":"1","token":"x","command":"ping","argsJSON":""})"),
         malformed},
        {"v fractional", frame(R"({"v":1.5,"token":"x","command":"ping","argsJSON":""})"),
         malformed},
        {"v beyond 64 bits",
         frame(R"({"v":18446744073709551615,"token":"x","command":"p","argsJSON":""})"), malformed},
        {"argsJSON not Base64", frame(R"({"v":1,"token":"x","command":"p","argsJSON":"e30"})"),
         malformed},
        {"argsJSON with a stray character",
         frame(R"({"v":1,"token":"x","command":"p","argsJSON":"e3!="})"), malformed},
        {"clientPID beyond 32 bits",
         frame(R"({"v":1,"token":"x","command":"p","argsJSON":"","clientPID":4294967296})"),
         malformed},
        {"trailing garbage", frame(good + "x"), malformed},
        {"nested too deep", frame(std::string(600, '[') + std::string(600, ']')), malformed},
        {"version 0", frame(R"({"v":0,"token":"x","command":"p","argsJSON":""})"),
         "E_USAGE Protocol version mismatch (app 1, client 0). Reinstall the CLI."},
        {"version 2, checked before the token",
         frame(R"({"v":2,"token":"x","command":"p","argsJSON":""})"),
         "E_USAGE Protocol version mismatch (app 1, client 2). Reinstall the CLI."},
        {"negative version", frame(R"({"v":-1,"token":"x","command":"p","argsJSON":""})"),
         "E_USAGE Protocol version mismatch (app 1, client -1). Reinstall the CLI."},
        {"token one byte short",
         frame(R"({"v":1,"token":")" + token.substr(1) + R"(","command":"p","argsJSON":""})"),
         "E_UNAUTHORIZED Bad token."},
        {"token differing in its last byte",
         frame(R"({"v":1,"token":")" + token.substr(1) + R"(b","command":"p","argsJSON":""})"),
         "E_UNAUTHORIZED Bad token."},
        {"empty token", frame(R"({"v":1,"token":"","command":"p","argsJSON":""})"),
         "E_UNAUTHORIZED Bad token."},
        {"good", frame(good), "(admitted)"},
        {"unknown keys are ignored",
         frame(R"({"extra":[{"x":null}],"v":1,"token":")" + token +
               R"(","command":"ping","argsJSON":"e30=","id":null})"),
         "(admitted)"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(errorMessage(admitFrame(c.frameBytes)), c.expected) << c.name;
    }
}

TEST(CLIRequestGate, PayloadOfExactlyTheLimitIsAdmitted) {
    std::string payload =
        R"({"v":1,"token":")" + token + R"(","command":"ping","argsJSON":"e30="})";
    payload.resize(CLIWire::maxPayloadBytes, ' '); // JSON allows trailing white space
    const auto outcome = admitFrame(frame(payload));
    ASSERT_TRUE(std::holds_alternative<CLIRequest>(outcome));
    EXPECT_EQ(std::get<CLIRequest>(outcome).argsJSON, "{}");
}

TEST(CLIRequestGate, AnyReadFailureIsAMalformedRequest) {
    for (const char* message :
         {"peer closed", "read failed", "Short frame header.", "Frame exceeds 16777216 bytes."}) {
        EXPECT_EQ(errorMessage(CLIRequestGate::admitRead(CLIWireError{message}, token)),
                  "E_USAGE Malformed request.");
    }
}

TEST(CLIRequestGate, RequestRoundTripsWithOptionalFieldsAndBinaryArguments) {
    CLIRequest request;
    request.token = token;
    request.command = "snippet.create";
    request.argsJSON = std::string("{\"title\":\"a\xc3\xa9\"}\0\xff", 17);
    request.id = "r-1";
    request.clientPID = -2147483647 - 1;
    request.clientBundleID = "org.example.Script";
    const auto encoded = request.encode();
    EXPECT_EQ(CLIRequest::decode(encoded), request);

    CLIRequest bare;
    bare.token = "t";
    bare.command = "ping";
    bare.argsJSON = "{}";
    EXPECT_EQ(bare.encode(), R"({"v":1,"token":"t","command":"ping","argsJSON":"e30="})");
}

TEST(CLIRequestGate, ServerSideRefusalsCarryTheirWords) {
    EXPECT_EQ(CLIRequestGate::unknownCommand("Ping").error->message, "Unknown command 'Ping'.");
    EXPECT_EQ(CLIRequestGate::rejectedPeer().error->code, "E_UNAUTHORIZED");
    EXPECT_EQ(CLIRequestGate::rejectedPeer().error->message, "Rejected peer.");
    EXPECT_EQ(
        CLIRequestGate::noResponseProduced().encode(),
        R"({"v":1,"ok":false,"error":{"code":"E_RUNTIME","message":"No response produced."},"warnings":[]})");
    EXPECT_EQ(CLIRequestGate::listenerGone().error->message, "Listener gone.");
}

} // namespace
} // namespace marlune
