#include "commands.hpp"
#include "exit_status.hpp"
#include "expand.hpp"
#include "interrupt.hpp"
#include "output.hpp"

#include <functional>
#include <iomanip>
#include <sstream>
#include <utility>

#include <poll.h>

namespace qrftp::cli {

namespace {

/// Carries `act` out on everything that the paths stand for.
void for_each(session& remote, const std::vector<std::string>& paths,
              const std::function<void(const std::string&)>& act)
{
    attempts all(paths.size() <= 1);
    for (const std::string& path : paths) {
        all.attempt([&] {
            const std::vector<std::string> found = expand(remote, path);
            attempts these(found.size() <= 1);
            for (const std::string& one : found) {
                these.attempt([&] { act(one); });
            }
            these.finish();
        });
    }
    all.finish();
}

void print_field(const char* name, const std::string& value)
{
    if (!value.empty()) {
        print_line(std::string(name) + ": " + value);
    }
}

void print_fields(const entry& what, const std::string& path, const settings& how)
{
    print_field("path", printable(or_here(path)));
    print_field("type", kind_text(what.kind));
    print_field("size", what.size ? size_text(*what.size, how) : "");
    if (what.modified) {
        std::string time = time_text(*what.modified);
        if (what.modified->precision == time_precision::second) {
            std::ostringstream seconds;
            seconds << ':' << std::setw(2) << std::setfill('0') << what.modified->seconds % 60;
            time += seconds.str();
        }
        print_field("modified", time + (what.modified->utc ? " UTC" : " (the server's time)"));
    }
    print_field("mode", what.mode ? mode_text(what) : "");
    print_field("owner", printable(what.owner));
    print_field("group", printable(what.group));
    print_field("target", printable(what.link_target));
}

std::string milliseconds_text(double seconds)
{
    std::ostringstream text;
    text << std::fixed << std::setprecision(1) << seconds * 1000 << " ms";
    return text.str();
}

json to_json(const connection_info& info, const std::vector<double>& round_trips)
{
    json object = json::object();
    add_bytes(object, "server", info.server);
    add_bytes(object, "tls", info.tls);
    if (info.key) {
        object["host_key"] = {{"type", info.key->type}, {"fingerprint", info.key->fingerprint()}};
    }
    if (!info.features.empty()) {
        object["features"] = info.features;
    }
    add_bytes(object, "login_folder", info.login_folder);
    object["round_trips"] = round_trips;
    return object;
}

void print_connection(const connection_info& info)
{
    print_field("server", printable(info.server));
    print_field("tls", printable(info.tls));
    print_field("host key", info.key ? info.key->type + " " + info.key->fingerprint() : "");
    std::string features;
    for (const std::string& feature : info.features) {
        features += (features.empty() ? "" : ", ") + printable(feature);
    }
    print_field("features", features);
    print_field("login folder", printable(info.login_folder));
}

} // namespace

void stat(session& remote, const std::vector<std::string>& paths, const settings& how)
{
    bool begun = false;
    for_each(remote, paths, [&](const std::string& path) {
        entry what = remote.stat(or_here(path));
        const auto& when = what.modified;
        if (what.kind == entry_kind::file &&
            (!when || !when->utc || when->precision != time_precision::second)) {
            const auto exact = remote.modification_time(path);
            what.modified = exact ? exact : what.modified;
        }
        if (how.json) {
            print_line(to_json(what, or_here(path)));
            return;
        }
        print(std::exchange(begun, true) ? "\n" : "");
        print_fields(what, path, how);
    });
    flush_output();
}

void cat(session& remote, const std::vector<std::string>& paths, const settings& /*how*/)
{
    for_each(remote, paths, [&](const std::string& path) {
        remote.fetch(path, [](std::string_view piece) {
            print(piece);
            return true;
        });
    });
    flush_output();
}

void ping(session& remote, unsigned count, const settings& how)
{
    std::vector<double> round_trips;
    connection_info info;
    for (unsigned done = 0; done < count; ++done) {
        if (done > 0) {
            poll(nullptr, 0, 1000); // An interrupt ends it early.
        }
        if (interrupted()) {
            foundation::core::except::raise<error::Cancelled>("ping");
        }
        info = remote.about();
        round_trips.push_back(info.round_trip);
        if (how.json) {
            continue;
        }
        if (done == 0) {
            print_connection(info);
        }
        print_field("round trip", milliseconds_text(info.round_trip));
        flush_output();
    }
    if (how.json) {
        print_line(to_json(info, round_trips));
    }
    flush_output();
}

} // namespace qrftp::cli
