// Who may call: hosts, origins, tokens.
#include <gtest/gtest.h>

#include "fake_downloads.h"
#include "rpc/access.h"

namespace vantlow::rpc {
namespace {

TEST(Access, hosts_and_origins_are_looked_at_before_anything_else) {
    const AccessRules rules{"s", {"https://front.example"}, {"nas.lan"}};
    const auto origin = [](std::string_view text) { return std::optional(text); };
    const std::optional<std::string_view> none;
    struct Case {
        Visitor visitor;
        Admission expected;
    };
    const std::vector<Case> cases{
        {{"127.0.0.1:6800", none, none}, Admission::admitted},
        {{"localhost", none, none}, Admission::admitted},
        {{"[::1]:6800", none, none}, Admission::admitted},
        {{"192.168.1.2:6800", none, none}, Admission::admitted},
        {{"NAS.lan:6800", none, none}, Admission::admitted},
        {{"evil.example:6800", none, none}, Admission::refused},
        {{"127.0.0.1.evil.example", none, none}, Admission::refused},
        {{"", none, none}, Admission::refused},
        {{"localhost:6800", origin("http://localhost:6800"), none}, Admission::admitted},
        {{"localhost:6800", origin("http://localhost:8000"), none}, Admission::refused},
        {{"localhost:6800", origin("null"), none}, Admission::refused},
        {{"localhost:6800", origin("https://evil.example"), none}, Admission::refused},
        {{"localhost:6800", origin("https://front.example.evil"), none}, Admission::refused},
        {{"localhost:6800", origin("https://front.example"), origin("cross-site")}, Admission::named_origin},
        {{"evil.example", origin("https://front.example"), none}, Admission::refused},
        {{"localhost:6800", origin("chrome-extension://abc"), origin("cross-site")}, Admission::admitted},
        {{"localhost:6800", origin("moz-extension://abc"), none}, Admission::admitted},
        {{"localhost:6800", none, origin("none")}, Admission::admitted},
        {{"localhost:6800", none, origin("same-origin")}, Admission::admitted},
        {{"localhost:6800", none, origin("same-site")}, Admission::refused},
        {{"localhost:6800", none, origin("cross-site")}, Admission::refused},
        {{"localhost:6800", none, origin("cross-site"), true}, Admission::admitted},
        {{"evil.example", none, origin("cross-site"), true}, Admission::refused},
        {{"localhost:6800", origin("https://evil.example"), origin("cross-site"), true}, Admission::refused},
    };
    for (const Case& one : cases)
        EXPECT_EQ(admit(one.visitor, rules), one.expected)
            << one.visitor.host << " " << one.visitor.origin.value_or("-") << " "
            << one.visitor.fetch_site.value_or("-");
    EXPECT_EQ(admit({"localhost", "https://evil.example", {}}, {"s", {"*"}, {}}), Admission::named_origin);
}

TEST(Access, wrong_tokens_are_slowed_for_their_address_alone_and_in_bounds) {
    using namespace std::chrono_literals;
    WrongTokens wrong;
    const WrongTokens::Time start{};
    for (const auto expected : {250ms, 500ms, 1000ms, 2000ms, 4000ms, 8000ms, 8000ms})
        EXPECT_EQ(wrong.refuse("a", start), expected);
    EXPECT_EQ(wrong.refuse("b", start), 250ms);
    EXPECT_EQ(wrong.refuse("a", start + 11min), 250ms);
    wrong.forgive("b");
    EXPECT_EQ(wrong.refuse("b", start), 250ms);
    for (int i = 0; i < 6000; ++i) wrong.refuse(std::to_string(i), start + 1min);
    EXPECT_LE(wrong.size(), WrongTokens::most_addresses);
}

TEST(Access, a_token_is_asked_of_every_call_but_the_lists_of_words) {
    FakeDownloads downloads;
    MethodTable table;
    add_download_methods(table, downloads);
    table.set_secret("s3");
    struct Case {
        std::string call;  ///< method and params
        std::string answer;
        bool refused;
        bool proved;
    };
    const std::string no = R"({"code":1,"message":"Unauthorized"})";
    const std::vector<Case> cases{
        {R"("method":"aria2.saveSession","params":["token:s3"])", R"("OK")", false, true},
        {R"("method":"aria2.saveSession")", no, false, false},
        {R"("method":"aria2.saveSession","params":["token:s4"])", no, true, false},
        {R"("method":"aria2.saveSession","params":["token:"])", no, false, false},
        {R"("method":"aria2.saveSession","params":["token:s3s3"])", no, true, false},
        {R"("method":"aria2.saveSession","params":["s3"])", no, false, false},
        {R"("method":"aria2.saveSession","params":[["token:s3"]])", no, false, false},
        {R"("method":"aria2.none")", no, false, false},
        {R"("method":"system.listNotifications","params":["token:s3"])",
         R"(["aria2.onDownloadStart","aria2.onDownloadPause","aria2.onDownloadStop","aria2.onDownloadComplete","aria2.onDownloadError","aria2.onBtDownloadComplete"])",
         false, false},
        {R"("method":"system.multicall","params":["token:x",[{"methodName":"aria2.saveSession","params":["token:s3"]},{"methodName":"system.multicall","params":[[]]},{"methodName":7},8,{"methodName":"aria2.saveSession"},{"methodName":"aria2.saveSession","params":{}},{"methodName":"aria2.none","params":["token:s3"]},{"methodName":"aria2.saveSession","params":["token:no"]},{"methodName":"aria2.saveSession","params":["token:s3"]}]])",
         R"([["OK"],{"code":1,"message":"A multicall cannot be within another one."},{"code":1,"message":"An entry is no call."},{"code":1,"message":"An entry is no call."},)" +
             no +
             R"(,{"code":1,"message":"The parameters are not an array."},{"code":1,"message":"There is no method aria2.none."},)" +
             no + "," + no + "]",
         true, true},
        {R"("method":"system.multicall")", R"({"code":1,"message":"The calls are not an array."})", false,
         false},
        {R"("method":"system.multicall","params":[[]])", "[]", false, false},
    };
    for (const Case& one : cases) {
        const rpc::Run run = answered(table, read_json(R"({"id":1,)" + one.call + "}"));
        const Json answer = Json::parse(write_json(run.request, run.answers).body);
        EXPECT_EQ(answer.contains("result") ? answer["result"] : answer["error"], Json::parse(one.answer))
            << one.call;
        EXPECT_EQ(run.was_refused, one.refused) << one.call;
        EXPECT_EQ(run.was_proved, one.proved) << one.call;
    }
    const rpc::Run names = answered(table, read_json(R"({"id":1,"method":"system.listMethods"})"));
    std::string all;
    for (const Json& name : std::get<Json>(names.answers.at(0))) all += name.get<std::string>() + " ";
    EXPECT_EQ(all,
              "system.multicall aria2.addMetalink aria2.addTorrent aria2.addUri aria2.changeGlobalOption "
              "aria2.changeOption aria2.changePosition aria2.changeUri aria2.forcePause aria2.forcePauseAll "
              "aria2.forceRemove aria2.forceShutdown aria2.getFiles aria2.getGlobalOption "
              "aria2.getGlobalStat aria2.getOption aria2.getPeers aria2.getServers aria2.getSessionInfo "
              "aria2.getUris aria2.getVersion aria2.pause aria2.pauseAll aria2.purgeDownloadResult "
              "aria2.remove aria2.removeDownloadResult aria2.saveSession aria2.shutdown aria2.tellActive "
              "aria2.tellStatus aria2.tellStopped aria2.tellWaiting aria2.unpause aria2.unpauseAll "
              "system.listMethods system.listNotifications ");
    table.set_secret("");
    EXPECT_TRUE(answered(table, read_json(R"({"id":1,"method":"aria2.saveSession","params":["token:old"]})"))
                    .was_proved);
}

}  // namespace
}  // namespace vantlow::rpc
