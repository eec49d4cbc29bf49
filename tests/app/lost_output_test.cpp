// Standard outputs that take nothing: full, closed, or a pipe that nobody reads.
#include <gtest/gtest.h>

#include "store_run.h"
#include "support/file_server.h"

namespace vantlow::test {
namespace {

using LostOutput = StoreRun;

TEST_F(LostOutput, CommandsFailAndDownloadsGoOnAndBothSaySo) {
    if (path_separator() != u'/') GTEST_SKIP() << "no such outputs here";
    FileResource resource{make_content(51, 200'000)};
    FileServer server(resource);
    add({u"--paused", server.url16()});
    const std::u16string program = vantlow_program();
    const std::u16string beginnings[] = {
        u"\"$0\" \"$@\" >/dev/full", u"\"$0\" \"$@\" >&-",
        u"{ sleep 0.2; \"$0\" \"$@\"; echo $? >status; } | true; exit $(cat status)"};
    const struct {
        std::vector<std::u16string> words;
        int status;
    } cases[] = {{{u"--version"}, 1},
                 {{u"get", u"--help"}, 1},
                 {{u"list"}, 1},
                 {{u"settings", u"describe"}, 1},
                 {{u"get", u"-d", folder.path(), server.url16()}, 0}};
    for (const std::u16string& script : beginnings) {
        for (const auto& one : cases) {
            std::vector<std::u16string> words{u"-c", script, program};
            words.insert(words.end(), one.words.begin(), one.words.end());
            const RunResult result = run_program(u"/bin/sh", words, environment());
            SCOPED_TRACE(to_utf8(script) + " " + to_utf8(one.words.back()));
            EXPECT_EQ(result.status, one.status) << result.err;
            EXPECT_NE(result.err.find("The standard output cannot be written: "), std::string::npos)
                << result.err;
        }
        EXPECT_TRUE(file_has(folder.path(u"file.bin"), resource.content));
        EXPECT_TRUE(remove_file(folder.path(u"file.bin")).ok());
    }
}

}  // namespace
}  // namespace vantlow::test
