#include "platform/thread.h"

#include <system_error>
#include <utility>

#include "platform/fault_hook.h"

namespace vantlow {
namespace {

Result refused(const std::error_code& error) {
    return {Code::transient, "The system gives no further thread: " + error.message(), error.value()};
}

}  // namespace

Result start_thread(std::thread& thread, std::function<void()> work) {
    if (const int error = ask_hook(Operation::start_thread); error != 0)
        return refused({error, std::generic_category()});
    try {
        thread = std::thread(std::move(work));
    } catch (const std::system_error& error) {
        return refused(error.code());
    }
    return {};
}

}  // namespace vantlow
