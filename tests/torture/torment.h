// Runs a scenario again and again, each time with one operation of the system failing.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <string>
#include <vector>

#include "app/process/ending.h"
#include "platform/fault_hook.h"
#include "support/temp_folder.h"

namespace vantlow::test {

/// What the program said and how it ended.
struct Said {
    Exit status = Exit::done;
    std::string out;
    std::string err;
};

/// The program in this process, on this thread.
Said run_here(const std::vector<std::string>& words);

/// One thing that a person does with the program, in a folder of its own each time.
struct Scenario {
    /// Makes what the person starts from.
    std::function<void(const TempFolder&)> prepare;
    std::function<Said(const TempFolder&)> run;
    /// Looks at what is there afterwards; whether the program said that all went well is in `said`. Failures
    /// of the test are told as usual.
    std::function<void(const TempFolder&, const Said& said)> look;
    /// What the message of a failure names beside the folder's path: a host, for example. One of them will
    /// do.
    std::vector<std::string> subjects{};
    /// Takes so much less of each kind: for what takes long and has much of it.
    int thinner = 1;
};

/// Fails every operation that the scenario asks of the system, one a run; where there are very many of a kind
/// the first ones, and of the others some.
void torment(const Scenario& scenario);

}  // namespace vantlow::test
