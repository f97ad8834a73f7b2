#pragma once

#include <cstddef>
#include <string>
#include <string_view>

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
std::size_t columns(std::string_view text);

/// `text` in at most `width` columns: where it takes more, "…" stands for its middle.
std::string shorten(std::string_view text, std::size_t width);

} // namespace qrftp::cli
