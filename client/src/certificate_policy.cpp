#include "certificate_policy.hpp"

#include "base64.hpp"
#include "text_file.hpp"
#include "wildcard.hpp"

#include <qrftp/error.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <system_error>

namespace qrftp {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view pin_start = "sha256//";
constexpr std::string_view gaps = " \t\r";

bool is_pin(std::string_view text)
{
    constexpr std::size_t bytes = 32;
    return text.starts_with(pin_start) && from_base64(text.substr(pin_start.size())).size() == bytes;
}

fs::path folder_in(const char* variable, const char* below)
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): read only
    const char* const value = std::getenv(variable);
    return value == nullptr || *value != '/' ? fs::path() : fs::path(value) / below;
}

/// Empty where the user has no home.
fs::path usual_file()
{
    const fs::path configured = folder_in("XDG_CONFIG_HOME", "qrftp/known_tls");
    return configured.empty() ? folder_in("HOME", ".config/qrftp/known_tls") : configured;
}

/// The pins that the lines "host pin" of `text` have for `host`.
std::vector<std::string> pins_of(std::string_view host, std::string_view text)
{
    std::vector<std::string> pins;
    while (!text.empty()) {
        std::string_view line = take_token(text, "\n");
        const std::string_view name = take_token(line, gaps);
        const std::string_view pin = take_token(line, gaps);
        if (to_lower(name) == host && is_pin(pin)) {
            pins.emplace_back(pin);
        }
    }
    return pins;
}

std::vector<std::string> read_pins(const std::string& host, const fs::path& file)
{
    if (file.empty()) {
        return {};
    }
    try {
        return pins_of(host, read_text_file(file));
    } catch (const LocalFileError& e) {
        if (e.code() == std::errc::no_such_file_or_directory || e.code() == std::errc::not_a_directory) {
            return {};
        }
        throw;
    }
}

bool contains(const std::vector<std::string>& all, const std::string& one)
{
    return std::find(all.begin(), all.end(), one) != all.end();
}

} // namespace

certificate_policy::certificate_policy(const url& server, const session_options& options)
    : server_(server.server()), host_(fmt::format("{}:{}", to_lower(server.host), server.effective_port())),
      pins_(options.pins), needs_authority_(!options.certificate_authorities.empty()), trust_(options.trust),
      file_(options.known_tls_file.empty() ? usual_file() : options.known_tls_file),
      confirm_(options.confirm_certificate), on_warning_(options.on_warning)
{
    for (const std::string& pin : pins_) {
        if (!is_pin(pin)) {
            throw InvalidOption(pin, "a pin is \"sha256//\" and the base64 form of 32 bytes");
        }
    }
    if (pins_.empty() && options.tls != tls_mode::none) {
        known_ = read_pins(host_, file_);
    }
}

bool certificate_policy::may_replace_authorities() const
{
    return !pins_.empty() || !known_.empty() || trust_ == certificate_trust::accept_new;
}

void certificate_policy::refuse(const std::string& why) const
{
    throw CertificateRefused(server_, {0, why});
}

bool certificate_policy::check(const server_certificate& shown)
{
    const bool is_vouched_for = shown.problem.empty();
    if (!accepted_.empty()) {
        if (shown.pin != accepted_ && (!is_vouched_for || !pins_.empty())) {
            refuse(fmt::format("it shows {}, and showed {} before", shown.pin, accepted_));
        }
        return true;
    }
    if (!pins_.empty()) {
        check_pins(shown);
    } else if (!is_vouched_for && !contains(known_, shown.pin)) {
        if (!known_.empty()) {
            refuse(
                fmt::format("its key has changed: it shows {}, and {} has {}; somebody may be listening in, or "
                            "the server was set up anew: ask its administrator",
                            shown.pin, file_.string(), fmt::join(known_, ", ")));
        }
        if (trust_ == certificate_trust::strict) {
            refuse(fmt::format("{}; its key is {}", shown.problem, shown.pin));
        }
        return false;
    }
    accepted_ = shown.pin;
    return true;
}

void certificate_policy::check_pins(const server_certificate& shown) const
{
    if (!contains(pins_, shown.pin)) {
        refuse(fmt::format("it shows {}, which is not pinned", shown.pin));
    }
    if (needs_authority_ && !shown.problem.empty()) {
        refuse(shown.problem);
    }
}

void certificate_policy::accept_new(const server_certificate& shown)
{
    if (confirm_ && !confirm_(shown)) {
        refuse(fmt::format("{}; its key is {}, and was not accepted", shown.problem, shown.pin));
    }
    known_ = {shown.pin};
    remember(shown);
}

void certificate_policy::remember(const server_certificate& shown) const
{
    const std::string key = fmt::format("the key of {} ({})", host_, shown.pin);
    if (file_.empty()) {
        return warn(fmt::format("Warning: there is no file of known certificates to add {} to.", key));
    }
    try {
        append_line(file_, fmt::format("{} {}", host_, shown.pin));
    } catch (const LocalFileError& e) {
        return warn(fmt::format("Warning: could not add {} to the known certificates: {}", key, e.what()));
    }
    warn(fmt::format("Added {} to {}.", key, file_.string()));
}

void certificate_policy::warn(const std::string& sentence) const
{
    if (on_warning_) {
        on_warning_(sentence);
    }
}

} // namespace qrftp
