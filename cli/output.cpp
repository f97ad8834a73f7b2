#include "output.hpp"

#include "json.hpp"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>

namespace qrftp::cli {

namespace {

[[noreturn]] void throw_output_failure(int failure)
{
    if (failure == EPIPE) {
        throw output_closed("The output is no longer read.");
    }
    throw output_failed("The output could not be written.");
}

} // namespace

void print(std::string_view text)
{
    errno = 0;
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size()) {
        throw_output_failure(errno);
    }
}

void print_line(std::string_view line)
{
    print(fmt::format("{}\n", line));
}

void flush_output()
{
    errno = 0;
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        throw_output_failure(errno);
    }
}

void print_error(std::string_view line)
{
    write_error(fmt::format("qrftp: {}", line));
}

void write_error(std::string_view line)
{
    (void)std::fflush(stdout); // A failure is for `print` to report.
    (void)std::fputs(fmt::format("{}\n", line).c_str(), stderr);
}

void note(const settings& options, std::string_view text)
{
    if (options.quiet) {
        return;
    }
    if (options.json) {
        print_error_json({{"note", text}});
    } else {
        print_error(text);
    }
}

std::string join(const std::string& folder, const std::string& name)
{
    if (folder.empty() || folder == ".") {
        return name;
    }
    return folder.ends_with('/') ? folder + name : folder + '/' + name;
}

std::string last_segment(std::string_view path)
{
    path = path.substr(0, path.find_last_not_of('/') + 1);
    return std::string(path.substr(path.rfind('/') + 1));
}

} // namespace qrftp::cli
