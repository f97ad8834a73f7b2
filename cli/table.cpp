#include "table.hpp"

#include <algorithm>

#include <sys/ioctl.h>
#include <utf8proc.h>

namespace qrftp::cli {

namespace {

struct character {
    std::string_view bytes;
    std::size_t width;
};

/// The first character of `text`, which is not empty.
character first_of(std::string_view text)
{
    utf8proc_int32_t code = 0;
    const auto length = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                         static_cast<utf8proc_ssize_t>(text.size()), &code);
    if (length <= 0) {
        return {text.substr(0, 1), 1};
    }
    return {text.substr(0, static_cast<std::size_t>(length)),
            static_cast<std::size_t>(utf8proc_charwidth(code))};
}

std::vector<character> split(std::string_view text)
{
    std::vector<character> found;
    while (!text.empty()) {
        found.push_back(first_of(text));
        text.remove_prefix(found.back().bytes.size());
    }
    return found;
}

void append(std::string& line, const cell& one)
{
    line.append(one.before).append(one.text).append(one.after);
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

std::size_t text_width(std::string_view text)
{
    std::size_t sum = 0;
    while (!text.empty()) {
        const character next = first_of(text);
        sum += next.width;
        text.remove_prefix(next.bytes.size());
    }
    return sum;
}

std::string shorten(std::string_view text, std::size_t width)
{
    if (text_width(text) <= width || width == 0) {
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

std::string in_columns(const std::vector<cell>& names, std::size_t width)
{
    std::vector<std::size_t> widths;
    widths.reserve(names.size());
    for (const cell& one : names) {
        widths.push_back(text_width(one.text));
    }
    const std::size_t widest = names.empty() ? 0 : *std::max_element(widths.begin(), widths.end());
    const std::size_t across = std::max<std::size_t>(width / (widest + 2), 1);
    const std::size_t down = (names.size() + across - 1) / across;
    std::string text;
    for (std::size_t row = 0; row < down; ++row) {
        for (std::size_t index = row; index < names.size(); index += down) {
            const bool is_last = index + down >= names.size();
            append(text, names[index]);
            text += is_last ? "\n" : std::string(widest + 2 - widths[index], ' ');
        }
    }
    return text;
}

std::string in_rows(const std::vector<std::vector<cell>>& rows, std::string_view right)
{
    std::vector<std::size_t> widths;
    for (const std::vector<cell>& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t column = 0; column < row.size(); ++column) {
            widths[column] = std::max(widths[column], text_width(row[column].text));
        }
    }
    std::string text;
    for (const std::vector<cell>& row : rows) {
        for (std::size_t column = 0; column < row.size(); ++column) {
            const bool is_last = column + 1 == row.size();
            const std::string blanks(widths[column] - text_width(row[column].text), ' ');
            const bool ends_right = column < right.size() && right[column] == 'r';
            text += ends_right ? blanks : "";
            append(text, row[column]);
            text += is_last ? "\n" : (ends_right ? "" : blanks) + ' ';
        }
    }
    return text;
}

} // namespace qrftp::cli
