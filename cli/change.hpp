#pragma once

#include "settings.hpp"

#include <functional>
#include <string>

namespace qrftp::cli {

/// One change that is made on the server.
struct change {
    std::string action; ///< "rename"
    std::string path;
    std::string detail{};              ///< what comes behind "to" in words
    std::string detail_key = "target"; ///< in JSON
};

/// Makes the change by `act`, unless it is a dry run, and prints it where the user wants to see it.
void carry_out(const change& what, const settings& options, const std::function<void()>& act);

/// Prints a change.
void print_change(const change& what, const settings& options);

} // namespace qrftp::cli
