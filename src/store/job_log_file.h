// The log of a job on the disk: "logs/ID.log" in the data folder, so that it outlives the program.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/guid.h"
#include "base/mutex.h"
#include "platform/file.h"
#include "store/job_log.h"

namespace vantlow {

/// Gathers the lines of a running job and appends them to its file. The file of a job that is started often
/// loses its older half when it grows over 512 KiB.
class JobLogFile {
  public:
    JobLogFile(const std::u16string& data_folder, const Guid& job);
    JobLogFile(const JobLogFile&) = delete;
    JobLogFile& operator=(const JobLogFile&) = delete;
    ~JobLogFile() { write(); }

    /// Adds a line; any thread. Beyond 1 MiB of unwritten lines the older half is lost.
    void add(const CLogNode& line);
    /// Appends the gathered lines; one thread at a time. Lines that cannot be written are lost: a log must
    /// not keep a job from running.
    void write();

  private:
    std::u16string path_;
    Mutex mutex_;
    std::string gathered_ VANTLOW_GUARDED_BY(mutex_);
};

/// The form of a line in the file, with its end.
std::string write_log_line(const CLogNode& line);
/// The lines of a file, oldest first; a line that is none is skipped.
std::vector<CLogNode> read_log_lines(std::string_view text);

/// The lines of a job's log, oldest first; none when there is no log.
std::vector<CLogNode> read_job_log(const std::u16string& data_folder, const Guid& job);
void remove_job_log(const std::u16string& data_folder, const Guid& job);

}  // namespace vantlow
