#pragma once

#include "settings.hpp"

#include <qrftp/client.hpp>

#include <nlohmann/json.hpp>

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace qrftp::cli {

/// Standard output is closed, full or broken.
struct output_failed : std::runtime_error {
    using std::runtime_error::runtime_error;
};

using json = nlohmann::ordered_json;

/// Text of a server's, safe on a terminal.
std::string printable(std::string_view text);

/// A line on standard error, unless quiet.
void note(const settings& how, std::string_view text);

/// Writes to standard output, flushes it. Throws `output_failed`.
void print(std::string_view text);
void flush_output();
void print_line(const std::string& line);
/// One line; bytes that are not UTF-8 become U+FFFD.
void print_line(const json& object);

/// Adds `bytes` as `key`, and as hexadecimal digits under "KEY_hex" where they are not UTF-8. Empty ones are
/// left out.
void add_bytes(json& object, const std::string& key, const std::string& bytes);
json to_json(const entry& what, const std::string& path);

std::string size_text(std::uint64_t bytes, const settings& how);
/// "2024-05-01 12:30", as far as it is known.
std::string time_text(const timestamp& when);
/// "-rw-r--r--"; "?" for what is not known.
std::string mode_text(const entry& what);
std::string kind_text(entry_kind kind);

/// The name as it is printed, in the colour of its kind.
std::string coloured_name(const entry& what, const settings& how);

/// Names in columns at a terminal, else one a line.
void print_names(const std::vector<entry>& entries, const settings& how);
/// Mode, owner, group, size, time and name, a line each.
void print_long(const std::vector<entry>& entries, const settings& how);

/// "make_folder" as people read it.
std::string with_blanks(std::string words);
/// What one step of a transfer does.
void print_action(const tree_action& action, const settings& how);

/// `folder` and `name` with one slash between them.
std::string join(const std::string& folder, const std::string& name);
/// The last segment of a path, without slashes behind it.
std::string last_segment(std::string_view path);

} // namespace qrftp::cli
