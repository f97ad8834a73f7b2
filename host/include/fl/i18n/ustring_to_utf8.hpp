#pragma once

#include <fl/ustring.hpp>
#include <zorbelhost_export.hpp>

#include <string>
#include <string_view>

namespace fl::i18n {

/// UTF-16 to UTF-8, strictly: an unpaired surrogate is an error, never a replacement character.
/// Throws `ZORBEL::fl::i18n::InvalidText`, naming the place of the first bad code unit.
ZORBELHOST_EXPORT std::string ustring_to_utf8(const ustring& text);

/// UTF-8 to UTF-16, as strictly: overlong forms, surrogates and cut sequences are errors.
/// Throws `ZORBEL::fl::i18n::InvalidText`.
ZORBELHOST_EXPORT ustring utf8_to_ustring(std::string_view text);

} // namespace fl::i18n
