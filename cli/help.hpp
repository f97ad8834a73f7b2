#pragma once

#include <string>

namespace CLI {
class App;
}

namespace qrftp::cli {

/// What is printed for --help by `app` and the subcommands that are added to it afterwards.
void set_up_help(CLI::App& app);

/// What stands below the help of the program itself.
const char* help_footer();

/// The program and the libraries that it runs on.
std::string version_text();

} // namespace qrftp::cli
