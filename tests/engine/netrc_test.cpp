#include "engine/netrc.h"

#include <gtest/gtest.h>

#include "base/text.h"
#include "engine/job_maker.h"

namespace vantlow {
namespace {

// "login/password" of the answer, "-" for none.
std::string answer(std::string_view text, std::string_view host, std::string_view login = {}) {
    const auto found = find_netrc(parse_netrc(text), host, login);
    return found ? found->login + "/" + found->password : "-";
}

TEST(Netrc, FindsTheEntryOfTheHost) {
    constexpr std::string_view two = "machine a login u password p\nmachine b login v password q\n";
    constexpr std::string_view users =
        "machine a login u password p machine a login v password q\n"
        "machine b password r\ndefault login anonymous password me@";
    const struct {
        std::string_view text, host, login, expected;
    } cases[] = {
        {"", "a", "", "-"},
        {two, "a", "", "u/p"},
        {two, "B", "", "v/q"},
        {two, "b.", "", "v/q"},
        {two, "a.b", "", "-"},
        {two, "", "", "-"},
        {users, "a", "", "u/p"},
        {users, "a", "v", "v/q"},
        {users, "a", "V", "-"},
        {users, "a", "anonymous", "anonymous/me@"},
        {users, "b", "w", "w/r"},
        {users, "c", "", "anonymous/me@"},
        {users, "c", "root", "-"},
        // The file's order decides, and an entry without credentials keeps the default from being used.
        {"default login d password e machine a login u password p", "a", "", "d/e"},
        {"machine a default login d password e", "a", "", "/"},
    };
    for (const auto& entry : cases) {
        EXPECT_EQ(answer(entry.text, entry.host, entry.login), entry.expected)
            << entry.text << " for " << entry.login << " at " << entry.host;
    }
}

TEST(Netrc, ReadsEveryWayOfWriting) {
    const std::string_view same[] = {
        "machine\n\ta\n\tlogin\n\tu\n\tpassword\n\tp#1",
        "\xEF\xBB\xBFmachine a\r\nlogin u\r\npassword p#1\r\n",
        "# machine a login x password y\nmachine a # login x\nlogin u password p#1 # password y",
        "machine a login # the name stands below\nx login u\npassword\n# not this\np#1",
        "MACHINE a Login u account machine password p#1",
        "login x password y machine a port 21 login u password p#1",
        "machine \"a\" login \"u\" \"password\" password \"p#1",
        "macdef init\nmachine a login x password y\n\nmachine a login u password p#1",
        "machine a login u\nmacdef init\r\n cd /pub\r\npassword y\r\n\r\npassword p#1",
        "machine b login x password y macdef m\n\nmachine a login u password p#1 macdef n\nbin\npassword y",
    };
    for (const std::string_view text : same) EXPECT_EQ(answer(text, "a"), "u/p#1") << text;
    const std::string_view passwords[][2] = {
        {"#secret", "#secret"},
        {R"("two words" x)", "two words"},
        {R"("\"\\\n\t\x")", "\"\\\n\tx"},
        {R"(back\slash)", R"(back\slash)"},
        {R"(mid"dle")", R"(mid"dle")"},
        {R"("")", ""},
        {"login", "login"},
        {"\xC3\xA4\xFF", "\xC3\xA4\xFF"},
        {R"("cut\)", R"(cut\)"},
    };
    for (const auto& [written, meant] : passwords) {
        EXPECT_EQ(answer("machine a login u password " + std::string(written), "a"),
                  "u/" + std::string(meant))
            << written;
    }
}

TEST(Netrc, BrokenAndHugeFilesEndInWhatIsThere) {
    for (const std::string_view text :
         {"machine", "machine a login", "machine a password \"", "macdef", "macdef x\n", "#", "\"",
          "machine a macdef x", "machine a password \"\\", "machine \"a", "account"}) {
        const Netrc entries = parse_netrc(text);
        EXPECT_EQ(entries.size(), text.starts_with("machine ") ? 1U : 0U) << text;
        for (const NetrcEntry& entry : entries)
            EXPECT_TRUE(entry.machine == "a" && entry.login.empty()) << text;
    }
    std::string many;
    for (std::size_t i = 0; i < most_netrc_entries; ++i) many += "machine a login u password p ";
    EXPECT_EQ(parse_netrc(many + "machine last password x").size(), most_netrc_entries);
    EXPECT_EQ(parse_netrc(many + "default password x").back().password, "p");
}

TEST(Netrc, FillsInTheHalfThatIsMissing) {
    constexpr std::string_view file = "machine h login ann password a1 machine h login bob password b1";
    const struct {
        const char *user, *password, *address, *expected;
    } cases[] = {
        {"", "", "http://h/x", "ann/a1"},      {"bob", "", "http://h/x", "bob/b1"},
        {"eve", "", "http://h/x", "eve/"},     {"bob", "own", "http://h/x", "bob/own"},
        {"", "own", "http://h/x", "ann/own"},  {"", "", "http://bob@h/x", "bob/b1"},
        {"", "own", "http://bob@h/x", "/own"}, {"eve", "own", "http://bob@h/x", "bob/b1"},
        {"", "", "http://bob:x@h/x", "/"},     {"", "", "ftp://other/x", "/"},
    };
    for (const auto& one : cases) {
        JobDraft draft;
        draft.folder = u"/nowhere/";
        draft.user = to_utf16(one.user);
        draft.password = to_utf16(one.password);
        JobMaker maker(draft, [&](const std::string& host, const std::string& login) {
            return find_netrc(parse_netrc(file), host, login);
        });
        const MadeJobs made = maker.make(one.address);
        ASSERT_EQ(made.jobs.size(), 1U);
        EXPECT_EQ(to_utf8(made.jobs[0]->user + u"/" + made.jobs[0]->password), one.expected)
            << one.user << " " << one.address;
    }
}

}  // namespace
}  // namespace vantlow
