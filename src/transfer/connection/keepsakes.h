// Things that protocols keep for all connections of the program, without this folder knowing what they are.
#pragma once

#include <map>
#include <memory>
#include <typeindex>

#include "base/mutex.h"

namespace vantlow {

/// The base of something that is kept.
class Keepsake {
  public:
    Keepsake() = default;
    Keepsake(const Keepsake&) = delete;
    Keepsake& operator=(const Keepsake&) = delete;
    virtual ~Keepsake() = default;
};

/// One object of each type, made when it is first asked for. Any thread may call; the objects guard
/// themselves.
class Keepsakes {
  public:
    template <class T>
    T& of() {
        const MutexLock guard(mutex_);
        std::unique_ptr<Keepsake>& kept = kept_[typeid(T)];
        if (!kept) kept = std::make_unique<T>();
        return static_cast<T&>(*kept);
    }

  private:
    Mutex mutex_;
    std::map<std::type_index, std::unique_ptr<Keepsake>> kept_ VANTLOW_GUARDED_BY(mutex_);
};

}  // namespace vantlow
