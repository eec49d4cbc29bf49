// HTTP as a source of a job's bytes: redirects, statuses, ranges.
#pragma once

#include "transfer/job/source.h"

namespace vantlow {

std::unique_ptr<Source> make_http_source(const SourceContext& context);

}  // namespace vantlow
