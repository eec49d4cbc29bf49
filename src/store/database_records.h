// Single records of the job database, for those who write and read more than one kind of file with them: the
// database and its journal. Private to these.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>

#include "store/category.h"
#include "store/field_reader.h"
#include "store/field_writer.h"

namespace vantlow {

/// One whole job record, filed under this category.
void write_job(FieldWriter& out, const CJobNode& job, const Guid& category);
/// A category record up to its jobs, which follow.
void write_category_head(FieldWriter& out, const CClassNode& node, std::size_t jobs);
/// Called behind each category's head: writes its jobs.
using WriteJobs = std::function<void(const CClassNode&)>;
/// A whole database but for the jobs.
void write_categories(FieldWriter& out, const CategoryTree& tree, const WriteJobs& write_jobs);
/// Null when the record is cut short or damaged.
std::unique_ptr<CJobNode> read_job(FieldReader& in);

}  // namespace vantlow
