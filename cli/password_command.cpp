#include "password_command.hpp"

#include "settings.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <system_error>

#include <sys/wait.h>

namespace qrftp::cli {

std::string run_password_command(const std::string& command)
{
    const auto refuse = [&command](const std::string& why) {
        throw no_secret(fmt::format("The password command \"{}\" {}.", command, why));
    };
    std::FILE* const output = popen(command.c_str(), "re"); // NOLINT(cert-env33-c): the user's own command
    if (output == nullptr) {
        refuse(fmt::format("cannot be run: {}", std::generic_category().message(errno)));
    }
    std::string text;
    for (int byte = std::getc(output); byte != EOF;
         byte = std::getc(output)) { // All of it, or the command breaks.
        text += static_cast<char>(byte);
    }
    const int status = pclose(output);
    if (status == -1 || !WIFEXITED(status)) {
        refuse("was ended by a signal");
    }
    if (WEXITSTATUS(status) != 0) {
        refuse(fmt::format("failed with status {}", WEXITSTATUS(status)));
    }
    text.erase(std::min(text.find_first_of("\r\n"), text.size()));
    if (text.empty()) {
        refuse("printed no password on its first line");
    }
    return text;
}

} // namespace qrftp::cli
