// What the code under test takes of the heap.
#pragma once

#include <cstddef>

namespace vantlow::test {

/// Bytes that this thread has asked for with `new` since it began; nothing is taken off for what was given
/// back.
std::size_t allocated_bytes() noexcept;

}  // namespace vantlow::test
