// How operations of a storage keep out of each other's way.
#pragma once

#include "storage/storage.h"

namespace vantlow {

/// Many of these may be there at once, but none beside an Alone.
class Storage::Use {
  public:
    explicit Use(Storage& storage) : storage_(storage) {
        MutexLock guard(storage_.mutex_);
        storage_.free_.wait(guard, [this]() VANTLOW_REQUIRES(storage_.mutex_) { return !storage_.alone_; });
        ++storage_.in_hand_;
    }
    ~Use() {
        bool last = false;
        {
            const MutexLock guard(storage_.mutex_);
            last = --storage_.in_hand_ == 0 && storage_.alone_;
        }
        if (last) storage_.free_.notify_all();
    }
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;

  private:
    Storage& storage_;
};

/// Waits until nothing else is in hand and keeps it so. For work of some milliseconds.
class Storage::Alone {
  public:
    explicit Alone(Storage& storage) : storage_(storage) {
        MutexLock guard(storage_.mutex_);
        storage_.free_.wait(guard, [this]() VANTLOW_REQUIRES(storage_.mutex_) { return !storage_.alone_; });
        storage_.alone_ = true;
        storage_.free_.wait(guard,
                            [this]() VANTLOW_REQUIRES(storage_.mutex_) { return storage_.in_hand_ == 0; });
    }
    ~Alone() {
        {
            const MutexLock guard(storage_.mutex_);
            storage_.alone_ = false;
        }
        storage_.free_.notify_all();
    }
    Alone(const Alone&) = delete;
    Alone& operator=(const Alone&) = delete;

  private:
    Storage& storage_;
};

}  // namespace vantlow
