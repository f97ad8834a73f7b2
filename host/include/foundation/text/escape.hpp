#pragma once

#include <zorbelhost_export.hpp>

#include <string>
#include <string_view>

namespace foundation::text {

/// `text` as UTF-8 that is safe on a terminal: control characters (C0, DEL and C1) and whatever is not valid
/// Unicode are written as a backslash, "x" and two digits for a byte, "u" and four for a UTF-16 code unit.
ZORBELHOST_EXPORT std::string escape(std::string_view text);
ZORBELHOST_EXPORT std::string escape(std::u16string_view text);

} // namespace foundation::text
