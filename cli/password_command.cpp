#include "password_command.hpp"

#include "local_command.hpp"
#include "settings.hpp"

#include <fmt/format.h>

#include <algorithm>

#include <sys/wait.h>

namespace qrftp::cli {

std::string run_password_command(const std::string& command)
{
    const auto refuse = [&command](const std::string& why) {
        throw no_secret(fmt::format("The password command \"{}\" {}.", command, why));
    };
    auto [text, status] = read_output(command);
    if (!WIFEXITED(status)) {
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
