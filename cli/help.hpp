#pragma once

#include <string>

namespace CLI {
class App;
}

namespace qrftp::cli {

/// Sets how --help looks for `app` and the subcommands that are added to it afterwards.
void set_up_help(CLI::App& app);

/// The end of the help of the program itself.
const char* help_footer();

/// The versions of the program and of its libraries.
std::string version_text();

} // namespace qrftp::cli
