#include "platform/name_functions.h"

#include "platform/fault_hook.h"
#include "platform/library.h"
#include "platform/local_text.h"
#include "platform/net_headers.h"
#include "platform/win32/native.h"

namespace vantlow {
namespace {

// Only the system's own folder is looked into. The library stays loaded: its operations are kept.
void* find_in_system(std::string_view library, const char* operation) {
    const std::u16string path = Library::system_path(library);
    if (path.empty() || ask_hook(Operation::load_library, path) != 0) return nullptr;
    HMODULE module = LoadLibraryW(wide(path));
    return module == nullptr || ask_hook(Operation::find_operation, operation) != 0
               ? nullptr
               : reinterpret_cast<void*>(GetProcAddress(module, operation));
}

}  // namespace

const NameFunctions& name_functions() noexcept {
    static const NameFunctions functions = choose_name_functions(&find_in_system);
    return functions;
}

bool is_definite_name_error(int error) noexcept {
    return error == WSAHOST_NOT_FOUND || error == WSANO_DATA;
}

std::string name_error_text(int error) {
    return system_text(error);
}

}  // namespace vantlow
