// What the engine's records say to a person: clients of the engine make the sentences.
#pragma once

#include <string>

#include "app/global_options.h"
#include "engine/draft.h"
#include "engine/run_options.h"

namespace vantlow {

std::string text_of(const DraftFault& fault);
/// Nothing where there is no fault.
Complaint text_of(const ProxyFault& fault);

}  // namespace vantlow
