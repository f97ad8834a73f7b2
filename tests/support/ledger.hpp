#pragma once

#include "guarded.hpp"

#include <atomic>
#include <curl/curl.h>
#include <ostream>
#include <string>
#include <vector>

namespace support {

/// Records what the program and its libraries hand to libcurl: linked into a test program, it stands before
/// libcurl's curl_easy_init, _setopt, _perform and _cleanup, and calls them.
class ledger {
public:
    struct event {
        std::string text; ///< "NOBODY=1", "URL=ftp://h/", "QUOTE=RNFR a, RNTO b", "READDATA=stdin", "perform",
                          ///< "cleanup"
        CURL* handle;
        CURLoption option{};           ///< none for perform and cleanup
        const void* pointer = nullptr; ///< of a pointer or function, which is a name, "ptr" or "fn" in the text
        friend void PrintTo(const event& what, std::ostream* out) { *out << what.text; }
    };
    static void start() { record->clear(), appended = 0; } ///< Forgets what was recorded so far.
    static std::vector<event> events() { return record.copy(); }
    static std::vector<std::string> lines(); ///< The texts of the events.
    static void fail_append(int nth)
    {
        append_fails = nth;
    } ///< Makes the nth curl_slist_append from now return null.
    static void fail_next_init() { init_fails = true; } ///< Makes the next curl_easy_init return null.

    static inline auto& record = *new guarded<std::vector<event>>; // outlives handles with static storage
    static inline std::atomic<bool> init_fails = false;
    static inline std::atomic<bool> escape_fails = false; ///< Makes the next curl_easy_escape return null.
    static inline std::atomic<int> append_fails = 0;
    static inline std::atomic<int> appended = 0; ///< commands put into lists
    static inline thread_local int inside = 0;   ///< raised while the ledger records, makes a setting or a list
};

} // namespace support
