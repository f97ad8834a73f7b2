#pragma once

#include <fl/ustring.hpp>

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace foundation::core::except {

/// One argument of a message; the index of the alternative is the argument's tag (0, 1, 2).
using MessageArgument = std::variant<std::int64_t, std::string, fl::ustring>;

/// What an error or a warning says, before a catalogue has put it into words: which message of which
/// component, and the values that go into its sentence, in order.
struct Message {
    std::string component;
    std::string key;
    std::vector<MessageArgument> arguments;

    /// The full message identifier: component, colon, key.
    std::string identifier() const { return component + ':' + key; }
};

} // namespace foundation::core::except
