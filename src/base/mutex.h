// Locks that say which data they guard, so that clang's thread-safety analysis (tools/lint) can hold
// everybody to it.
#pragma once

#include <condition_variable>
#include <mutex>
#include <utility>

// The attributes of clang's documentation ("Thread Safety Analysis"); nothing for other compilers.
#if defined(__clang__)
#define VANTLOW_THREAD_ATTRIBUTE(attribute) __attribute__((attribute))
#else
#define VANTLOW_THREAD_ATTRIBUTE(attribute)
#endif

/// A class whose objects are locks.
#define VANTLOW_CAPABILITY(kind) VANTLOW_THREAD_ATTRIBUTE(capability(kind))
/// A class whose objects hold a lock as long as they live.
#define VANTLOW_SCOPED_CAPABILITY VANTLOW_THREAD_ATTRIBUTE(scoped_lockable)
/// A datum that is read and written with this lock held only.
#define VANTLOW_GUARDED_BY(lock) VANTLOW_THREAD_ATTRIBUTE(guarded_by(lock))
/// A function that is called with these locks held.
#define VANTLOW_REQUIRES(...) VANTLOW_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
/// A function that returns with the lock held.
#define VANTLOW_ACQUIRE(...) VANTLOW_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
/// A function that gives the lock back.
#define VANTLOW_RELEASE(...) VANTLOW_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
/// A function that the analysis leaves alone, since it gives back a lock of its caller's and takes it again.
#define VANTLOW_NO_ANALYSIS VANTLOW_THREAD_ATTRIBUTE(no_thread_safety_analysis)
/// A function that returns the first argument where it got the lock.
#define VANTLOW_TRY_ACQUIRE(...) VANTLOW_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))

namespace vantlow {

/// std::mutex under the analysis. Held for a few instructions, never together with another one nor across a
/// socket, a file or a callback. Any thread may call; the one that locks unlocks.
class VANTLOW_CAPABILITY("mutex") Mutex {
  public:
    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void lock() VANTLOW_ACQUIRE() { mutex_.lock(); }
    void unlock() VANTLOW_RELEASE() { mutex_.unlock(); }
    /// True when the lock was free and is the caller's now.
    bool try_lock() VANTLOW_TRY_ACQUIRE(true) { return mutex_.try_lock(); }

  private:
    friend class Condition;
    std::mutex mutex_;
};

/// Holds a Mutex or a BusyLock from here to the end of the scope. It may be given back and taken again in
/// between. A Condition waits with it, or a StopCondition where a stop ends the wait; the waiting predicate is a
/// lambda that VANTLOW_REQUIRES the lock.
template <class Lock>
class VANTLOW_SCOPED_CAPABILITY MutexLock {
  public:
    explicit MutexLock(Lock& lock) VANTLOW_ACQUIRE(lock) : lock_(lock) { lock_.lock(); }
    ~MutexLock() VANTLOW_RELEASE() {
        if (held_) lock_.unlock();
    }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

    void lock() VANTLOW_ACQUIRE() {
        lock_.lock();
        held_ = true;
    }
    void unlock() VANTLOW_RELEASE() {
        held_ = false;
        lock_.unlock();
    }

  private:
    friend class Condition;
    Lock& lock_;
    bool held_ = true;
};

/// std::condition_variable for a Mutex: unlike std::condition_variable_any it brings no second mutex of its
/// own, which every wait and every notification would take besides.
class Condition {
  public:
    void notify_one() noexcept { condition_.notify_one(); }
    void notify_all() noexcept { condition_.notify_all(); }

    /// Waits, with the lock given back meanwhile, until `is_so` holds.
    template <class Predicate>
    void wait(MutexLock<Mutex>& guard, Predicate is_so) {
        Held held(guard);
        condition_.wait(held.lock, std::move(is_so));
    }
    /// The same for at most this time; returns what `is_so` says at the end.
    template <class Duration, class Predicate>
    bool wait_for(MutexLock<Mutex>& guard, const Duration& at_most, Predicate is_so) {
        Held held(guard);
        return condition_.wait_for(held.lock, at_most, std::move(is_so));
    }

  private:
    // Lends the guard's mutex to the standard's lock and takes it back, locked as it was.
    struct Held {
        explicit Held(MutexLock<Mutex>& guard) : lock(guard.lock_.mutex_, std::adopt_lock) {}
        Held(const Held&) = delete;
        Held& operator=(const Held&) = delete;
        ~Held() { lock.release(); }
        std::unique_lock<std::mutex> lock;
    };
    std::condition_variable condition_;
};

}  // namespace vantlow
