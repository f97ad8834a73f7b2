// Rules for the text of paths and lists. The first byte says how much of what is behind it parts the rest.
#include "fuzz.hpp"
#include <zorbel/io/ftp/core.hpp>
using namespace zorbel::io::ftp::core;
static bool is_split(const std::vector<std::string_view>& pieces, std::string_view text,
                     const std::string& delimiter)
{
    std::string joined;
    for (const std::string_view piece : pieces)
        require(piece.find(delimiter) == none), joined.append(piece).append(delimiter);
    return joined == std::string(text) + delimiter;
}
static void fuzz(std::string_view input)
{
    static curl_ptr c(false);
    constexpr auto allowed = "%-.0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ_abcdefghijklmnopqrstuvwxyz~";
    const std::string text(input), encoded = percent_encode(c, text), decoded = percent_decode(c, text);
    std::string path = percent_encode_path(c, text), plain = text;
    require(encoded.find_first_not_of(allowed) == none && percent_decode(c, encoded) == text &&
            percent_decode(c, path) == text);
    require(std::erase(path, '/') == std::erase(plain, '/') && path.find_first_not_of(allowed) == none);
    require(decoded.size() <= text.size() && percent_decode(c, percent_encode(c, decoded)) == decoded);
    require(add_trailing_slash(text) == text + (text.empty() || text.ends_with('/') ? "" : "/"));
    const std::string rest(input.substr(!input.empty())),
        delimiter = rest.substr(0, static_cast<unsigned char>(text[0]) % 4);
    require(is_split(parse_nlst_listing(text), text, "\n") &&
            (delimiter.empty() || is_split(split_string(rest, delimiter), rest, delimiter)));
}
