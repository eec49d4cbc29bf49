// `vantlow get`: fetches now, in this terminal, and ends.
#pragma once

#include "app/command_set.h"
#include "app/get_options.h"
#include "app/job_factory.h"
#include "transfer/job/main_thread.h"

namespace vantlow {

/// The word `get` with its options.
void add_get_command(CommandSet& commands);

/// The options that describe a job, for every command that makes one.
void add_job_options(CLI::App& word, GetOptions& options);

/// What is wrong with options that name one file while several links are meant.
Complaint check_job_options(const GetOptions& options);

/// What the options say of a job's run: its proxy, and the hash of its file.
Complaint read_run_options(const GetOptions& options, RunOptions& run);

/// The links of the words and of the file that --input names.
Complaint read_links(const GetOptions& options, std::vector<std::string>& links);

/// The user's .netrc, read when the first job asks for it.
CredentialLookup netrc_lookup();

/// Runs the whole command. The application's settings get the command's overrides; its stop is requested by
/// Ctrl-C.
Exit run_get(CFerrywellApp& app, const GlobalOptions& global, const GetOptions& options);

}  // namespace vantlow
