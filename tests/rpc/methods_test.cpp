// The methods that front ends know, over downloads that a test puts in.
#include <gtest/gtest.h>

#include "fake_downloads.h"
#include "rpc/option_words.h"
#include "rpc/status_words.h"

namespace vantlow::rpc {
namespace {

class Methods : public testing::Test {
  protected:
    Methods() { add_download_methods(table_, downloads_); }

    /// The result of a call, or its fault as "CODE MESSAGE".
    Json call(const std::string& method, const std::string& params = "[]") {
        Request request;
        request.calls.push_back({1, "aria2." + method, Json::parse(params)});
        const rpc::Run run = answered(table_, std::move(request));
        if (const Fault* const fault = std::get_if<Fault>(&run.answers.at(0)))
            return std::to_string(fault->code) + " " + fault->message;
        return std::get<Json>(run.answers[0]);
    }
    std::string gids(const std::string& method, const std::string& params) {
        std::string all;
        for (const Json& one : call(method, params)) all += one["gid"].get<std::string>().substr(0, 1);
        return all;
    }

    FakeDownloads downloads_;
    MethodTable table_;
};

TEST_F(Methods, steering_fits_the_phase_or_is_refused) {
    downloads_.put('1', Phase::active);
    downloads_.put('2', Phase::waiting);
    downloads_.put('3', Phase::paused);
    downloads_.put('4', Phase::complete);
    downloads_.put('5', Phase::failed);
    downloads_.put('6', Phase::removed);
    // The downloads for which each method does something; for the others it is refused.
    const std::vector<std::array<std::string, 3>> cases{
        {"pause", "12", "pause"},         {"forcePause", "12", "pause"},
        {"unpause", "3", "unpause"},      {"remove", "123", "remove"},
        {"forceRemove", "123", "remove"}, {"removeDownloadResult", "456", "remove"},
    };
    for (const auto& [method, digits, what] : cases) {
        for (const char digit : std::string("123456")) {
            downloads_.asked.clear();
            const bool fits = digits.find(digit) != std::string::npos;
            const Json answer = call(method, "[\"" + std::string(16, digit) + "\"]");
            const std::string expected = method == "removeDownloadResult" ? "OK" : std::string(16, digit);
            EXPECT_EQ(answer == expected, fits) << method << digit << answer;
            EXPECT_EQ(downloads_.asked.size(), fits ? 1U : 0U);
            if (fits) {
                EXPECT_EQ(downloads_.asked[0], what + " " + digit);
            }
        }
    }
    EXPECT_EQ(call("pause", R"(["2"])"), std::string(16, '2'));  // a prefix that is unique
    EXPECT_EQ(call("pause", R"(["f"])"), "1 There is no download f.");
    EXPECT_EQ(call("pause", R"([""])"), "1 There is no download .");
    EXPECT_EQ(call("pause", R"([7])"), "1 The parameter at 0 is not a text.");
    EXPECT_EQ(call("pause"), "1 The parameter at 0 is missing.");
    downloads_.refusal = "Never.";
    EXPECT_EQ(call("pause", R"(["1"])"), "1 Never.");
    downloads_.refusal.clear();

    downloads_.asked.clear();
    for (const char* method : {"pauseAll", "forcePauseAll", "unpauseAll", "purgeDownloadResult",
                               "saveSession", "shutdown", "forceShutdown"})
        EXPECT_EQ(call(method), "OK");
    EXPECT_EQ(downloads_.asked,
              (std::vector<std::string>{"pause 1", "pause 2", "pause 1", "pause 2", "unpause 3", "remove 4",
                                        "remove 5", "remove 6", "save", "shut down", "shut down"}));
}

TEST_F(Methods, lists_are_cut_and_turned_round) {
    for (const char digit : std::string("abcde")) downloads_.put(digit, Phase::complete);
    downloads_.put('1', Phase::active);
    downloads_.put('2', Phase::paused);
    const std::vector<std::array<std::string, 3>> cases{
        {"tellActive", "[]", "1"},
        {"tellWaiting", "[0,1000]", "2"},
        {"tellStopped", "[0,1000]", "abcde"},
        {"tellStopped", "[1,2]", "bc"},
        {"tellStopped", "[4,9]", "e"},
        {"tellStopped", "[5,9]", ""},
        {"tellStopped", "[0,0]", ""},
        {"tellStopped", "[-1,1000]", "edcba"},
        {"tellStopped", "[-1,2]", "ed"},
        {"tellStopped", "[-2,2]", "dc"},
        {"tellStopped", "[-5,3]", "a"},
        {"tellStopped", "[-6,3]", ""},
        {"tellStopped", "[9223372036854775807,9223372036854775807]", ""},
        {"tellStopped", "[-9223372036854775808,9223372036854775807]", ""},
    };
    for (const auto& [method, params, expected] : cases)
        EXPECT_EQ(gids(method, params), expected) << method << params;
    EXPECT_EQ(call("tellStopped", "[0,-1]"), "1 The number of downloads is below 0.");
    EXPECT_EQ(call("tellStopped", "[9223372036854775808,1]"), "1 The parameter at 0 is too large.");
    EXPECT_EQ(call("tellStopped", "[0]"), "1 The parameter at 1 is missing.");
    EXPECT_EQ(call("tellActive", R"([["gid","nothing","status"]])"),
              Json::parse(R"([{"gid":"1111111111111111","status":"active"}])"));
}

TEST_F(Methods, a_status_is_made_of_texts_and_leaves_out_what_there_is_not) {
    JobStatus& active = downloads_.put('1', Phase::active);
    active.length = 100;
    active.done = 10;
    active.down_speed = 5;
    active.connections = 2;
    active.piece_length = 16;
    active.pieces = 10;
    active.bitfield = {true, false, false, false, false, false, false, true, true, false};
    EXPECT_EQ(call("tellStatus", R"(["1"])"), Json::parse(R"({"gid":"1111111111111111","status":"active",
        "totalLength":"100","completedLength":"10","uploadLength":"0","bitfield":"8180","downloadSpeed":"5",
        "uploadSpeed":"0","pieceLength":"16","numPieces":"10","connections":"2","dir":"/d","files":[{"index":"1",
        "path":"/d/f","length":"100","completedLength":"10","selected":"true","uris":[{"uri":"http://h/f",
        "status":"used"},{"uri":"http://m/f","status":"waiting"}]}]})"));

    JobStatus& ended = downloads_.put('2', Phase::failed);
    ended.down_speed = 5;
    ended.error_code = static_cast<int>(Reason::not_found);
    ended.error = "Gone.";
    ended.followed_by = {*guid_from_digits(std::string(32, '1'))};
    ended.following = *guid_from_digits(std::string(32, '3'));
    ended.verified = 7;
    EXPECT_EQ(
        call("tellStatus",
             R"(["2",["errorCode","errorMessage","downloadSpeed","followedBy","following","bitfield"]])"),
        Json::parse(R"({"errorCode":"3","errorMessage":"Gone.","downloadSpeed":"0",
                  "followedBy":["1111111111111111"],"following":"3333333333333333","verifiedLength":"7",
                  "verifyIntegrityPending":"true"})"));

    JobStatus& torrent = downloads_.put('4', Phase::active);
    torrent.torrent = TorrentStatus{std::string(40, 'b'), "film", "c", 9, true, {{"http://t/a"}}, 3, true};
    EXPECT_EQ(call("tellStatus", R"(["4",["infoHash","numSeeders","seeder","bittorrent"]])"),
              Json::parse(
                  R"({"infoHash":"bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb","numSeeders":"3","seeder":"true",
                  "bittorrent":{"announceList":[["http://t/a"]],"comment":"c","creationDate":9,"mode":"multi",
                  "info":{"name":"film"}}})"));
    torrent.torrent->is_described = false;
    EXPECT_EQ(call("tellStatus", R"(["4",["bittorrent"]])")["bittorrent"],
              Json::parse(R"({"announceList":[["http://t/a"]],"comment":"c","creationDate":9})"));
    torrent.phase = Phase::complete;
    EXPECT_EQ(call("tellStatus", R"(["4",["errorCode","numSeeders","seeder","uploadSpeed"]])"),
              Json::parse(R"({"errorCode":"0","numSeeders":"0","uploadSpeed":"0"})"));
    torrent.phase = Phase::active;
    downloads_.peers_now = {{"-X\xFF", "1.2.3.4", 0, {true}, true, false, 1, 2, false}};
    EXPECT_EQ(call("getPeers", R"(["4"])"), Json::parse(R"([{"peerId":"%2D%58%FF","ip":"1.2.3.4","port":"0",
        "bitfield":"80","amChoking":"true","peerChoking":"false","downloadSpeed":"1","uploadSpeed":"2",
        "seeder":"false"}])"));
    downloads_.peers_now.clear();
    EXPECT_EQ(call("getPeers", R"(["1"])"), Json::array()) << "it is none of BitTorrent";
    EXPECT_EQ(call("getPeers", R"(["2"])"), "1 This download has ended.");
    EXPECT_EQ(call("getServers", R"(["1"])"), Json::parse(R"([{"index":"1","servers":[
        {"uri":"http://h/f","currentUri":"http://h/f","downloadSpeed":"2"},
        {"uri":"http://h/f","currentUri":"http://h/f","downloadSpeed":"2"}]}])"));
    EXPECT_EQ(call("getServers", R"(["4"])"), Json::array());
    EXPECT_EQ(call("getServers", R"(["2"])"), "1 This download is not active.");
    EXPECT_EQ(call("getUris", R"(["2"])").size(), 2U);
    EXPECT_EQ(call("getFiles", R"(["2"])")[0]["index"], "1");
    EXPECT_EQ(call("getGlobalStat"), Json::parse(R"({"downloadSpeed":"1","uploadSpeed":"2","numActive":"3",
        "numWaiting":"4","numStopped":"5","numStoppedTotal":"6"})"));
    EXPECT_EQ(call("getVersion")["version"], "1.37.0");
    EXPECT_EQ(call("getVersion")["enabledFeatures"].back(), "Vantlow");
    EXPECT_EQ(call("getSessionInfo")["sessionId"], std::string(40, 'a'));
}

TEST_F(Methods, adding_takes_parameters_as_front_ends_send_them) {
    EXPECT_EQ(call("addUri", R"([["http://a/f","http://b/f"],{"out":"n","pause":"true","unknown":[1]},3])"),
              std::string(16, '7'));
    EXPECT_EQ(downloads_.added.addresses, (std::vector<std::string>{"http://a/f", "http://b/f"}));
    EXPECT_EQ(downloads_.added.options.name, "n");
    EXPECT_EQ(downloads_.added.options.paused, true);
    EXPECT_EQ(downloads_.added.position, 3);
    EXPECT_EQ(call("addUri", R"([["http://a/f"],{"pause":true,"split":5,"dir":null}])"),
              std::string(16, '7'));
    EXPECT_EQ(downloads_.added.options.paused, std::nullopt);
    EXPECT_EQ(call("addUri", R"([["http://a/f"],null,null])"), std::string(16, '7'));
    for (const char* params : {R"(["ZG9j"])", R"(["ZG9j",{"dir":"/x"}])", R"(["ZG9j",[],{"dir":"/x"}])",
                               R"(["ZG9j",["http://w/"],{"dir":"/x"},0])"}) {
        EXPECT_EQ(call("addTorrent", params), std::string(16, '7')) << params;
        EXPECT_EQ(downloads_.added.document, "doc");
        EXPECT_EQ(downloads_.added.kind, NewJob::Document::torrent);
        EXPECT_EQ(call("addMetalink", params), Json::array({std::string(16, '7'), std::string(16, '8')}))
            << params;
        if (std::string(params).find("/x") != std::string::npos) {
            EXPECT_EQ(downloads_.added.options.folder, "/x");
        }
    }
    EXPECT_EQ(call("addTorrent", R"(["%"])"), "1 The document is not in base64.");
    EXPECT_EQ(call("addUri", "[[]]"), "1 There is no address.");
    EXPECT_EQ(call("addUri", R"(["http://a/f"])"), "1 The parameter at 0 is not an array.");
    EXPECT_EQ(call("addUri", R"([["http://a/f"],{},-1])"), "1 The position is below 0.");
    EXPECT_EQ(call("addUri", R"([["http://a/f"],{"split":"x"}])"),
              "1 The option split cannot have this value.");
    downloads_.refusal = "Full.";
    EXPECT_EQ(call("addUri", R"([["http://a/f"]])"), "1 Full.");
}

TEST_F(Methods, places_and_addresses_change_as_counted) {
    for (const char digit : std::string("abcd")) downloads_.put(digit, Phase::waiting);
    const std::vector<std::array<std::string, 2>> places{
        {R"(["b",0,"POS_SET"])", "0"},  {R"(["b",9,"POS_SET"])", "3"},
        {R"(["b",-9,"POS_SET"])", "0"}, {R"(["b",1,"POS_CUR"])", "1"},
        {R"(["b",-1,"POS_CUR"])", "0"}, {R"(["b",0,"POS_END"])", "3"},
        {R"(["b",-1,"POS_END"])", "2"}, {R"(["b",-9223372036854775808,"POS_CUR"])", "0"},
    };
    for (const auto& [params, place] : places) {
        downloads_.asked.clear();
        EXPECT_EQ(call("changePosition", params).dump(), place) << params;
        EXPECT_EQ(downloads_.asked, (std::vector<std::string>{"move to " + place + " b"}));
    }
    downloads_.put('1', Phase::active);
    EXPECT_EQ(call("changePosition", R"(["1",0,"POS_SET"])"),
              "1 The download 1111111111111111 does not wait.");
    EXPECT_EQ(call("changePosition", R"(["b",0,"SET"])"),
              "1 The position is counted by POS_SET, POS_CUR or POS_END.");

    downloads_.asked.clear();
    EXPECT_EQ(call("changeUri", R"(["b",1,["http://m/f","http://none"],["http://n/f"],0])"),
              Json::array({1, 1}));
    EXPECT_EQ(call("changeUri", R"(["b",1,[],["http://n/f"]])"), Json::array({0, 1}));
    EXPECT_EQ(downloads_.asked, (std::vector<std::string>{"sources http://n/f http://h/f b",
                                                          "sources http://h/f http://m/f http://n/f b"}));
    EXPECT_EQ(call("changeUri", R"(["b",1,["http://h/f","http://m/f"],[]])"),
              "1 A download needs an address.");
    EXPECT_EQ(call("changeUri", R"(["b",2,[],[]])"), "1 The file has no addresses of its own.");
}

TEST_F(Methods, options_go_back_as_they_came_so_that_a_retry_loses_nothing) {
    downloads_.put('1', Phase::failed);
    const Json sent =
        Json::parse(R"({"dir":"/d","out":"n","referer":"http://r/","user-agent":"A","all-proxy":"http://p:1",
        "http-user":"u","http-passwd":"p","split":"7","max-connection-per-server":"3","max-download-limit":"2048",
        "max-upload-limit":"1024","bt-prioritize-piece":"head,tail","bt-max-peers":"50","bt-tracker":"udp://a:1/x,http://b/y","bt-exclude-tracker":"*","seed-ratio":"1.5","seed-time":"90","pause":"false","allow-overwrite":"true","checksum":"sha-1=0000000000000000000000000000000000000000",
        "select-file":"1,3-5","header":["Cookie: a=b; c=d"]})");
    ASSERT_FALSE(read_options(sent, downloads_.now));
    EXPECT_EQ(call("getOption", R"(["1"])"), sent);
    call("addUri", Json::array({Json::array({"http://a/f"}), sent}).dump());
    EXPECT_EQ(write_options(downloads_.added.options), sent);

    JobOptions options;
    ASSERT_FALSE(read_options(
        Json::parse(R"({"header":["Cookie: x=y","user-agent:  B ","Referer: http://q/","Accept: */*",
        "Authorization: Basic dTpwOnE=","odd"],"max-download-limit":"2M","gid":"ABCDEF0123456789","user-agent":"own"})"),
        options));
    EXPECT_EQ(options.cookie, "x=y");
    EXPECT_EQ(options.agent, "own");
    EXPECT_EQ(options.referer, "http://q/");
    EXPECT_EQ(options.user, "u");
    EXPECT_EQ(options.password, "p:q");
    EXPECT_EQ(options.down_limit, 2 << 20);
    EXPECT_EQ(options.gid, "abcdef0123456789");
    EXPECT_EQ(options.connections_for(1), std::nullopt);
    options.per_server = 2;
    EXPECT_EQ(options.connections_for(1), 2);
    EXPECT_EQ(options.connections_for(9), 5);

    for (const char* bad :
         {R"({"header":"Cookie: @/etc/passwd"})", R"({"header":["a: b\u0000"]})", R"({"referer":"a\r\nb"})",
          R"({"split":"0"})", R"({"max-download-limit":"-1"})", R"({"max-download-limit":"99999999999M"})",
          R"({"pause":"yes"})", R"({"seed-ratio":"-1"})", R"({"seed-time":"x"})",
          R"({"checksum":"sha-1=00"})", R"({"gid":"12"})", R"({"select-file":"a"})",
          R"({"bt-prioritize-piece":"middle"})", R"({"max-upload-limit":"x"})"}) {
        JobOptions none;
        EXPECT_TRUE(read_options(Json::parse(bad), none)) << bad;
    }
    JobOptions odd;  // types that front ends send, and words that mean nothing here
    ASSERT_FALSE(
        read_options(Json::parse(R"({"index-out":["1=a"],"out":null,"dir":true,"split":7,"ftp-user":"f",
        "ftp-passwd":"q","continue":"true","check-integrity":"false","min-split-size":"1M"})"),
                     odd));
    EXPECT_EQ(write_options(odd), Json::parse(R"({"http-user":"f","http-passwd":"q"})"));
    EXPECT_EQ(call("changeOption", R"(["1",{"max-download-limit":"1K"}])"), "OK");
    EXPECT_EQ(downloads_.changed.down_limit, 1024);
    EXPECT_EQ(
        call(
            "changeGlobalOption",
            R"([{"max-concurrent-downloads":"4","max-overall-download-limit":"0K","dir":"/e","bt-max-peers":"0","min-split-size":"2M","rpc-x":"9"}])"),
        "OK");
    EXPECT_EQ(
        call("getGlobalOption"),
        Json::parse(
            R"({"max-concurrent-downloads":"4","max-overall-download-limit":"0","dir":"/e","bt-max-peers":"10000","min-split-size":"2097152"})"));
}

TEST_F(Methods, a_list_goes_on_where_jobs_go_while_it_is_made) {
    MethodTable table;
    add_download_methods(table, downloads_);
    for (const char digit : {'1', '2', '3', '4'}) downloads_.put(digit, Phase::waiting);
    rpc::Run run;
    run.request.calls.push_back({1, "aria2.tellWaiting", Json::array({-1, 3, Json::array({"gid"})})});
    EXPECT_FALSE(table.work(run, {}));  // begins
    EXPECT_FALSE(table.work(run, {}));  // 4
    downloads_.drop('4');
    downloads_.drop('3');
    EXPECT_TRUE(run.only_lists());
    while (!table.work(run, {})) {
    }
    EXPECT_FALSE(run.only_lists());
    EXPECT_EQ(std::get<Json>(run.answers.at(0)),
              Json::parse(R"([{"gid":"4444444444444444"},{"gid":"2222222222222222"}])"));
}

TEST_F(Methods, an_answer_without_end_is_refused_and_work_goes_in_steps) {
    MethodTable table(1000);
    add_download_methods(table, downloads_);
    for (int i = 0; i < 10; ++i) downloads_.put('a', Phase::complete);
    Json calls = Json::array();
    for (int i = 0; i < 20; ++i)
        calls.push_back({{"methodName", "aria2.tellStopped"}, {"params", {0, 10000}}});
    rpc::Run run;
    run.request.calls.push_back({1, "system.multicall", Json::array({calls})});
    int steps = 1;
    while (!table.work(run, {})) ++steps;
    EXPECT_GT(steps, 40);  // not even a list is made at once
    EXPECT_EQ(std::get<Json>(run.answers.at(0)).back()["message"],
              "The answers are too large for one request.");
    EXPECT_TRUE(std::get<Json>(run.answers[0])[0].is_array());
}

}  // namespace
}  // namespace vantlow::rpc
