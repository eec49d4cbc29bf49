#include "platform/associations.h"

#include <gtest/gtest.h>
#include <windows.h>

#include "base/codes.h"
#include "platform/process.h"
#include "support/fault_hook.h"

namespace vantlow {
namespace {

constexpr const wchar_t* magnet = L"Software\\Classes\\magnet";
constexpr const wchar_t* magnet_icon = L"Software\\Classes\\magnet\\DefaultIcon";
constexpr const wchar_t* magnet_command = L"Software\\Classes\\magnet\\shell\\open\\command";
constexpr const wchar_t* torrent_files = L"Software\\Classes\\.torrent";

// What is the user's in the registry, is a key of the test's own for as long as it lives.
class Associations : public testing::Test {
  protected:
    void SetUp() override {
        unsigned char random[16];
        random_guid(random);
        name_ = L"Software\\Vantlow Test ";
        for (const char c : to_hex(std::as_bytes(std::span(random)))) name_ += static_cast<wchar_t>(c);
        HKEY key = nullptr;
        ASSERT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, name_.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                                  &key, nullptr),
                  ERROR_SUCCESS);
        ASSERT_EQ(RegOverridePredefKey(HKEY_CURRENT_USER, key), ERROR_SUCCESS);
        RegCloseKey(key);
    }
    ~Associations() override {
        RegOverridePredefKey(HKEY_CURRENT_USER, nullptr);
        RegDeleteTreeW(HKEY_CURRENT_USER, name_.c_str());
    }
    static void set(const wchar_t* key, const std::wstring& text, const wchar_t* name = nullptr) {
        const auto size = static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t));
        ASSERT_EQ(RegSetKeyValueW(HKEY_CURRENT_USER, key, name, REG_SZ, text.c_str(), size), ERROR_SUCCESS);
    }
    // A text, the default one where no name is given; "-": none.
    static std::wstring value(const wchar_t* key, const wchar_t* name = nullptr) {
        std::wstring text(1000, L'\0');
        auto size = static_cast<DWORD>(text.size() * sizeof(wchar_t));
        const LSTATUS error =
            RegGetValueW(HKEY_CURRENT_USER, key, name, RRF_RT_REG_SZ, nullptr, text.data(), &size);
        return error == ERROR_SUCCESS ? text.substr(0, text.find(L'\0')) : std::wstring(L"-");
    }
    static DWORD values_in(const wchar_t* name) {
        HKEY key = nullptr;
        DWORD count = 0;
        if (RegOpenKeyExW(HKEY_CURRENT_USER, name, 0, KEY_READ, &key) != ERROR_SUCCESS) return 0;
        RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &count, nullptr, nullptr,
                         nullptr, nullptr);
        RegCloseKey(key);
        return count;
    }
    static bool has(const wchar_t* name) {
        HKEY key = nullptr;
        const bool there = RegOpenKeyExW(HKEY_CURRENT_USER, name, 0, KEY_READ, &key) == ERROR_SUCCESS;
        if (there) RegCloseKey(key);
        return there;
    }

  private:
    std::wstring name_;
};

TEST_F(Associations, AreMadeAndWhatWasBeforeComesBack) {
    set(torrent_files, L"Other");
    ASSERT_TRUE(associate(Association::magnet_links, u"C:\\a b\\vantlow.exe").ok());
    ASSERT_TRUE(associate(Association::torrent_files, u"C:\\a b\\vantlow.exe").ok());
    ASSERT_TRUE(associate(Association::torrent_files, u"C:\\moved\\vantlow.exe").ok());
    EXPECT_EQ(value(magnet_command), L"\"C:\\a b\\vantlow.exe\" \"%1\"");
    EXPECT_EQ(value(torrent_files), L"Vantlow");
    EXPECT_EQ(value(L"Software\\Classes\\Vantlow\\shell\\open\\command"),
              L"\"C:\\moved\\vantlow.exe\" \"%1\"");
    ASSERT_TRUE(dissociate(Association::magnet_links).ok());
    ASSERT_TRUE(dissociate(Association::torrent_files).ok());
    ASSERT_TRUE(dissociate(Association::ed2k_links).ok()) << "which never was";
    EXPECT_EQ(value(torrent_files), L"Other");
    EXPECT_FALSE(has(magnet));
    RegDeleteTreeW(HKEY_CURRENT_USER, torrent_files);
    ASSERT_TRUE(associate(Association::torrent_files, u"C:\\vantlow.exe").ok());
    ASSERT_TRUE(dissociate(Association::torrent_files).ok());
    EXPECT_FALSE(has(torrent_files)) << "nothing had been in it";
    EXPECT_FALSE(has(L"Software\\Classes\\Vantlow"));
}

TEST_F(Associations, AnotherProgramsKeyIsGivenBackAsItWas) {
    set(magnet, L"URL:Other");
    set(magnet, L"x", L"URL Protocol");
    set(magnet_icon, L"other.exe,1");
    set(magnet_command, L"other %1");
    ASSERT_TRUE(associate(Association::magnet_links, u"C:\\vantlow.exe").ok());
    ASSERT_TRUE(associate(Association::magnet_links, u"C:\\moved\\vantlow.exe").ok());
    EXPECT_EQ(value(magnet), L"URL:Other");
    EXPECT_EQ(value(magnet, L"URL Protocol"), L"");
    EXPECT_EQ(value(magnet_icon), L"C:\\moved\\vantlow.exe,0");
    ASSERT_TRUE(dissociate(Association::magnet_links).ok());
    EXPECT_EQ(value(magnet), L"URL:Other");
    EXPECT_EQ(value(magnet, L"URL Protocol"), L"x");
    EXPECT_EQ(value(magnet_icon), L"other.exe,1");
    EXPECT_EQ(value(magnet_command), L"other %1");
    EXPECT_EQ(values_in(magnet), 2U) << "no memory of it is left";
    EXPECT_EQ(values_in(magnet_icon), 1U);
    EXPECT_EQ(values_in(magnet_command), 1U);
}

TEST_F(Associations, AProgramThatCameLaterKeepsTheLinks) {
    ASSERT_TRUE(associate(Association::magnet_links, u"C:\\vantlow.exe").ok());
    set(magnet_command, L"later %1");
    set(L"Software\\Classes\\magnet\\shell\\print\\command", L"printer %1");
    ASSERT_TRUE(dissociate(Association::magnet_links).ok());
    EXPECT_EQ(value(magnet_command), L"later %1");
    EXPECT_EQ(value(L"Software\\Classes\\magnet\\shell\\print\\command"), L"printer %1");
    EXPECT_EQ(value(magnet, L"URL Protocol"), L"") << "which the later program needs";
    EXPECT_FALSE(has(magnet_icon));
}

TEST_F(Associations, AFailureIsToldAndAnotherTryEndsIt) {
    for (const Association kind : {Association::magnet_links, Association::torrent_files}) {
        const bool files = kind == Association::torrent_files;
        const wchar_t* const key = files ? torrent_files : magnet_command;
        int broken = 0;
        for (bool reached = true; reached; ++broken) {
            SCOPED_TRACE(std::to_string(files) + " " + std::to_string(broken));
            set(key, L"other %1");
            ASSERT_TRUE(associate(kind, u"C:\\vantlow.exe").ok());
            test::FailNth fault(Operation::write_setting, broken + 1, FileFault::access);
            {
                const HookInPlace in_place(fault);
                reached = !dissociate(kind).ok();
            }
            EXPECT_EQ(reached, fault.failed() == 1);
            EXPECT_TRUE(dissociate(kind).ok());
            EXPECT_EQ(value(key), L"other %1");
        }
        EXPECT_EQ(broken, files ? 5 : 11) << "each change, and a time without a failure";
    }
}

}  // namespace
}  // namespace vantlow
