#pragma once

namespace support {

/// Linked into a test program, it stands in for operator new and libcurl's allocator, and fails allocations of
/// one thread.
struct allocator {
    enum mode {
        off,
        once,
        onwards,
        libcurl
    }; ///< operator new: the nth, or all from the nth on; libcurl's: the nth
    static void arm(mode how, long nth, bool settings_too)
    {
        armed = how, left = nth, met = false, fails_settings = settings_too;
    }
    static bool disarm() { return armed = off, met; } ///< Whether an allocation failed.
    static inline thread_local mode armed = off;
    static inline thread_local long left = 0, spared = 0; ///< until one fails; raised where none must
    static inline thread_local bool met = false, fails_settings = true;
};

} // namespace support
