// `vantlow get` with SSH: the words, the agent, the known hosts of the home folder.
#include <gtest/gtest.h>

#include "platform/file.h"
#include "support/content.h"
#include "support/process_run.h"
#include "support/server_process.h"
#include "support/temp_folder.h"

namespace vantlow::test {
namespace {

const std::string content = make_content(41, 500'000);

TEST(SftpProgram, KeysAgentsAndHostsThatAreNotKnown) {
    if (!Sshd::available()) GTEST_SKIP() << Sshd::missing;
    Sshd server;
    server.documents().write(u"a file.bin", content);
    const std::u16string link = server.url16("a%20file.bin");
    const TempFolder home;
    const TempFolder folder;
    RunOptions options;
    options.folder = folder.path();
    const char* const home_variable = path_separator() == u'/' ? "HOME" : "USERPROFILE";
    options.environment = {{home_variable, home.path()}, {"SSH_AUTH_SOCK", home.path(u"agent")}};
    const std::u16string key = server.key_folder().path(u"id_ed25519");

    const RunResult unknown = run_vantlow({u"get", u"--key", key, link}, options);
    EXPECT_EQ(unknown.status, 6) << unknown.err;
    EXPECT_NE(unknown.err.find("SHA256:"), std::string::npos);
    const RunResult no_key = run_vantlow({u"get", u"--accept-host-key", link}, options);
    EXPECT_EQ(no_key.status, 5) << no_key.err;
    const std::u16string half = server.key_folder().path(u"id_ed25519.pub");
    const RunResult public_key = run_vantlow({u"get", u"--accept-host-key", u"--key", half, link}, options);
    EXPECT_EQ(public_key.status, 5) << public_key.err;
    EXPECT_NE(public_key.err.find("is not a private key"), std::string::npos) << public_key.err;
    // Who could not look whether a server is another one than before must not accept it as a new one.
    const TempFolder other_home;
    ASSERT_TRUE(make_folders(other_home.path(u".ssh/known_hosts")).ok());
    RunOptions unreadable = options;
    unreadable.environment[0].second = other_home.path();
    const RunResult blind = run_vantlow({u"get", u"--accept-host-key", u"--key", key, link}, unreadable);
    EXPECT_EQ(blind.status, 6) << blind.err;
    const RunResult named = run_vantlow({u"get", u"-o", u"named", u"--key", key, link}, options);
    EXPECT_EQ(named.status, 0) << named.err;
    EXPECT_TRUE(file_has(folder.path(u"named"), content));

    // The agents of Windows listen elsewhere, and none of them runs under Wine.
    if (path_separator() != u'/') return;
    RunningProgram agent(u"/usr/bin/ssh-agent", {u"-D", u"-a", home.path(u"agent")});
    RunResult added;
    for (int i = 0; i < 100 && added.status != 0; ++i) {
        added = run_program(u"/usr/bin/ssh-add", {u"-q", key}, options);
        if (added.status != 0) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    ASSERT_EQ(added.status, 0) << added.err;
    const RunResult by_agent = run_vantlow({u"get", link}, options);
    EXPECT_EQ(by_agent.status, 0) << by_agent.err;
    EXPECT_TRUE(file_has(folder.path(u"a file.bin"), content));
}

}  // namespace
}  // namespace vantlow::test
