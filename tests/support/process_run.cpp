#include "support/process_run.h"

#include <stdexcept>

#include "base/text.h"
#include "platform/process.h"

namespace vantlow::test {

RunningProgram::RunningProgram(const std::u16string& program, const std::vector<std::u16string>& arguments,
                               const RunOptions& options)
    : backend_(ProcessBackend::start(program, arguments, options)) {
    for (int stream = 0; stream < 2; ++stream) {
        outputs_[stream].reader = std::thread([this, stream] { collect(stream); });
    }
    writer_ = std::thread([this, input = options.input] { backend_->write_input(input); });
}

RunningProgram::~RunningProgram() {
    backend_->kill();
    backend_->wait(std::chrono::seconds(10));
    join();
}

void RunningProgram::join() {
    for (Output& output : outputs_) {
        if (output.reader.joinable()) output.reader.join();
    }
    if (writer_.joinable()) writer_.join();
}

void RunningProgram::collect(int stream) {
    for (std::string bytes = backend_->read(stream); !bytes.empty(); bytes = backend_->read(stream)) {
        const std::lock_guard guard(mutex_);
        outputs_[stream].text += bytes;
        changed_.notify_all();
    }
}

std::string RunningProgram::text(int stream) const {
    const std::lock_guard guard(mutex_);
    return outputs_[stream].text;
}

bool RunningProgram::wait_for_output(std::string_view text, std::chrono::milliseconds at_most) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, at_most, [&] {
        return outputs_[0].text.find(text) != std::string::npos ||
               outputs_[1].text.find(text) != std::string::npos;
    });
}

RunResult RunningProgram::wait(std::chrono::milliseconds at_most) {
    RunResult result;
    auto status = backend_->wait(at_most);
    if (!status) {
        result.timed_out = true;
        backend_->kill();
        status = backend_->wait(std::chrono::seconds(10));
    }
    join();
    result.status = status.value_or(-1);
    result.out = text(0);
    result.err = text(1);
    return result;
}

RunResult run_program(const std::u16string& program, const std::vector<std::u16string>& arguments,
                      const RunOptions& options) {
    RunningProgram running(program, arguments, options);
    return running.wait(options.at_most);
}

std::u16string vantlow_program() {
    if (auto named = environment("VANTLOW_PROGRAM"); named && !named->empty()) return *named;
#ifdef VANTLOW_PROGRAM
    return to_utf16(VANTLOW_PROGRAM);
#else
    throw std::runtime_error("VANTLOW_PROGRAM does not name the program under test");
#endif
}

RunResult run_vantlow(const std::vector<std::u16string>& arguments, const RunOptions& options) {
    return run_program(vantlow_program(), arguments, options);
}

}  // namespace vantlow::test
