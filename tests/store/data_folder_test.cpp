#include "store/data_folder.h"

#include <gtest/gtest.h>

#include "platform/file.h"
#include "support/temp_folder.h"

namespace vantlow {
namespace {

constexpr char16_t backslash = u'\\';

TEST(DataFolder, stands_beside_the_program_unless_a_setting_says_where) {
    EXPECT_EQ(data_folder({u".\\", u"C:\\Apps\\vantlow.exe", u"Ann", {}, backslash}),
              u"C:\\Apps\\Ann's temp");
    EXPECT_EQ(data_folder({u"D:\\Data", u"C:\\Apps\\vantlow.exe", u"Ann", {}, backslash}),
              u"D:\\Data\\Ann's temp");
    EXPECT_EQ(data_folder({u"D:\\Data\\", u"C:\\Apps\\vantlow.exe", u"Ann", {}, backslash}),
              u"D:\\Data\\Ann's temp");
    EXPECT_EQ(data_folder({u"", u"C:\\vantlow.exe", u"", {}, backslash}), u"C:\\'s temp");
    EXPECT_EQ(data_folder({u".\\", u"/opt/app/vantlow", u"ann", {}, u'/'}), u"/opt/app/ann's temp");
    EXPECT_EQ(data_folder({u"./", u"/vantlow", u"../ann", {}, u'/'}), u"/.._ann's temp");
    EXPECT_EQ(data_folder({u"./", u"", u"ann", {}, u'/'}), u"./ann's temp");
}

TEST(DataFolder, goes_to_the_user_only_where_the_programs_folder_is_closed_and_none_was_named) {
    const auto closed = [](const std::u16string&) { return false; };
    std::u16string asked;
    const auto open = [&asked](const std::u16string& folder) {
        asked = folder;
        return true;
    };
    const DataFolderSources standard{u".\\", u"/opt/app/vantlow", u"ann", u"/data/ann", u'/'};
    EXPECT_EQ(writable_data_folder(standard, open), u"/opt/app/ann's temp");
    EXPECT_EQ(asked, u"/opt/app/ann's temp");
    EXPECT_EQ(writable_data_folder(standard, closed), u"/data/ann/vantlow");

    DataFolderSources named = standard;
    named.setting = u"/disk";
    EXPECT_EQ(writable_data_folder(named, closed), u"/disk/ann's temp");
    DataFolderSources homeless = standard;
    homeless.user_data.clear();
    EXPECT_EQ(writable_data_folder(homeless, closed), u"/opt/app/ann's temp");
}

TEST(DataFolder, is_never_where_programs_are_built) {
    const test::TempFolder folder;
    const std::u16string program = folder.path(u"build/bin/vantlow");
    ASSERT_TRUE(make_folders(folder_of(program)).ok());
    EXPECT_FALSE(is_in_build_folder(program));
    folder.write(u"build/CMakeCache.txt", "");
    EXPECT_TRUE(is_in_build_folder(program));
    EXPECT_TRUE(is_in_build_folder(folder.path(u"build/vantlow")));
    EXPECT_FALSE(is_in_build_folder(folder.path(u"build/packages/unpacked/vantlow")));
}

}  // namespace
}  // namespace vantlow
