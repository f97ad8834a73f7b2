#include "client_stage.hpp"

#include <algorithm>
#include <fstream>
#include <gmock/gmock.h>
#include <regex>

namespace support {

namespace fs = std::filesystem;

std::string error_of_client(const std::function<void()>& call)
try {
    call();
    return "";
} catch (const qrftp::error& thrown) {
    EXPECT_THAT(thrown.what(), testing::HasSubstr(" ")) << "no sentence";
    EXPECT_EQ(thrown.name(), qrftp::name_of(thrown.cause()));
    return std::string(thrown.name());
}

files files_in(const fs::path& root)
{
    files all;
    for (const auto& each : fs::recursive_directory_iterator(root)) {
        auto& content = all[each.path().lexically_relative(root)];
        if (each.is_symlink())
            content = "-> " + fs::read_symlink(each).string();
        else if (each.is_directory())
            content = "/";
        else
            content.assign(std::istreambuf_iterator<char>(std::ifstream(each.path(), std::ios::binary).rdbuf()),
                           {});
    }
    return all;
}

void write_file(const fs::path& file, const std::string& content)
{
    fs::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << content;
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

std::vector<std::string> client_stage::local_leftovers() const
{
    std::vector<std::string> all;
    for (const auto& [path, _] : files_in(local))
        if (path.find(".qrftp-") != path.npos)
            all.push_back(path);
    return all;
}

} // namespace support
