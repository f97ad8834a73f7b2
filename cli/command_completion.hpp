#pragma once

#include "command_line.hpp"

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace qrftp::cli {

/// Whether the program was called by the completion of a shell: "--complete WORD...", the words behind the
/// program's name up to the cursor, or "--complete-line LINE", the line up to the cursor.
bool is_completion(const std::vector<std::string>& arguments);

/// Prints what the last word, which may be empty, can become: a line each, with a TAB and a description where
/// there is one. The line ":files" stands for local names, which the shell knows better. Of a whole line, the
/// first line printed is ":word", a TAB, and the last word without its quotes. Servers are asked for names with
/// what the line and the profiles say; nothing is asked at the terminal, and a failure prints nothing. Returns
/// the exit status.
int complete(CLI::App& app, command_line& line, const std::vector<std::string>& arguments);

} // namespace qrftp::cli
