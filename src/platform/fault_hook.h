// What tests put between this folder and the operating system.
#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>

namespace vantlow {

/// What is about to be asked of the system.
enum class Operation {
    // Files and folders. The name is the path as the caller gave it.
    open,
    read,
    write,
    resize,
    flush,
    lock,
    size,
    remove,
    rename,
    mark,     ///< as fetched from the internet
    inspect,  ///< what stands under a name, when it was changed, whether it may be written
    make_folder,
    list_folder,
    // Sockets, TCP and UDP alike, and the frame's.
    make_socket,
    connect,
    connect_end,  ///< what became of a connect
    listen,       ///< binding too
    accept,
    receive,
    send,
    wait,
    own_address,  ///< the addresses of a socket's two ends
    // The rest.
    resolve,         ///< the name is the host
    make_event,      ///< what wakes waits
    start_thread,    ///< fails with a number of <cerrno> on every system
    load_library,    ///< the name is the path
    find_operation,  ///< in a loaded library
    read_setting,    ///< in the system's own store, where it has one; the name is the key
    write_setting,
    tell,           ///< text for a standard stream
    protect,        ///< a secret, where the system encrypts it; and the way back
    dial,           ///< a connection of the system's phone book
    start_process,  ///< the name is the program
    last = start_process
};

/// Asked before each operation, with what it is called by (empty where only a handle is known), and for files
/// with offset and length. Called from any thread. For tests: the program itself sets none.
class FaultHook {
  public:
    FaultHook() = default;
    FaultHook(const FaultHook&) = delete;
    FaultHook& operator=(const FaultHook&) = delete;
    virtual ~FaultHook() = default;
    /// 0 to go on; else nothing is done, and this number of the system is what it failed with.
    virtual int before(Operation operation, std::u16string_view name, std::int64_t offset,
                       std::int64_t length) noexcept = 0;
};

/// Puts a hook in place of the one before; null for none. Comes back when nobody is in the middle of asking
/// the one before, which may go then. Not from within a hook.
void set_fault_hook(FaultHook* hook) noexcept;

extern std::atomic<FaultHook*> current_fault_hook;
int ask_hook_in_place(Operation operation, std::u16string_view name, std::int64_t offset,
                      std::int64_t length) noexcept;

/// The hook's answer; without a hook one load.
inline int ask_hook(Operation operation, std::u16string_view name = {}, std::int64_t offset = 0,
                    std::int64_t length = 0) noexcept {
    if (current_fault_hook.load(std::memory_order_relaxed) == nullptr) [[likely]]
        return 0;
    return ask_hook_in_place(operation, name, offset, length);
}

/// The same for a name in UTF-8: it is converted for a hook only.
int ask_hook(Operation operation, std::string_view utf8_name) noexcept;

}  // namespace vantlow
