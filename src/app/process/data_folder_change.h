// Another data folder, chosen while jobs stand in the one that is used: they go along.
#pragma once

#include <string>

#include "base/log.h"
#include "platform/file.h"

namespace vantlow {

/// The folder where the jobs are that belong into `chosen`: that folder, or the one that a change which is
/// not carried out yet leaves.
std::u16string folder_of_jobs(const std::u16string& chosen);

/// Notes in the folder `to` that it takes the place of `from` as soon as nobody works on that one, and puts
/// what the job database has been saved as there already. Until then folder_of_jobs(to) is `from`. Done and
/// nothing noted where `to` has a job database of its own, which stays what it is. `from` is the folder of
/// jobs now; both are absolute paths.
FileError announce_data_folder(const std::u16string& from, const std::u16string& to);

/// Takes such a note back: the folder is used for its own jobs.
void keep_data_folder(const std::u16string& folder);

/// Carries such a change out: every file but the lock goes to `to`, all or none (see relocate()). The caller
/// holds the locks of both, and may keep the file `stays` of the old one open (empty: none). On a failure the
/// jobs stay in `from`, or the call is to be repeated. Files of the same name that `to` has already stay.
FileError move_data_folder(const std::u16string& from, const std::u16string& to, const std::u16string& stays,
                           LogSink& log);

}  // namespace vantlow
