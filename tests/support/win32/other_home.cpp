#include <windows.h>

#include "platform/process.h"
#include "support/temp_folder.h"

namespace vantlow::test {
namespace {

void set_home(const std::u16string& folder) {
    SetEnvironmentVariableW(L"USERPROFILE", reinterpret_cast<const wchar_t*>(folder.c_str()));
}

}  // namespace

OtherHome::OtherHome() : before_(environment("USERPROFILE").value_or(u"")) {
    set_home(folder_.path());
}

OtherHome::~OtherHome() {
    set_home(before_);
}

}  // namespace vantlow::test
