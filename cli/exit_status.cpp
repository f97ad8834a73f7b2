#include "exit_status.hpp"

#include "interrupt.hpp"
#include "output.hpp"
#include "password.hpp"
#include "settings.hpp"

#include <foundation/core/except/IMsgIDException.hpp>
#include <foundation/log/sink.hpp>

#include <algorithm>
#include <array>
#include <filesystem>
#include <iostream>
#include <string_view>
#include <utility>

namespace qrftp::cli {

namespace {

/// The libraries' errors by the last part of their identifiers, which no two components share.
constexpr std::array<std::pair<std::string_view, exit_status>, 22> statuses{{
    {"InvalidUrl", usage},
    {"InvalidName", usage},
    {"NoConnection", no_connection},
    {"NoConnectionToStartingFolder", no_connection},
    {"NoEncryption", no_connection},
    {"ServerGone", no_connection},
    {"Stalled", no_connection},
    {"LoginRefused", no_login},
    {"BadLogin", no_login},
    {"Missing", missing},
    {"FileUnavailable", missing},
    {"NoSuchDirectory", missing},
    {"Denied", denied},
    {"PermissionDenied", local_failure},
    {"NoSuchFile", local_failure},
    {"DiskFull", local_failure},
    {"FileError", local_failure},
    {"NotFound", local_failure},
    {"CertificateRefused", unknown_server},
    {"HostKeyUnknown", unknown_server},
    {"HostKeyChanged", unknown_server},
    {"HostKeyRevoked", unknown_server},
}};

template <class Error>
bool is(const std::exception& error)
{
    return dynamic_cast<const Error*>(&error) != nullptr;
}

} // namespace

int status_of(const std::exception& error)
{
    if (interrupted()) {
        return 128 + interrupting_signal();
    }
    if (is<usage_error>(error)) {
        return usage;
    }
    if (is<no_secret>(error)) {
        return no_login;
    }
    if (is<some_failed>(error)) {
        return some_of_several;
    }
    if (is<std::filesystem::filesystem_error>(error)) {
        return local_failure;
    }
    if (const auto* known = dynamic_cast<const foundation::core::except::IMsgIDException*>(&error)) {
        const std::string& identifier = known->identifier();
        const std::string_view key = std::string_view(identifier).substr(identifier.rfind(':') + 1);
        const auto* const found = std::find_if(statuses.begin(), statuses.end(),
                                               [key](const auto& candidate) { return candidate.first == key; });
        return found == statuses.end() ? other_failure : found->second;
    }
    return other_failure;
}

std::string sentence_of(const std::exception& error)
{
    if (interrupted()) {
        return "Interrupted.";
    }
    std::string text = error.what();
    if (const auto* local = dynamic_cast<const std::filesystem::filesystem_error*>(&error)) {
        text = "The local file \"" + local->path1().string() + "\" failed: " + local->code().message() + ".";
    }
    return printable(foundation::log::masked(text));
}

void report(const std::exception& error)
{
    if (!is<some_failed>(error) || interrupted()) {
        std::cout.flush();
        std::cerr << "qrftp: " << sentence_of(error) << '\n';
    }
}

void attempts::attempt(const std::function<void()>& act)
try {
    act();
} catch (const some_failed&) {
    failed_ = true;
} catch (const std::exception& error) {
    const int status = status_of(error);
    if (alone_ || interrupted() || is<output_failed>(error) || status == no_connection || status == no_login ||
        status == unknown_server) {
        throw;
    }
    add(error);
}

void attempts::add(const std::exception& error)
{
    report(error);
    failed_ = true;
}

void attempts::finish() const
{
    if (failed_) {
        throw some_failed("Some of it failed.");
    }
}

} // namespace qrftp::cli
