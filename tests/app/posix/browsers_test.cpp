// Where the browsers of this system are looked for, and what is said of those that can start no program.
#include <nlohmann/json.hpp>

#include "../store_run.h"
#include "platform/process.h"

namespace vantlow::test {
namespace {

using nlohmann::json;

class BrowsersOfThisUser : public StoreRun {
  protected:
    void make(const std::u16string& path) const { ASSERT_TRUE(make_folders(folder.path(path)).ok()); }
    json browsers() const { return json::parse(ok({u"browser", u"list", u"--json"})); }
};

TEST_F(BrowsersOfThisUser, are_those_whose_folders_there_are) {
    const std::vector<std::pair<std::string, std::u16string>> cases{
        {"chrome", u"xdg-config/google-chrome"},
        {"chromium", u"xdg-config/chromium"},
        {"edge", u"xdg-config/microsoft-edge"},
        {"brave", u"xdg-config/BraveSoftware/Brave-Browser"},
        {"vivaldi", u"xdg-config/vivaldi"},
        {"firefox", u".mozilla"},
        {"librewolf", u".librewolf"},
    };
    EXPECT_EQ(run({u"browser", u"install"}).status, 1) << "there is none";
    for (const auto& [name, place] : cases) make(place);
    ok({u"browser", u"install"});
    const json all = browsers();
    ASSERT_EQ(all.size(), cases.size());
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const bool is_firefox = i > 4;
        const std::u16string hosts = is_firefox ? u"/native-messaging-hosts/" : u"/NativeMessagingHosts/";
        EXPECT_EQ(all[i]["browser"], cases[i].first);
        EXPECT_EQ(all[i]["present"], true) << cases[i].first;
        EXPECT_EQ(all[i]["entry"], "installed") << cases[i].first;
        EXPECT_EQ(all[i]["manifest"], folder.utf8_path(to_utf8(cases[i].second + hosts) + "vantlow.json"));
    }
}

TEST_F(BrowsersOfThisUser, in_a_sandbox_are_told_of_with_what_can_be_done) {
    make(u".var/app/org.mozilla.firefox");
    make(u".var/app/com.brave.Browser");
    make(u"snap/brave");
    const RunResult told = run({u"browser", u"list"});
    EXPECT_NE(told.err.find("Firefox is also here as a Flatpak"), std::string::npos) << told.err;
    EXPECT_NE(told.err.find("Brave is also here as a Snap"), std::string::npos) << told.err;
    EXPECT_NE(told.err.find("over the control API"), std::string::npos) << told.err;
    EXPECT_EQ(told.err.find("Vivaldi"), std::string::npos) << told.err;
    const RunResult installed = run({u"browser", u"install"});
    EXPECT_EQ(installed.status, 1) << "nothing can be installed for these";
    EXPECT_NE(installed.err.find("Firefox is also here as a Flatpak"), std::string::npos) << installed.err;
    for (const json& one : browsers()) {
        EXPECT_EQ(one["present"], false) << one;
        const json expected = one["browser"] == "firefox" ? json{"Flatpak"}
                              : one["browser"] == "brave" ? json{"Flatpak", "Snap"}
                                                          : json::array();
        EXPECT_EQ(one["confined"], expected);
    }
}

}  // namespace
}  // namespace vantlow::test
