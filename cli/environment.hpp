#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace qrftp::cli {

/// The variables that hold secrets.
inline constexpr const char* password_variable = "QRFTP_PASSWORD";
inline constexpr const char* pass_phrase_variable = "QRFTP_PASSPHRASE";

/// The value of an environment variable.
std::optional<std::string> environment(const char* name);

/// Takes the secrets out of the environment, which is also that of each program that is started. Call it once,
/// before any thread is started.
void take_secrets();

/// The value that one of those variables had.
std::optional<std::string> secret(const char* name);

/// `path` with the user's home folder in place of a "~" at its beginning: HOME, or the account's where HOME is
/// not set or empty.
std::filesystem::path expand_home(const std::string& path);

/// The folder "qrftp" in the folder that `variable` has, or in `usual` where it has no absolute path.
std::filesystem::path user_folder(const char* variable, const std::string& usual);

/// The content of a local file. Throws `LocalFileError`.
std::string read_file(const std::filesystem::path& file);

/// The first line of a local file, without its end. Throws `LocalFileError`.
std::string first_line(const std::filesystem::path& file);

/// Makes `folder`, and those above it that are missing, for the user alone. Failures show when it is used.
void make_private_folder(const std::filesystem::path& folder);

} // namespace qrftp::cli
