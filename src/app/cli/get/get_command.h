// `vantlow get`: fetches now, in this terminal, and ends.
#pragma once

#include "app/cli/command_set.h"
#include "app/cli/job_options.h"

namespace vantlow {

/// The word `get` with its options.
void add_get_command(CommandSet& commands);

/// The options that describe a job, for every command that makes one.
void add_job_options(CLI::App& word, GetOptions& options);

/// What is wrong with options that name one file while several links are meant.
Complaint check_job_options(const GetOptions& options);

/// Runs the whole command. The application's settings get the command's overrides; its stop is requested by
/// Ctrl-C.
Exit run_get(CFerrywellApp& app, const GlobalOptions& global, const GetOptions& options);

}  // namespace vantlow
