#include <cstdlib>

#include "base/text.h"
#include "platform/process.h"
#include "support/temp_folder.h"

namespace vantlow::test {

OtherHome::OtherHome() : before_(environment("HOME").value_or(u"")) {
    setenv("HOME", folder_.utf8_path().c_str(), 1);
}

OtherHome::~OtherHome() {
    setenv("HOME", to_utf8(before_).c_str(), 1);
}

}  // namespace vantlow::test
