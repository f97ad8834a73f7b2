#pragma once

#include <string>

namespace CLI {
class App;
class Error;
class Option;
} // namespace CLI

namespace qrftp::cli {

/// What is wrong with the options or operands of `command`, as a sentence that names them: "--jobs: "0" is not
/// a number from 1 to 64."
std::string usage_sentence(const CLI::App& command, const CLI::Error& error);
/// The same of the value that was given to an option.
std::string usage_sentence(const CLI::Option& option, const CLI::Error& error);

} // namespace qrftp::cli
