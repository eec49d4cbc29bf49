// The hand-over from browsers: the host by its bytes, and the manifests by which browsers find it.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <cstring>

#include "app/browser/browser.h"
#include "app/browser/native_message.h"
#include "store_run.h"

namespace vantlow::test {
namespace {

using nlohmann::json;

std::string message(const json& content, std::size_t padded_to = 0) {
    std::string text = content.dump();
    text.resize(std::max(text.size(), padded_to), ' ');
    return framed(text);
}

json request(const char* type, int id, json more = json::object()) {
    more.update({{"version", native_version}, {"id", id}, {"type", type}});
    return more;
}

class Browsers : public StoreRun {
  protected:
    /// The answers to these bytes, of a host that a browser of this family starts.
    std::vector<json> talk(const std::vector<std::u16string>& call, const std::string& bytes,
                           int status = 0) const {
        RunOptions options = environment();
        options.input = bytes;
        const RunResult result = run_vantlow(call, options);
        EXPECT_EQ(result.status, status) << result.err;
        EXPECT_EQ(result.err.find("secret"), std::string::npos) << result.err;
        std::vector<json> answers;
        NativeInput frames;
        frames.add(result.out);
        while (const auto frame = frames.next()) answers.push_back(json::parse(*frame));
        return answers;
    }
    json browser(const std::string& name) const {
        return json::parse(ok({u"browser", u"list", u"--json", to_utf16(name)}))[0];
    }

    const std::vector<std::u16string> by_chromium{to_utf16(extension_origin), u"--parent-window=0"};
    const std::vector<std::u16string> by_firefox{folder.path(u"vantlow.json"), to_utf16(extension_id)};
};

TEST_F(Browsers, speak_with_the_program_which_starts_by_itself) {
    // Lengths of 10, 13 and 26 bytes are line ends and an end of file where a stream is one of text.
    const std::string bytes = message(request("hello", 1), 0x0D0A) + message(json::array({1}), 0x1A) +
                              message(request("status", 2)) + message({{"version", 9}, {"id", 3}});
    const std::vector<json> first = talk(by_chromium, bytes);
    ASSERT_EQ(first.size(), 4U);
    EXPECT_EQ(first[0]["program"], "Vantlow 2.95");
    EXPECT_EQ(first[1]["code"], "invalid");
    EXPECT_EQ(first[2]["resident"], false) << "a look starts nothing";
    EXPECT_EQ(first[3]["code"], "other_version");
    EXPECT_EQ(first[3]["id"], 3);

    const json wish{{"address", "http://127.0.0.1:9/new"},
                    {"first", "http://u:secret@h/old"},
                    {"name", "../\u00E4/b.zip"},
                    {"cookies", "k=secret"},
                    {"referer", "http://127.0.0.1/page"},
                    {"agent", "Browser/1"},
                    {"user", "somebody"},
                    {"password", "secret"}};
    const json downloads{wish, {{"address", "ed2k://nothing"}}};
    const std::vector<json> second =
        talk(by_firefox, message(request("add", 7, {{"start", "ask"}, {"downloads", downloads}})) +
                             message(request("status", 8)));
    ASSERT_EQ(second.size(), 2U);
    const json results = second[0].value("results", json::array());
    ASSERT_EQ(results.size(), 2U) << second[0];
    EXPECT_EQ(results[0]["jobs"].size(), 1U);
    EXPECT_FALSE(results[1].value("ok", true));
    EXPECT_NE(results[1].value("reason", ""), "");
    EXPECT_EQ(second[1]["resident"], true);
    const json jobs = list();
    ASSERT_EQ(jobs.size(), 1U);
    EXPECT_EQ(jobs[0]["id"], results[0]["jobs"][0]);
    EXPECT_EQ(jobs[0]["file"], "b.zip") << "a name never leaves its folder";
    EXPECT_EQ(jobs[0]["state"], "stopped");
    EXPECT_EQ(jobs[0]["comment"], "http://h/old");
    EXPECT_EQ(jobs[0]["referer"], wish["referer"]);
    EXPECT_EQ(jobs[0]["agent"], wish["agent"]);
    ok({u"quit"});

    std::string endless = framed("x");
    const std::uint32_t length = longest_request + 1;
    std::memcpy(endless.data(), &length, sizeof length);
    EXPECT_TRUE(talk(by_chromium, endless, 1).empty());
}

TEST(NativeMessages, that_break_a_rule_are_refused) {
    const auto downloads_of = [](const json& one) { return json{{"downloads", json::array({one})}}; };
    const auto link = [&](const char* member, const json& value) {
        json one{{"address", "http://h/a"}};
        one[member] = value;
        return request("add", 1, downloads_of(one));
    };
    const std::pair<json, const char*> cases[] = {
        {request("remove", 1), "type"},
        {request("add", 1), "no download"},
        {request("add", 1, {{"downloads", json::array()}}), "no download"},
        {request("add", 1,
                 {{"downloads", std::vector<json>(most_downloads + 1, {{"address", "http://h/"}})}}),
         "more than"},
        {link("address", "/etc/passwd"), "no link"},
        {link("address", "a.torrent"), "no link"},
        {link("address", "file:///etc/passwd"), "no link"},
        {link("address", "http://"), "no link"},
        {link("address", 1), "not of texts"},
        {link("cookies", "@/home/me/cookies.txt"), "\"@\""},
        {link("referer", "http://h/\r\nX: y"), "control"},
        {link("agent", std::string("a\0b", 3)), "control"},
        {link("name", std::string(5000, 'x')), "too long"},
        {link("form", "YQ=="), "form"},
        {link("formType", "text/plain\r\nX: y"), "control"},
        {request("add", 1, downloads_of({{"address", "ftp://h/a"}, {"formType", "text/plain"}})), "form"},
        {request("add", 1, downloads_of({{"address", "http://h/a"}, {"formType", "a/b"}, {"form", "*"}})),
         "form"},
    };
    for (const auto& [wrong, why] : cases) {
        const auto read = read_request(wrong.dump());
        ASSERT_TRUE(std::holds_alternative<Refusal>(read)) << wrong;
        EXPECT_NE(std::get<Refusal>(read).text.find(why), std::string::npos) << std::get<Refusal>(read).text;
    }
    const std::string deep =
        R"({"version":1,"type":"hello","x":)" + std::string(100000, '[') + std::string(100000, ']') + "}";
    EXPECT_TRUE(std::holds_alternative<BrowserRequest>(read_request(deep)));
    EXPECT_TRUE(std::holds_alternative<Refusal>(read_request(std::string(longest_request + 1, ' '))));
}

TEST_F(Browsers, learn_of_the_program_and_forget_it_again) {
    for (const std::string name : {"edge", "librewolf"}) {
        const std::u16string word = to_utf16(name);
        EXPECT_EQ(browser(name)["entry"], "not installed");
        for (int time = 0; time < 2; ++time) ok({u"browser", u"install", word});
        const json installed = browser(name);
        EXPECT_EQ(installed["entry"], "installed");
        const std::u16string path = to_utf16(installed["manifest"].get<std::string>());
        std::vector<std::byte> bytes;
        ASSERT_TRUE(read_file(path, 100000, bytes).ok());
        const json manifest =
            json::parse(std::string_view(reinterpret_cast<char*>(bytes.data()), bytes.size()));
        const json callers = name == "edge" ? json{{"allowed_origins", {extension_origin}}}
                                            : json{{"allowed_extensions", {extension_id}}};
        for (const auto& [member, value] : callers.items()) EXPECT_EQ(manifest[member], value);
        EXPECT_EQ(manifest["name"], "vantlow");
        EXPECT_EQ(manifest["type"], "stdio");
        EXPECT_EQ(path_kind(to_utf16(manifest["path"].get<std::string>())), PathKind::file);

        const std::string foreign = R"({"name":"another"})";
        ASSERT_TRUE(write_file_atomically(path, std::as_bytes(std::span(foreign))).ok());
        for (const char16_t* const command : {u"install", u"remove"}) {
            EXPECT_EQ(run({u"browser", command, word}).status, 1) << "it is another program's";
        }
        EXPECT_EQ(path_kind(path), PathKind::file);
        ASSERT_TRUE(remove_file(path).ok());
        ok({u"browser", u"install", word});
        ok({u"browser", u"remove", word});
        EXPECT_EQ(browser(name)["entry"], "not installed");
        EXPECT_EQ(path_kind(path), PathKind::none);
    }
}

}  // namespace
}  // namespace vantlow::test
