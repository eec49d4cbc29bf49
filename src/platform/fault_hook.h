// The hook that tests put between this folder and the operating system.
#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>

namespace vantlow {

/// The operation that the system is about to be asked for.
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
    inspect,  ///< the kind of a name, the time of its last change, whether it may be written
    make_folder,
    list_folder,
    // Sockets, TCP and UDP alike, and the frame's.
    make_socket,
    connect,
    connect_end,  ///< the result of a connect
    listen,       ///< binding too
    accept,
    receive,
    send,
    wait,
    own_address,  ///< the addresses of a socket's two ends
    // The rest.
    resolve,         ///< the name is the host
    make_event,      ///< the events that wake waits
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

/// A hook is asked before each operation. It is given the name by which the operation is called (empty where
/// only a handle is known) and, for files, offset and length in bytes. Any thread may call it. It is for
/// tests: the program itself sets none.
class FaultHook {
  public:
    FaultHook() = default;
    FaultHook(const FaultHook&) = delete;
    FaultHook& operator=(const FaultHook&) = delete;
    virtual ~FaultHook() = default;
    /// Returns 0 to let the operation go on; any other number makes it fail with that system error, and
    /// nothing is done.
    virtual int before(Operation operation, std::u16string_view name, std::int64_t offset,
                       std::int64_t length) noexcept = 0;
};

/// Replaces the hook; null takes it away. Returns when no thread is inside the old hook any more, so that it
/// may be destroyed. Not to be called from within a hook.
void set_fault_hook(FaultHook* hook) noexcept;

extern std::atomic<FaultHook*> current_fault_hook;
int ask_hook_in_place(Operation operation, std::u16string_view name, std::int64_t offset,
                      std::int64_t length) noexcept;

/// Asks the hook; where there is none this costs one load.
inline int ask_hook(Operation operation, std::u16string_view name = {}, std::int64_t offset = 0,
                    std::int64_t length = 0) noexcept {
    if (current_fault_hook.load(std::memory_order_relaxed) == nullptr) [[likely]]
        return 0;
    return ask_hook_in_place(operation, name, offset, length);
}

/// Asks the hook with a name in UTF-8, which is converted only where there is a hook.
int ask_hook(Operation operation, std::string_view utf8_name) noexcept;

}  // namespace vantlow
