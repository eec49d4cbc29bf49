// What only this system does to a resident program: it hangs up, and it freezes.
#include <signal.h>
#include <unistd.h>

#include "../store_run.h"

namespace vantlow::test {
namespace {

using namespace std::chrono_literals;

class Resident : public StoreRun {
  protected:
    bool begin(const std::vector<std::u16string>& words) {
        program = std::make_unique<RunningProgram>(vantlow_program(), words, environment());
        return program->wait_for_output("is running");
    }
    pid_t id() const { return static_cast<pid_t>(program->id()); }

    std::unique_ptr<RunningProgram> program;
};

TEST_F(Resident, outlives_its_terminal_and_says_how_it_is_reached) {
    for (const std::vector<std::u16string>& words : {std::vector<std::u16string>{}, {u"serve"}}) {
        ASSERT_TRUE(begin(words));
        const std::string told = program->err();
        EXPECT_EQ(std::count(told.begin(), told.end(), '\n'), 1) << told;
        EXPECT_NE(told.find("process " + std::to_string(id())), std::string::npos) << told;
        EXPECT_NE(told.find(folder.utf8_path("data")), std::string::npos) << told;
        ::kill(id(), SIGHUP);
        ok({u"list"});
        ok({u"quit"});
        EXPECT_EQ(program->wait().status, 0);
    }
    const std::string id_of_job = add({u"http://127.0.0.1:1/x"});
    program = std::make_unique<RunningProgram>(
        vantlow_program(), std::vector<std::u16string>{u"start", to_utf16(id_of_job)}, environment());
    while (state_of(id_of_job) != "running") std::this_thread::sleep_for(10ms);
    ::kill(id(), SIGHUP);
    EXPECT_EQ(program->wait().status, 130) << "a command in the foreground ends with its terminal";
}

TEST_F(Resident, that_is_frozen_is_told_of_and_finds_nothing_to_do_afterwards) {
    ASSERT_TRUE(begin({u"serve"}));
    ::kill(id(), SIGSTOP);
    for (const bool adds : {true, false}) {
        const auto start = std::chrono::steady_clock::now();
        const RunResult result = adds ? run({u"add", u"--paused", u"http://h/a"}) : run({u"quit"});
        const auto took = std::chrono::steady_clock::now() - start;
        EXPECT_EQ(result.status, 1);
        EXPECT_NE(result.err.find("process " + std::to_string(id()) + ") does not answer"), std::string::npos)
            << result.err;
        EXPECT_TRUE(took > 2s && took < 20s) << took / 1ms;
    }
    ::kill(id(), SIGCONT);
    EXPECT_EQ(list().size(), 0U) << "what was said not to be done is not done later";
    ok({u"quit"});
}

}  // namespace
}  // namespace vantlow::test
