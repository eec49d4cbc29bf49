// Job list files: the list that is written of a list's jobs has the same jobs.
#include "store/job_list.h"
#include "base/text.h"
#include "fuzz.h"

void vantlow::fuzz::run(std::string_view input) {
    const JobList list = read_job_list(bytes_of(input));
    CHECK(list.jobs.size() + list.skipped.size() <= input.size());
    JobListFormat format;
    for (std::size_t i = 0; i < attribute_names.size(); ++i) format.fields.push_back(static_cast<int>(i));
    std::vector<const CJobNode*> jobs;
    for (const auto& job : list.jobs) jobs.push_back(job.get());
    const std::string written = write_job_list(jobs, format);
    const JobList again = read_job_list(bytes_of(written));
    CHECK(again.jobs.size() == list.jobs.size() && again.skipped.empty());
    for (std::size_t i = 0; i < jobs.size(); ++i) {
        // Bytes that are no text are not written.
        const std::u16string& address = list.jobs[i]->address;
        if (to_utf16(to_utf8(address)) == address && is_utf8(to_utf8(address)))
            CHECK(again.jobs[i]->address == address);
        CHECK(again.jobs[i]->connections == list.jobs[i]->connections);
    }
}
