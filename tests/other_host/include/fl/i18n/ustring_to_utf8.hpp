#pragma once

#include <fl/ustring.hpp>
#include <other_host.hpp>

namespace fl::i18n {

/// Knows characters of up to two bytes; throws `std::range_error` for others.
OTHER_HOST std::string ustring_to_utf8(const ustring& text);

} // namespace fl::i18n
