#include <atomic>

#include "platform/console.h"
#include "platform/fault_hook.h"

namespace vantlow {
namespace {

std::atomic<int> output_failure{0};

thread_local ConsoleCapture* current_capture = nullptr;

}  // namespace

void write_stream(Stream stream, std::string_view text) noexcept {
    int error = ask_hook(Operation::tell);
    if (error == 0) {
        ConsoleCapture* const capture = ConsoleCapture::current();
        if (capture != nullptr) return capture->write(stream, text);
        error = write_to_system(stream, text);
    }
    int none = 0;
    if (error != 0 && stream == Stream::output) output_failure.compare_exchange_strong(none, error);
}

int take_output_failure() noexcept {
    return output_failure.exchange(0);
}

ConsoleCapture::ConsoleCapture(std::string input) : input_(std::move(input)) {
    current_capture = this;
}

ConsoleCapture::~ConsoleCapture() {
    current_capture = nullptr;
}

ConsoleCapture* ConsoleCapture::current() noexcept {
    return current_capture;
}

void ConsoleCapture::write(Stream stream, std::string_view text) {
    (stream == Stream::output ? output_ : error_).append(text);
}

}  // namespace vantlow
