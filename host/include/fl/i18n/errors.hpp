#pragma once

#include <foundation/core/except/Message.hpp>
#include <zorbelhost_export.hpp>

#include <cstdint>
#include <utility>

namespace ZORBEL::fl {

// Code inside ZORBEL says fl::ustring and means the host's text.
using ::fl::ustring;

namespace i18n {

inline constexpr const char* component = "ZORBEL:fl:i18n";

/// A text is not valid Unicode. Arguments: the text as it was given, the place of its first bad code unit
/// counted from 0.
struct ZORBELHOST_EXPORT InvalidText {
    InvalidText(foundation::core::except::MessageArgument text, std::int64_t place)
        : message{component, "InvalidText", {std::move(text), place}}
    {
    }
    foundation::core::except::Message message;
};

} // namespace i18n

} // namespace ZORBEL::fl
