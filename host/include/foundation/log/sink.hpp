#pragma once

#include <foundation/log/basic_diagnostic_logger.hpp>

#include <functional>
#include <string>
#include <string_view>

namespace foundation::log {

/// A record as the sink sees it, its text already masked unless masking is off. The views live for the call
/// only.
struct entry {
    level_mask level;
    std::string_view channel;
    unsigned nesting_depth;
    std::string_view file;
    unsigned line;
    std::string_view text;
};

using entry_handler = std::function<void(const entry&)>;

/// Sends every record of the process to `handler`, one at a time; an empty handler brings back the sink of
/// the start, which writes one readable line per record to standard error. What `handler` throws is lost with
/// the record. Returns the handler so far.
ZORBELHOST_EXPORT entry_handler set_entry_handler(entry_handler handler);

/// From now on the sink writes `secret` as asterisks wherever it occurs in a record. Empty text is ignored.
/// Without being told, it masks the arguments of PASS and ACCT commands and of Proxy-Authorization headers in
/// libcurl's records of what it sent.
ZORBELHOST_EXPORT void mask_secret(std::string secret);

/// Switches the masking in the sink off and on. It is on at the start. Off, records hold passwords: for a
/// program that shows them to nobody, or masks by itself.
ZORBELHOST_EXPORT void enable_masking(bool on);

/// `text` with its secrets as asterisks, whether masking is on or not: for what a program prints by itself.
ZORBELHOST_EXPORT std::string masked(std::string_view text);

} // namespace foundation::log
