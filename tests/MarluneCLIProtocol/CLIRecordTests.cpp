#include "MarluneCLIProtocol/BoardRecords.h"
#include "MarluneCLIProtocol/CLIArgs.h"
#include "MarluneCLIProtocol/ClipRecords.h"
#include "MarluneCLIProtocol/DataRecords.h"
#include "MarluneCLIProtocol/Paging.h"

#include <gtest/gtest.h>

namespace marlune {
namespace {

TEST(CLIRecords, RepresentativeRecordsWriteExactlyTheirKeysInOrder) {
    ListArgs list;
    list.tagRef = "work";
    list.favoriteOnly = false;
    list.limit = 20;

    SnippetDTO snippet{"6F9619FF-8B86-D011-B42D-00C04FC964FF",
                       "Sig",
                       ";sig",
                       std::nullopt,
                       "Best, {@name@}",
                       "plainText",
                       true,
                       "2026-03-04T05:06:07Z",
                       "2026-03-04T05:06:08Z",
                       3,
                       std::nullopt,
                       GroupRefDTO{"g", "Mail"},
                       {TagRefDTO{"t", "x"}},
                       1,
                       false,
                       std::nullopt};

    FillDTO fill{"name", "text", std::nullopt, "Ann", std::nullopt, false};
    ExpandActionsDTO actions{true, false, false, std::nullopt};

    Page<TagRefDTO> page = Page<TagRefDTO>::slice({{"a", "A"}, {"b", "B"}}, 5, 0);

    DataDocumentDTO document;
    document.schemaVersion = 2;
    document.profile = std::vector<ProfileVarDTO>{};
    document.settings =
        std::map<std::string, CLIJSONValue>{{"maxUnpinnedHistory", CLIJSONValue::integer(500)},
                                            {"keywordPrefix", CLIJSONValue::null()},
                                            {"board.autoArchiveDays", CLIJSONValue::string("7")},
                                            {"iCloudSyncEnabled", CLIJSONValue::boolean(true)}};

    SyncStatusDTO sync{"idle",
                       false,
                       true,
                       false,
                       CLIDate{std::chrono::sys_days{std::chrono::year{2026} / 3 / 4} +
                               std::chrono::microseconds{1'500'000}},
                       std::nullopt};

    EXPECT_EQ(encodeWireText(list),
              R"({"tagRef":"work","favoriteOnly":false,"limit":20,"offset":0})");
    EXPECT_EQ(encodeWireText(snippet),
              R"({"id":"6F9619FF-8B86-D011-B42D-00C04FC964FF","title":"Sig","keyword":";sig",)"
              R"("content":"Best, {@name@}","contentType":"plainText","isFavorite":true,)"
              R"("createdAt":"2026-03-04T05:06:07Z","updatedAt":"2026-03-04T05:06:08Z",)"
              R"("usageCount":3,"group":{"id":"g","name":"Mail"},"tags":[{"id":"t","name":"x"}],)"
              R"("fillInCount":1,"hasAI":false})");
    EXPECT_EQ(encodeWireText(fill),
              R"({"name":"name","kind":"text","default":"Ann","filled":false})");
    EXPECT_EQ(encodeWireText(actions), R"({"stdout":true,"copied":false,"pasted":false})");
    EXPECT_EQ(encodeWireText(page), R"({"items":[{"id":"a","name":"A"},{"id":"b","name":"B"}],)"
                                    R"("page":{"limit":5,"offset":0,"total":2}})");
    EXPECT_EQ(encodeWireText(document),
              R"({"schemaVersion":2,"profile":[],"settings":{"board.autoArchiveDays":"7",)"
              R"("iCloudSyncEnabled":true,"keywordPrefix":null,"maxUnpinnedHistory":500}})");
    EXPECT_EQ(encodeWireText(sync),
              R"({"state":"idle","needsAttention":false,"enabledThisLaunch":true,)"
              R"("relaunchRequired":false,"lastImportAt":"2026-03-04T00:00:01Z"})");
    EXPECT_EQ(encodeWireText(EmptyArgs{}), "{}");

    EXPECT_EQ(decodeWireText<SnippetDTO>(encodeWireText(snippet)), snippet);
    EXPECT_EQ(decodeWireText<FillDTO>(encodeWireText(fill)), fill);
    EXPECT_EQ(decodeWireText<DataDocumentDTO>(encodeWireText(document)), document);
    EXPECT_EQ(decodeWireText<Page<TagRefDTO>>(encodeWireText(page)), page);
}

TEST(CLIRecords, FullyPopulatedRecordsSurviveARoundTrip) {
    ClipDTO clip{"c",
                 "text",
                 "hi",
                 "hi there",
                 "abc",
                 SourceAppDTO{"Term", std::nullopt},
                 "2026-01-01T00:00:00Z",
                 true,
                 2,
                 false,
                 {RepresentationDTO{"public.png", false, std::nullopt, 42, std::nullopt, "AAEC"}},
                 {PinboardRefDTO{"p", "Pins"}},
                 {},
                 0.75,
                 "semantic",
                 "text"};
    ExpandArgs expand;
    expand.ref = ";sig";
    expand.fills = {{"name", "Ann"}, {"", "empty key"}};
    expand.seed = -9'223'372'036'854'775'807 - 1;
    expand.recordUsage = false;
    BoardItemDTO item{"i",
                      "todo",
                      "text",
                      false,
                      std::nullopt,
                      "2026-01-01T00:00:00Z",
                      "s",
                      "Inbox",
                      "Agent: bot",
                      std::nullopt,
                      "https://x.example/",
                      {"a", "b"},
                      true,
                      "2026-01-02T00:00:00Z",
                      std::nullopt,
                      "note",
                      std::nullopt,
                      false};
    ConfigSetResultDTO config{"clipRetentionDays", CLIJSONValue::integer(30), CLIJSONValue::null(),
                              "integer", false};
    SyncDoctorReportDTO doctor{
        CLIDate{},    std::nullopt, "mirror ok", "c",
        std::nullopt, "ok",         true,        {{"Clip", "CD_Clip", 1, 2, 0, 1}},
        {"n"}};
    PingResult ping{"0.1.0", 2'147'483'647, 1, "1", false};
    AgentSkills::InstallResult install{"claude", "/tmp/x"};

    EXPECT_EQ(decodeWireText<ClipDTO>(encodeWireText(clip)), clip);
    EXPECT_EQ(decodeWireText<ExpandArgs>(encodeWireText(expand)), expand);
    EXPECT_EQ(decodeWireText<BoardItemDTO>(encodeWireText(item)), item);
    EXPECT_EQ(decodeWireText<ConfigSetResultDTO>(encodeWireText(config)), config);
    EXPECT_EQ(decodeWireText<SyncDoctorReportDTO>(encodeWireText(doctor)), doctor);
    EXPECT_EQ(decodeWireText<PingResult>(encodeWireText(ping)), ping);
    EXPECT_EQ(decodeWireText<AgentSkills::InstallResult>(encodeWireText(install)), install);
}

CLIRequest requestWithArgs(std::string command, std::string args) {
    CLIRequest request;
    request.command = std::move(command);
    request.argsJSON = std::move(args);
    return request;
}

TEST(CLIRecords, BadArgumentsAreAUsageErrorNamingTheKey) {
    struct Case {
        std::string args;
        std::string message;
    };
    const std::string prefix = "Invalid arguments for 'snippet.get': ";
    const Case cases[] = {
        {"", prefix + "the arguments must be a JSON document."},
        {"{\"ref\":", prefix + "the arguments must be a JSON document."},
        {"[]", prefix + "the arguments must be an object."},
        {R"({"raw":true})", prefix + "'ref' is missing."},
        {R"({"ref":null,"raw":true})", prefix + "'ref' must be a string."},
        {R"({"ref":7,"raw":true})", prefix + "'ref' must be a string."},
        {R"({"ref":"x","raw":1})", prefix + "'raw' must be a Boolean."},
        {R"({"ref":"x","raw":true,"by":false})", prefix + "'by' must be a string."},
    };
    for (const auto& c : cases) {
        const auto decoded = decodeArgs<GetArgs>(requestWithArgs("snippet.get", c.args));
        ASSERT_TRUE(std::holds_alternative<CLIErrorPayload>(decoded)) << c.args;
        EXPECT_EQ(std::get<CLIErrorPayload>(decoded),
                  (CLIErrorPayload{"E_USAGE", c.message, std::nullopt}));
    }

    const auto nested =
        decodeArgs<ListArgs>(requestWithArgs("snippet.list", R"({"limit":1.5,"offset":0})"));
    EXPECT_EQ(std::get<CLIErrorPayload>(nested).message,
              "Invalid arguments for 'snippet.list': 'limit' must be an integer.");
    const auto deep = decodeArgs<ExpandResultDTO>(requestWithArgs(
        "x", R"({"snippetId":"s","keyword":"k","title":"t","fills":[{"name":"n","kind":"k",)"
             R"("filled":true},{"name":"n","kind":"k","options":["a",2],"filled":true}]})"));
    EXPECT_EQ(std::get<CLIErrorPayload>(deep).message,
              "Invalid arguments for 'x': 'fills[1].options[1]' must be a string.");
    const auto pid = decodeArgs<PingResult>(requestWithArgs(
        "x", R"({"version":"1","pid":2147483648,"protocolVersion":1,"apiVersion":"1",)"
             R"("menuBarOnly":false})"));
    EXPECT_EQ(std::get<CLIErrorPayload>(pid).message,
              "Invalid arguments for 'x': 'pid' must be a 32-bit integer.");
    EXPECT_THROW(decodeWireText<SyncStatusDTO>(
                     R"({"state":"s","needsAttention":false,"enabledThisLaunch":false,)"
                     R"("relaunchRequired":false,"lastExportAt":"2026-03-04 05:06:07"})"),
                 CLIRecordError);
}

TEST(CLIRecords, UnknownKeysAreIgnoredAndNullOptionalsReadAsAbsent) {
    const auto decoded = decodeArgs<RefArgs>(requestWithArgs(
        "snippet.delete", R"({"future":{"a":[1]},"ref":"x","by":null,"dryRun":true})"));
    EXPECT_EQ(std::get<RefArgs>(decoded), (RefArgs{"x", std::nullopt, true, std::nullopt}));
}

TEST(CLIRecords, ClientResultDecodingOutcomes) {
    const auto ok = successResponse(KeyArgs{"k"});
    EXPECT_EQ(std::get<KeyArgs>(decodeResult<KeyArgs>(ok)).key, "k");

    CLIResponse empty = ok;
    empty.resultJSON.reset();
    EXPECT_EQ(std::get<CLIErrorPayload>(decodeResult<KeyArgs>(empty)),
              (CLIErrorPayload{"E_RUNTIME", "Response had no result payload.", std::nullopt}));

    const auto failed = CLIResponse::failure("E_NOT_FOUND", "No snippet matches 'x'.",
                                             "List them with `marlune snippet list`.");
    EXPECT_EQ(std::get<CLIErrorPayload>(decodeResult<KeyArgs>(failed)), *failed.error);

    const auto wrongShape = CLIResponse::success("[]");
    EXPECT_EQ(std::get<CLIErrorPayload>(decodeResult<KeyArgs>(wrongShape)).code, "E_RUNTIME");
}

TEST(CLIRecords, ResponsesCarryResultsAsBase64AndRoundTrip) {
    const auto response =
        CLIResponse::success("{\"k\":1}", {CLIWarningPayload{"W_DUPLICATE_KEYWORD", "w."}});
    EXPECT_EQ(response.encode(),
              R"({"v":1,"ok":true,"resultJSON":"eyJrIjoxfQ==","warnings":[{"code":)"
              R"("W_DUPLICATE_KEYWORD","message":"w."}]})");
    EXPECT_EQ(CLIResponse::decode(response.encode()), response);
    const auto failure = CLIResponse::failure("E_BUSY", "Busy.", "Try again.");
    EXPECT_EQ(CLIResponse::decode(failure.encode()), failure);
    EXPECT_FALSE(CLIResponse::decode(R"({"v":1,"ok":true,"resultJSON":"!!!!","warnings":[]})"));
    EXPECT_FALSE(CLIResponse::decode(R"({"v":1,"ok":true})"));
}

} // namespace
} // namespace marlune
