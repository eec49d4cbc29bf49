// The settings of the control API, as its endpoint takes them.
#include <gtest/gtest.h>

#include "app/rpc/control_settings.h"
#include "base/text.h"
#include "platform/settings_backend.h"
#include "support/temp_folder.h"

namespace vantlow {
namespace {

class ControlSettings : public testing::Test {
  protected:
    ControlConfig read(const std::vector<std::array<std::u16string, 2>>& stored) {
        Settings settings(
            open_settings_file(folder_.path(u"s" + to_utf16(std::to_string(++files_)) + u".ini")));
        for (const auto& [key, value] : stored) EXPECT_TRUE(settings.write(u"RPC", key, value).ok());
        complaint_.clear();
        return read_control_config(settings, u"", complaint_);
    }

    std::string complaint_;

  private:
    test::TempFolder folder_;
    int files_ = 0;
};

TEST_F(ControlSettings, nothing_is_open_and_what_is_opened_is_open_for_this_machine_and_has_a_secret) {
    EXPECT_FALSE(read({}).enabled);
    const ControlConfig opened = read({{u"Enable", u"1"}});
    EXPECT_TRUE(opened.enabled);
    EXPECT_EQ(complaint_, "");
    EXPECT_EQ(opened.port, 6800);
    EXPECT_EQ(opened.addresses, std::vector<std::string>{"127.0.0.1"});
    EXPECT_EQ(opened.rules.secret.size(), 32U);
    EXPECT_TRUE(opened.rules.origins.empty());
    EXPECT_TRUE(opened.rules.names.empty());
    EXPECT_EQ(opened.largest_request, std::size_t{16} << 20U);
    EXPECT_FALSE(opened.certificate);
    EXPECT_NE(read({{u"Enable", u"1"}}).rules.secret, opened.rules.secret);
}

TEST_F(ControlSettings, addresses_are_listened_at_and_names_are_answered_to) {
    const ControlConfig config = read({{u"Enable", u"1"},
                                       {u"Listen", u"localhost  [::1] 192.168.1.5 nas.lan"},
                                       {u"AllowOrigin", u" https://a.example  http://b.example:81 "},
                                       {u"Secret", u"s"},
                                       {u"Port", u"81"},
                                       {u"RequestSize", u"2048"}});
    EXPECT_EQ(complaint_, "");
    EXPECT_EQ(config.addresses, (std::vector<std::string>{"127.0.0.1", "::1", "192.168.1.5"}));
    EXPECT_EQ(config.rules.names, std::vector<std::string>{"nas.lan"});
    EXPECT_EQ(config.rules.origins, (std::vector<std::string>{"https://a.example", "http://b.example:81"}));
    EXPECT_EQ(config.rules.secret, "s");
    EXPECT_EQ(config.port, 81);
    EXPECT_EQ(config.largest_request, std::size_t{2} << 20U);
    read({{u"Enable", u"1"}, {u"Listen", u"nas.lan"}});
    EXPECT_NE(complaint_, "") << "there is no address";
    for (const auto& [listen, is_let] : {std::pair(u"127.0.0.1 ::1", true),
                                         std::pair(u"127.0.0.1 0.0.0.0", false), std::pair(u"::", false)}) {
        read({{u"Enable", u"1"}, {u"Secret", u"none"}, {u"Listen", listen}});
        EXPECT_EQ(complaint_.empty(), is_let) << complaint_;
    }
}

}  // namespace
}  // namespace vantlow
