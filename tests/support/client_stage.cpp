#include "client_stage.hpp"

#include <algorithm>
#include <gmock/gmock.h>
#include <regex>

namespace support {

namespace fs = std::filesystem;

std::vector<std::string> names_in(const qrftp::listing& all)
{
    std::vector<std::string> names;
    for (const auto& each : all.entries)
        names.push_back(each.name);
    return names;
}

namespace {

/// Whether the request is to open the file at `path`, or to list the folder there.
bool opens(sftp_peer::request asked, const std::string& path)
{
    using qrftp::sftp::packet_type;
    const bool is_open = asked.type == packet_type::open || asked.type == packet_type::opendir;
    return is_open && asked.fields.read_string() == path;
}

} // namespace

client_stage::client_stage(const std::vector<rule>& rules, qrftp::url_scheme scheme)
{
    options.user = "u";
    options.password = "p";
    options.tls = qrftp::tls_mode::none;
    write_file(local / "f", "local");
    write_file(local / "long", "longer than the remote one");
    make_old(local / "long");
    peer.file("/home/u/f", "remote");
    peer.file("/home/u/t", "remote");
    peer.body("MLSD /home/u", "type=dir; f\r\n");
    for (const auto& [line, what, nth] : rules)
        peer.on(line, what, nth);
    if (scheme == qrftp::url_scheme::sftp) {
        sftp.emplace();
        options.host_keys = qrftp::host_key_check::off;
        options.ssh_config.only = fs::path();
        options.use_agent = false;
    }
}

qrftp::session& client_stage::open()
{
    return client.emplace(sftp ? sftp->url() : peer.url(), options);
}

void client_stage::keep(const files& all, bool replaces)
{
    if (!sftp)
        return peer.keep(all, replaces);
    sftp->keep(all);
    sftp->script([replaces](sftp_peer& server) {
        server.home = "/home/u";
        server.extensions.resize(replaces ? 1 : 0);
    });
}

void client_stage::refuse(const std::string& path)
{
    if (!sftp) {
        peer.on("MLSD " + path, answer::reply("550 no"));
        return peer.on("RETR " + path, answer::reply("550 no"));
    }
    sftp->script([&](sftp_peer& server) {
        server.intercept = [path](const sftp_peer::request& asked) {
            return opens(asked, path)
                       ? std::optional(status_packet(asked.id, qrftp::sftp::status_code::permission_denied))
                       : std::nullopt;
        };
    });
}

void client_stage::cut_at(int request, bool carried_out, bool is_back)
{
    if (sftp) {
        if (!is_back)
            sftp->stay_away();
        return sftp->script([&](sftp_peer& server) {
            server.cut_after_requests(static_cast<std::size_t>(request), carried_out);
        });
    }
    cut_step_ = peer.steps() + request - 1;
    peer.at(*cut_step_, carried_out ? answer::drop_instead_of_reply() : answer::drop());
    if (!is_back)
        peer.on("greeting", answer::drop());
}

std::string client_stage::sent(std::initializer_list<std::string_view> verbs) const
{
    std::string all;
    for (const auto& line : peer.commands()) {
        const auto verb = line.substr(0, line.find(' '));
        if (verbs.size() == 0 || std::find(verbs.begin(), verbs.end(), verb) != verbs.end())
            all += (all.empty() ? "" : "|") + line;
    }
    all = std::regex_replace(all, std::regex(" /home/u/?"), " ~");
    for (const auto& [suffix, letter] : {std::pair("part", "T"), std::pair("old", "O")}) {
        const std::regex temporary(std::string("\\.qrftp-[0-9a-f]{16}\\.") + suffix);
        std::smatch found;
        for (int number = 1; std::regex_search(all, found, temporary); ++number)
            all = std::regex_replace(all, std::regex(found.str()), letter + std::to_string(number));
    }
    return all;
}

} // namespace support
