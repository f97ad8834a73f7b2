#pragma once

#include <foundation/core/except/Message.hpp>
#include <zorbelhost_export.hpp>

#include <map>
#include <mutex>
#include <string>

namespace foundation::core::except {

/// The message catalogue: the English sentence of every message identifier, with `{0}`, `{1}`, … where the
/// arguments go. One for the process; safe to use from several threads.
class ZORBELHOST_EXPORT Catalogue {
public:
    static Catalogue& instance();

    /// Adds or replaces the sentence of `identifier` (component, colon, key).
    void add(const std::string& identifier, const std::string& sentence);

    /// The message as a sentence. An identifier without a sentence renders as the identifier followed by its
    /// arguments; the text is never empty. UTF-16 arguments are shown in UTF-8; a bad code unit in one of
    /// them, and control bytes in any, are shown escaped, so that a hostile name cannot drive a terminal.
    std::string render(const Message& message) const;

    /// All sentences by identifier.
    std::map<std::string, std::string> entries() const;

private:
    Catalogue();

    mutable std::mutex mutex_;
    std::map<std::string, std::string> sentences_;
};

} // namespace foundation::core::except
