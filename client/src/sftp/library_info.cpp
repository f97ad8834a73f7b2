#include "../library_info.hpp"

#include "../trace.hpp"

#include <fmt/format.h>
#include <libssh/callbacks.h>
#include <libssh/libssh.h>

namespace qrftp::sftp {

namespace {

void log(int /*priority*/, const char* /*function*/, const char* buffer, void* /*user*/)
{
    if (is_traced(trace_level::debug)) { // libssh keeps its first callback where there was none before
        trace_line(buffer);
    }
}

} // namespace

std::string library_versions()
{
    return fmt::format("libssh/{}", ssh_version(0));
}

void trace_libraries(bool on)
{
    static ssh_logging_callback callback_before = nullptr;
    static int level_before = SSH_LOG_NONE;
    callback_before = on ? ssh_get_log_callback() : callback_before;
    level_before = on ? ssh_get_log_level() : level_before;
    ssh_set_log_callback(on ? &log : callback_before);
    ssh_set_log_level(on ? SSH_LOG_PROTOCOL : level_before);
}

} // namespace qrftp::sftp
