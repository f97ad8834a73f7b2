#pragma once

#include "profiles.hpp"

#include <string>
#include <vector>

/// Changes to the text of a configuration file that keep all the rest as it is, comments too.
namespace qrftp::cli {

/// The value as the file has it.
std::string toml_value(const profile_setting& one);

/// `list.content` with `wanted` in the table `name`; both are added where they are missing.
/// Without values, its key is removed. Throws `usage_error` where the table is not written with a heading and
/// a key on each line.
std::string with_setting(const profile_list& list, const std::string& name, const profile_setting& wanted);

/// `list.content` without the table `name`, which it has.
std::string without_profile(const profile_list& list, const std::string& name);

/// Replaces the configuration file, and makes its folder: written beside it, readable by the owner alone, and
/// renamed. Throws `LocalFileError`.
void write_config(const std::filesystem::path& file, const std::string& content);

} // namespace qrftp::cli
