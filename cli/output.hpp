#pragma once

#include "settings.hpp"

#include <stdexcept>
#include <string>
#include <string_view>

namespace qrftp::cli {

/// Standard output is closed, full or broken.
struct output_failed : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Whoever read standard output has stopped reading: the program ends without a word.
struct output_closed : output_failed {
    using output_failed::output_failed;
};

/// Writes to standard output, flushes it. Throws `output_failed`, `output_closed`.
void print(std::string_view text);
void print_line(std::string_view line);
void flush_output();

/// A line on standard error, after what standard output has; the first one with the program's name in front.
void print_error(std::string_view line);
void write_error(std::string_view line);

/// A line on standard error, unless quiet; with --json an object that has it as "note". `text` is for a
/// terminal already.
void note(const settings& options, std::string_view text);

/// `folder` and `name` with one slash between them.
std::string join(const std::string& folder, const std::string& name);
/// The last segment of a path, without slashes behind it.
std::string last_segment(std::string_view path);

} // namespace qrftp::cli
