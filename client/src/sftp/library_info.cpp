#include "../library_info.hpp"

#include "../trace.hpp"

#include <fmt/format.h>
#include <libssh/callbacks.h>
#include <libssh/libssh.h>

namespace qrftp::sftp {

namespace {

void log(int /*priority*/, const char* /*function*/, const char* buffer, void* /*user*/)
{
    trace_line(buffer);
}

} // namespace

std::string library_versions()
{
    return fmt::format("libssh/{}", ssh_version(0));
}

void trace_libraries(bool on)
{
    ssh_set_log_callback(&log);
    ssh_set_log_level(on ? SSH_LOG_PROTOCOL : SSH_LOG_NONE);
}

} // namespace qrftp::sftp
