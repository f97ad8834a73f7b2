#pragma once

#include <mutex>
#include <utility>

namespace support {

/// A value that is only reached under its lock, which is held to the end of the expression or of the access.
template <class T>
class guarded {
public:
    struct access {
        std::unique_lock<std::mutex> lock;
        T* value;
        T* operator->() const { return value; }
    };
    access operator->() const { return {std::unique_lock(mutex_), &value_}; }
    T copy() const { return *operator->().value; }

private:
    mutable std::mutex mutex_;
    mutable T value_;
};

} // namespace support
