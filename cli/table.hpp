#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace qrftp::cli {

/// The size of a terminal in characters.
struct terminal_size {
    std::size_t columns = 80;
    std::size_t rows = 24;

    /// What the terminal at the descriptor says, where it says anything.
    static terminal_size of(int descriptor);
};

/// How many columns of a terminal the UTF-8 `text` takes, whatever the locale. What is not valid UTF-8 takes a
/// column for each byte.
std::size_t text_width(std::string_view text);

/// `text` in at most `width` columns: where it takes more, "…" stands for its middle.
std::string shorten(std::string_view text, std::size_t width);

/// A text, and the escape sequences around it, which take no column.
struct cell {
    std::string text;
    std::string_view before{};
    std::string_view after{};
};

/// Names below each other in as many columns as fit into `width`, read from top to bottom, two blanks between
/// them. One a line where `width` is 0.
std::string in_columns(const std::vector<cell>& names, std::size_t width);

/// Rows of as many cells each: all columns but the last are as wide as their widest cell, and those that
/// `right` marks with an "r" end at the right.
std::string in_rows(const std::vector<std::vector<cell>>& rows, std::string_view right);

} // namespace qrftp::cli
