#include "platform/console_capture.h"

namespace vantlow {
namespace {

thread_local ConsoleCapture* current_capture = nullptr;

}  // namespace

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
