#include "support/fault_hook.h"

namespace vantlow::test {
namespace {

thread_local bool outside = false;

}  // namespace

OutsideOfFaults::OutsideOfFaults() noexcept : before_(outside) {
    outside = true;
}

OutsideOfFaults::~OutsideOfFaults() {
    outside = before_;
}

bool OutsideOfFaults::is_here() noexcept {
    return outside;
}

}  // namespace vantlow::test
