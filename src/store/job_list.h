// Job list files: the jobs of a category as delimited text, and back. These functions turn bytes into records
// and records into bytes; their callers read and write the file.
#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "store/job.h"

namespace vantlow {

/// The layout of a job list.
struct JobListFormat {
    std::u16string text_delimiter = u"\"";
    std::u16string column_delimiter = u",";
    std::vector<int>
        fields;  ///< indices into attribute_names, in the order of the columns; others are skipped
};

/// The index of an extra column, letter case ignored; -1 when there is no such column.
int job_list_field(std::u16string_view name) noexcept;

/// The whole file, in the system's ANSI code page: three header lines, then a line for each job, every line
/// ended by CR LF. A text delimiter inside a value is doubled. In a comment every line break becomes "\n"
/// (two characters), in other values a blank.
std::string write_job_list(std::span<const CJobNode* const> jobs, const JobListFormat& format);

struct JobListNote {
    std::size_t line = 0;  ///< from 1 on
    std::string text;      ///< UTF-8
};

/// The contents of a job list file.
struct JobList {
    std::vector<std::unique_ptr<CJobNode>> jobs;
    std::vector<JobListNote> skipped;  ///< lines that gave no job, with the reason
    std::vector<JobListNote> notes;    ///< lines with a part that was left out, with its name
};

/// The text of a list as people's programs write it: UTF-8 with or without a byte order mark, UTF-16LE with
/// one, else the ANSI code page.
std::u16string list_text(std::span<const std::byte> bytes);

/// Reads a job list, or a plain list of links without header. The text is list_text(); either line end.
/// Columns of the header that this program does not know are left out; where columns or values are missing,
/// jobs keep their defaults. A job has no identity yet; it has as many empty segments as connections; its
/// path is its folder, with a separator, or empty where the list names no absolute folder.
JobList read_job_list(std::span<const std::byte> bytes);

}  // namespace vantlow
