// For the console functions: how one system writes to its streams.
#pragma once

#include <string_view>

#include "platform/console.h"

namespace vantlow {

/// Writes it whole; the system's number of what it failed with, else 0.
int write_to_system(Stream stream, std::string_view text) noexcept;

}  // namespace vantlow
