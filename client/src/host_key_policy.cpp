#include "host_key_policy.hpp"

#include <qrftp/error.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace qrftp {

namespace fs = std::filesystem;

namespace {

/// How much a match weighs against those of other files.
int weight(host_key_match match)
{
    switch (match) {
    case host_key_match::unknown:
        return 0;
    case host_key_match::other_type:
        return 1;
    case host_key_match::changed:
        return 2;
    case host_key_match::known:
        return 3;
    case host_key_match::revoked:
        return 4;
    }
    return 4;
}

} // namespace

host_key_policy::host_key_policy(std::string host, settings how)
    : host_(std::move(host)), settings_(std::move(how))
{
}

std::vector<std::string> host_key_policy::known_types() const
{
    std::vector<std::string> types;
    if (settings_.check == host_key_check::off) {
        return types;
    }
    for (const auto* files : {&settings_.user_files, &settings_.global_files}) {
        for (const fs::path& file : *files) {
            for (const host_key& key : known_hosts::read(file).keys_of(host_)) {
                if (std::find(types.begin(), types.end(), key.type) == types.end()) {
                    types.push_back(key.type);
                }
            }
        }
    }
    return types;
}

void host_key_policy::check(const host_key& shown) const
{
    if (settings_.check == host_key_check::off) {
        return;
    }
    host_key_match match = host_key_match::unknown;
    fs::path where = settings_.user_files.empty() ? fs::path("no file") : settings_.user_files.front();
    for (const auto* files : {&settings_.user_files, &settings_.global_files}) {
        for (const fs::path& file : *files) {
            const host_key_match here = known_hosts::read(file).match(shown);
            if (weight(here) > weight(match)) {
                match = here;
                where = file;
            }
        }
    }
    const std::string shows = fmt::format("it shows {} {}", shown.type, shown.fingerprint());
    switch (match) {
    case host_key_match::known:
        return;
    case host_key_match::revoked:
        throw HostKeyRevoked(host_, fmt::format("{}, which {} revokes", shows, where.string()));
    case host_key_match::changed:
        throw HostKeyChanged(host_, fmt::format("{}, and {} has another", shows, where.string()));
    case host_key_match::other_type:
        throw HostKeyChanged(host_, fmt::format("{}, and {} has one of another type", shows, where.string()));
    case host_key_match::unknown:
        break;
    }
    if (settings_.check == host_key_check::strict) {
        throw HostKeyUnknown(host_, fmt::format("{}, and {} has none", shows, where.string()));
    }
    if (settings_.confirm && !settings_.confirm(shown)) {
        throw HostKeyUnknown(host_, shows + ", and was not accepted");
    }
    remember(shown);
}

void host_key_policy::remember(const host_key& shown) const
{
    const std::string key = fmt::format("the key of {} ({} {})", host_, shown.type, shown.fingerprint());
    if (settings_.user_files.empty()) {
        return warn(fmt::format("Warning: there is no known-hosts file to add {} to.", key));
    }
    const fs::path& file = settings_.user_files.front();
    try {
        known_hosts::append(file, shown);
    } catch (const LocalFileError& e) {
        return warn(fmt::format("Warning: could not add {} to the known hosts: {}", key, e.what()));
    }
    warn(fmt::format("Added {} to {}.", key, file.string()));
}

void host_key_policy::warn(const std::string& sentence) const
{
    if (settings_.on_warning) {
        settings_.on_warning(sentence);
    }
}

} // namespace qrftp
