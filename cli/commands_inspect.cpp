#include "commands.hpp"
#include "format.hpp"
#include "interrupt.hpp"
#include "json.hpp"
#include "output.hpp"
#include "remote_glob.hpp"

#include <qrftp/trace.hpp>

#include <fmt/format.h>

#include <utility>

namespace qrftp::cli {

namespace {

void print_field(std::string_view name, std::string_view value)
{
    if (!value.empty()) {
        print_line(fmt::format("{}: {}", name, value));
    }
}

void print_fields(const entry& what, const std::string& path, const settings& options)
{
    print_field("path", escape(path));
    print_field("type", kind_text(what.kind));
    if (what.size) {
        print_field("size",
                    options.human ? human_size(static_cast<double>(*what.size)) : fmt::to_string(*what.size));
    }
    if (what.modified) {
        print_field("modified",
                    time_text(*what.modified, true) + (what.modified->utc ? " UTC" : " (the server's time)"));
    }
    print_field("mode", what.mode ? mode_text(what) : "");
    print_field("owner", escape(what.owner));
    print_field("group", escape(what.group));
    print_field("target", escape(what.link_target));
}

void print_server(const server_info& info)
{
    print_field("greeting", escape(info.greeting));
    print_field("encryption", escape(info.encryption));
    print_field("host key", info.key ? info.key->type + " " + info.key->fingerprint() : "");
    std::string features;
    for (const std::string& feature : info.features) {
        features += (features.empty() ? "" : ", ") + escape(feature);
    }
    print_field("features", features);
    print_field("login folder", escape(info.login_folder));
}

} // namespace

void stat(session& remote, const std::vector<std::string>& patterns, const settings& options)
{
    bool has_printed = false;
    for_each_match(remote, patterns, [&](const std::string& pattern) {
        const std::string path = or_here(pattern);
        entry what = remote.stat(path);
        if (what.kind == entry_kind::file && (!what.modified || !what.modified->is_exact())) {
            const std::optional<timestamp> exact = remote.modification_time(path);
            what.modified = exact ? exact : what.modified;
        }
        remote.name_owners({&what, 1});
        if (options.json) {
            print_json(to_json(what, path));
            return;
        }
        print(std::exchange(has_printed, true) ? "\n" : "");
        print_fields(what, path, options);
    });
    flush_output();
}

void cat(session& remote, const std::vector<std::string>& patterns, const settings& /*options*/)
{
    for_each_match(remote, patterns, [&](const std::string& path) {
        remote.fetch(path, [](std::string_view piece) {
            print(piece);
            return true;
        });
    });
    flush_output();
}

void ping(session& remote, unsigned count, const settings& options)
{
    std::vector<double> round_trips;
    server_info info;
    for (unsigned done = 0; done < count; ++done) {
        if (done > 0 && !wait_readable(-1, std::chrono::seconds(1))) {
            throw Cancelled("ping");
        }
        info = remote.server_info();
        round_trips.push_back(info.round_trip.count());
        if (options.json) {
            continue;
        }
        if (done == 0) {
            print_server(info);
        }
        print_field("round trip", fmt::format("{:.1f} ms", info.round_trip.count() * 1000));
        flush_output();
    }
    if (options.json) {
        json object = to_json(info);
        object["round_trips"] = round_trips;
        print_json(object);
    }
    flush_output();
}

void print_folder(const std::string& folder, const settings& options)
{
    if (options.json) {
        json object = json::object();
        add_bytes(object, "path", folder);
        print_json(object);
    } else {
        print_line(escape(folder));
    }
    flush_output();
}

void pwd(session& remote, const settings& options)
{
    print_folder(remote.working_folder(), options);
}

} // namespace qrftp::cli
