#include "columns.hpp"

#include <clocale>
#include <cwchar>
#include <vector>

#include <sys/ioctl.h>

namespace qrftp::cli {

namespace {

/// Characters are those of UTF-8 on this thread while it lives.
class utf8_locale {
public:
    utf8_locale()
    {
        static const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
        saved_ = uselocale(utf8); // A null one, where the system lacks it, changes nothing.
    }
    ~utf8_locale() { uselocale(saved_); }
    utf8_locale(const utf8_locale&) = delete;
    utf8_locale& operator=(const utf8_locale&) = delete;

private:
    locale_t saved_;
};

struct character {
    std::string_view bytes;
    std::size_t width;
};

std::vector<character> split(std::string_view text)
{
    const utf8_locale scope;
    std::vector<character> found;
    while (!text.empty()) {
        wchar_t code = 0;
        std::mbstate_t state{};
        // NOLINTNEXTLINE(concurrency-mt-unsafe): the state is not the shared one
        std::size_t length = std::mbrtowc(&code, text.data(), text.size(), &state);
        int width = 1;
        if (length == 0 || length > text.size()) {
            length = 1;
        } else {
            width = wcwidth(code);
        }
        found.push_back({text.substr(0, length), width < 0 ? 1 : static_cast<std::size_t>(width)});
        text.remove_prefix(length);
    }
    return found;
}

} // namespace

terminal_size terminal_size::of(int descriptor)
{
    terminal_size size;
    winsize told{};
    if (ioctl(descriptor, TIOCGWINSZ, &told) == 0) {
        size.columns = told.ws_col > 0 ? told.ws_col : size.columns;
        size.rows = told.ws_row > 0 ? told.ws_row : size.rows;
    }
    return size;
}

std::size_t columns(std::string_view text)
{
    std::size_t sum = 0;
    for (const character& one : split(text)) {
        sum += one.width;
    }
    return sum;
}

std::string shorten(std::string_view text, std::size_t width)
{
    if (columns(text) <= width || width == 0) {
        return std::string(width == 0 ? std::string_view() : text);
    }
    const std::vector<character> all = split(text);
    std::string head;
    std::size_t used = 1; // the ellipsis
    for (const character& one : all) {
        if (used + one.width > (width + 1) / 2) {
            break;
        }
        used += one.width;
        head += one.bytes;
    }
    std::size_t tail = all.size();
    while (tail > 0 && used + all[tail - 1].width <= width) {
        used += all[--tail].width;
    }
    head += "…";
    while (tail < all.size() && all[tail].width == 0) {
        ++tail; // An accent that lost its letter would sit on the ellipsis.
    }
    for (; tail < all.size(); ++tail) {
        head += all[tail].bytes;
    }
    return head;
}

} // namespace qrftp::cli
