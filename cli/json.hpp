#pragma once

#include "settings.hpp"

#include <qrftp/tree.hpp>

#include <nlohmann/json.hpp>

#include <string>
#include <string_view>

namespace qrftp::cli {

using json = nlohmann::ordered_json;

/// The object in one line, with control characters as escapes; bytes that are not UTF-8 become U+FFFD.
std::string to_text(const json& object);

/// Prints the line of the object.
void print_json(const json& object);

/// The same on standard error, after what standard output has.
void print_error_json(const json& object);

/// Adds `bytes` as `key`, and as hexadecimal digits under "KEY_hex" where they are not UTF-8. Empty ones are
/// left out.
void add_bytes(json& object, const std::string& key, const std::string& bytes);

json to_json(const entry& what, const std::string& path);
json to_json(const tree_action& action);
json to_json(const server_info& info);

/// "make_folder", "copy", …; and "missing", "newer", …
std::string_view name_of(tree_action::kind what);
std::string_view name_of(tree_action::reason why);

} // namespace qrftp::cli
