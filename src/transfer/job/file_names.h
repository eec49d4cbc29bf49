// The names that a job's file has on its way.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "base/safe_name.h"  // the suffixes of unfinished files

namespace vantlow {

/// What is put behind the name of a file whose hash is not the one that was asked for.
inline constexpr std::u16string_view wrong_hash_suffix = u".wrong-hash";

/// A free name for `name`: "(N)" between base name and extension, N from 1 on, or from the number that the
/// base name already ends in. `is_taken` tells which names are not free.
std::u16string free_name(std::u16string_view name,
                         const std::function<bool(const std::u16string&)>& is_taken);

}  // namespace vantlow
