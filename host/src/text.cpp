#include <fl/i18n/errors.hpp>
#include <fl/i18n/ustring_to_utf8.hpp>
#include <foundation/core/except/Exception.hpp>
#include <foundation/text/escape.hpp>

#include <boost/locale/utf.hpp>

#include <cstdint>
#include <iterator>
#include <type_traits>

namespace utf = boost::locale::utf;

namespace {

bool is_valid(utf::code_point point)
{
    return point != utf::illegal && point != utf::incomplete;
}

/// Controls of the writing direction (UAX #9): with them, a name can look like another.
bool turns_text(utf::code_point point)
{
    return point == 0x061C || point == 0x200E || point == 0x200F || (point >= 0x202A && point <= 0x202E) ||
           (point >= 0x2066 && point <= 0x2069);
}

template <class Out, class In>
std::basic_string<Out> convert(std::basic_string_view<In> text)
{
    std::basic_string<Out> result;
    result.reserve(text.size());
    const In* const end = text.data() + text.size();
    for (const In* next = text.data(); next != end;) {
        const auto place = next - text.data();
        const utf::code_point point = utf::utf_traits<In>::decode(next, end);
        if (!is_valid(point)) {
            foundation::core::except::raise<ZORBEL::fl::i18n::InvalidText>(std::basic_string<In>(text),
                                                                           std::int64_t{place});
        }
        utf::utf_traits<Out>::encode(point, std::back_inserter(result));
    }
    return result;
}

void append_hex(std::string& out, char mark, unsigned value, unsigned digits)
{
    static constexpr std::string_view hex = "0123456789abcdef";
    out += '\\';
    out += mark;
    while (digits-- > 0) {
        out += hex[(value >> (4 * digits)) & 0xFU];
    }
}

template <class In>
std::string escape_all(std::basic_string_view<In> text)
{
    constexpr bool narrow = sizeof(In) == 1;
    std::string result;
    result.reserve(text.size());
    const In* const end = text.data() + text.size();
    for (const In* next = text.data(); next != end;) {
        const In* const start = next;
        const utf::code_point point = utf::utf_traits<In>::decode(next, end);
        if (!is_valid(point)) {
            // Decoding may have swallowed the sound start of the next character: one unit is given up at a
            // time.
            next = start + 1;
            const auto unit = static_cast<std::make_unsigned_t<In>>(*start);
            append_hex(result, narrow ? 'x' : 'u', unit, narrow ? 2 : 4);
        } else if (point < 0x20 || (point >= 0x7F && point < 0xA0)) {
            append_hex(result, 'x', point, 2);
        } else if (turns_text(point)) {
            append_hex(result, 'u', point, 4);
        } else {
            utf::utf_traits<char>::encode(point, std::back_inserter(result));
        }
    }
    return result;
}

} // namespace

namespace fl::i18n {

std::string ustring_to_utf8(const ustring& text)
{
    return convert<char>(std::u16string_view(text));
}

ustring utf8_to_ustring(std::string_view text)
{
    return convert<char16_t>(text);
}

} // namespace fl::i18n

namespace foundation::text {

std::string escape(std::string_view text)
{
    return escape_all(text);
}

std::string escape(std::u16string_view text)
{
    return escape_all(text);
}

} // namespace foundation::text
