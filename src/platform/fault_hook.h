// The hook that tests put between this folder and the operating system.
//
// It is handed to a thread, and from there to every thread that this one starts (start_thread) and to the
// works that it gives to a ThreadPool, so a test hands its hook to the part of the program that it tries, and
// its own servers' threads never meet it. It is not handed to each file, socket and function on a path: some
// four hundred places would carry a parameter that has one value in the whole program, and the operations
// that have no object (names, threads, libraries, the phone book) would need a second way.
#pragma once

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
/// only a handle is known) and, for files, offset and length in bytes. It is for tests: the program itself
/// has none.
class FaultHook {
  public:
    FaultHook() = default;
    FaultHook(const FaultHook&) = delete;
    FaultHook& operator=(const FaultHook&) = delete;
    virtual ~FaultHook() = default;
    /// Returns 0 to let the operation go on; any other number makes it fail with that system error, and
    /// nothing is done. Every thread that has the hook may call it.
    virtual int before(Operation operation, std::u16string_view name, std::int64_t offset,
                       std::int64_t length) noexcept = 0;
};

/// The calling thread's hook; null where it has none. Set by HookInPlace alone.
extern constinit thread_local FaultHook* thread_fault_hook;

/// The calling thread has this hook, or none, for as long as it lives; then what it had before. The hook
/// outlives every thread and work that was started under it.
class HookInPlace {
  public:
    explicit HookInPlace(FaultHook* hook) noexcept : before_(thread_fault_hook) { thread_fault_hook = hook; }
    explicit HookInPlace(FaultHook& hook) noexcept : HookInPlace(&hook) {}
    ~HookInPlace() { thread_fault_hook = before_; }
    HookInPlace(const HookInPlace&) = delete;
    HookInPlace& operator=(const HookInPlace&) = delete;

  private:
    FaultHook* const before_;
};

/// Asks the calling thread's hook; where there is none this costs one load.
inline int ask_hook(Operation operation, std::u16string_view name = {}, std::int64_t offset = 0,
                    std::int64_t length = 0) noexcept {
    FaultHook* const hook = thread_fault_hook;
    if (hook == nullptr) [[likely]]
        return 0;
    return hook->before(operation, name, offset, length);
}

/// Asks the hook with a name in UTF-8, which is converted only where there is a hook.
int ask_hook(Operation operation, std::string_view utf8_name) noexcept;

}  // namespace vantlow
