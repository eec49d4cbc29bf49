// The program on a disk that takes its time: each flush takes as many milliseconds as VANTLOW_SLOW_FLUSH
// says.
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "app/program.h"
#include "base/text.h"
#include "platform/console.h"
#include "platform/fault_hook.h"
#include "platform/process.h"

namespace {

class SlowDisk : public vantlow::FaultHook {
  public:
    explicit SlowDisk(std::chrono::milliseconds time) : time_(time) {}
    int before(vantlow::Operation operation, std::u16string_view, std::int64_t,
               std::int64_t) noexcept override {
        if (operation == vantlow::Operation::flush) std::this_thread::sleep_for(time_);
        return 0;
    }

  private:
    const std::chrono::milliseconds time_;
};

}  // namespace

int main(int argc, char** argv) {
    using namespace vantlow;
    const auto time = parse_decimal(to_utf8(environment("VANTLOW_SLOW_FLUSH").value_or(u"300")));
    SlowDisk disk(std::chrono::milliseconds(time.value_or(300)));
    const HookInPlace in_place(disk);
    prepare_streams();
    std::vector<std::string> words;
    const auto wide = command_line(argc, argv);
    for (std::size_t i = 1; i < wide.size(); ++i) words.push_back(to_utf8(wide[i]));
    return static_cast<int>(run_program(words));
}
