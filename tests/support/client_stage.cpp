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

client_stage::client_stage(const std::vector<rule>& rules)
    : local(fs::path(testing::TempDir()) / ("client_stage." + std::to_string(peer.port())))
{
    options.user = "u";
    options.password = "p";
    options.tls = qrftp::tls_mode::none;
    write_file(local / "f", "local");
    write_file(local / "long", "longer than the remote one");
    peer.file("/home/u/f", "remote");
    peer.file("/home/u/t", "remote");
    peer.body("MLSD /home/u", "type=dir; f\r\n");
    for (const auto& [line, what, nth] : rules)
        peer.on(line, what, nth);
}

client_stage::~client_stage()
{
    client.reset();
    fs::remove_all(local);
}

qrftp::session& client_stage::open()
{
    return client.emplace(peer.url(), options);
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
    const std::regex temporary("\\.qrftp-[0-9a-f]{16}\\.part");
    std::smatch found;
    for (int number = 1; std::regex_search(all, found, temporary); ++number)
        all = std::regex_replace(all, std::regex(found.str()), "T" + std::to_string(number));
    return all;
}

} // namespace support
