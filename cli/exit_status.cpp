#include "exit_status.hpp"

#include "error_json.hpp"
#include "interrupt.hpp"
#include "output.hpp"
#include "settings.hpp"

#include <qrftp/trace.hpp>

#include <fmt/format.h>

#include <csignal>
#include <filesystem>

namespace qrftp::cli {

namespace {

bool reports_json = false; // Failures of the command line are reported, too, when nothing has been parsed.

} // namespace

exit_status status_of(error_cause cause)
{
    switch (cause) {
    case error_cause::invalid_url:
    case error_cause::invalid_name:
    case error_cause::invalid_option:
        return usage;
    case error_cause::no_connection:
    case error_cause::proxy_refused:
    case error_cause::no_encryption:
    case error_cause::timeout:
    case error_cause::connection_lost:
    case error_cause::protocol_error:
        return no_connection;
    case error_cause::certificate_refused:
    case error_cause::host_key_unknown:
    case error_cause::host_key_changed:
    case error_cause::host_key_revoked:
        return unknown_server;
    case error_cause::login_refused:
        return no_login;
    case error_cause::not_found:
        return missing;
    case error_cause::permission_denied:
        return denied;
    case error_cause::local_file:
        return local_failure;
    case error_cause::empty_source:
    case error_cause::too_many_removals:
        return unsafe_removal;
    default:
        return other_failure;
    }
}

int status_of(const std::exception& error)
{
    if (interrupted()) {
        return 128 + interrupting_signal();
    }
    if (const auto* known = dynamic_cast<const qrftp::error*>(&error)) {
        return status_of(known->cause());
    }
    return is<usage_error>(error)                         ? usage
           : is<no_secret>(error)                         ? no_login
           : is<some_failed>(error)                       ? some_of_several
           : is<output_closed>(error)                     ? 128 + SIGPIPE
           : is<std::filesystem::filesystem_error>(error) ? local_failure
                                                          : other_failure;
}

std::string sentence_of(const std::exception& error)
{
    if (interrupted()) {
        return "Interrupted.";
    }
    if (const auto* local = dynamic_cast<const std::filesystem::filesystem_error*>(&error)) {
        return LocalFileError(local->path1().string(), local->code()).what();
    }
    const bool is_escaped = is<qrftp::error>(error);
    return is_escaped ? error.what() : escape(error.what());
}

void report_as_json(bool wanted) noexcept
{
    reports_json = wanted;
}

void report(const std::exception& error, std::size_t line)
{
    if (!interrupted() && (is<some_failed>(error) || is<output_closed>(error))) {
        return;
    }
    if (!reports_json) {
        print_error((line == 0 ? "" : fmt::format("Line {}: ", line)) + sentence_of(error));
        return;
    }
    json object = to_json(error);
    if (line != 0) {
        object["line"] = line;
    }
    print_error_json(object);
}

} // namespace qrftp::cli
