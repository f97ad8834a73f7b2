#include "scripted_peer.hpp"

#define BOOST_ASIO_DISABLE_FENCED_BLOCK // only handlers need it, and the thread sanitizer rejects it
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <filesystem>
#include <poll.h>

namespace support {
namespace {

using boost::asio::ip::tcp;

const auto loopback = boost::asio::ip::address_v4::loopback();

/// Waits for a connection, no longer than the deadline.
bool accept(tcp::acceptor& from, tcp::iostream& into, std::chrono::milliseconds deadline)
{
    pollfd ready{from.native_handle(), POLLIN, 0};
    boost::system::error_code error = boost::asio::error::timed_out;
    if (poll(&ready, 1, static_cast<int>(deadline.count())) > 0)
        from.accept(into.socket(), error);
    return !error;
}

std::string verb_of(const std::string& line)
{
    return line.substr(0, line.find(' '));
}

} // namespace

struct scripted_peer::session {
    session(scripted_peer& of, std::filesystem::path login, std::chrono::milliseconds wait)
        : peer(of), folder(std::move(login)), deadline(wait)
    {
    }
    scripted_peer& peer;
    std::filesystem::path folder;
    std::chrono::milliseconds deadline;
    boost::asio::io_context io{};
    tcp::iostream control{};
    tcp::acceptor passive{io};
    std::uint16_t active = 0;
    std::size_t rest = 0;   ///< where the next download begins
    std::string renaming{}; ///< what RNFR named
    bool dropped = false;

    std::optional<std::string> content(const std::string& line) const
    {
        const auto state = peer.state_.operator->();
        const auto upload = line.starts_with("RETR ") && !state->tree ? state->uploads.find(line.substr(5))
                                                                      : state->uploads.end();
        if (upload != state->uploads.end())
            return upload->second;
        const auto verb = verb_of(line);
        const auto found = state->bodies.find(state->bodies.contains(line) ? line : verb);
        if (found != state->bodies.end())
            return found->second;
        return state->tree && verb != line ? state->tree->content(verb, line.substr(verb.size() + 1))
                                           : std::nullopt;
    }
    bool transfer(const std::string& line, std::size_t limit);
    answer own(const std::string& verb, const std::string& argument);
    std::optional<std::string> own_tree(const std::string& verb, const std::string& argument);
    answer own_file(const std::string& verb, const std::string& argument);
    answer own_facts(const std::string& verb, const std::string& argument);
    answer open_data(const std::string& verb, const std::string& argument);
    bool step(const std::string& line);
    bool run(int number); ///< Whether the script ended the connection.
};

bool scripted_peer::session::transfer(const std::string& line, std::size_t limit)
{
    tcp::iostream data;
    data.expires_after(deadline);
    if (active != 0) {
        boost::system::error_code error;
        data.socket().open(tcp::v4());
        data.socket().bind({boost::asio::ip::make_address(peer.state_->data_address), 0});
        data.socket().connect({loopback, std::exchange(active, std::uint16_t{})}, error);
    } else if (!passive.is_open() || !accept(passive, data, deadline))
        return false;
    passive.close();
    if (!data)
        return false;
    const auto verb = verb_of(line);
    if (verb != "STOR" && verb != "APPE") {
        const auto all = content(line).value_or("");
        data << all.substr(std::min(std::exchange(rest, 0), all.size())).substr(0, limit) << std::flush;
        return data.good();
    }
    const auto name = line.substr(verb.size() + 1);
    auto bytes = verb == "APPE" ? content("RETR " + name).value_or("") : "";
    for (char byte = 0; limit-- > 0 && data.get(byte);)
        bytes += byte;
    const auto state = peer.state_.operator->();
    state->uploads[name] = bytes;
    if (state->tree)
        state->tree->store(name, bytes);
    return true;
}

/// The reply to a line that no rule takes.
answer scripted_peer::session::own(const std::string& verb, const std::string& argument)
{
    static const std::map<std::string, std::string> plain{
        {"greeting", "220 ready"},
        {"USER", "331 password"},
        {"PASS", "230 in"},
        {"SYST", "215 UNIX Type: L8"},
        {"AUTH", "502 no"},
        {"FEAT", "211-Features:\r\n EPSV\r\n MLST type*;size*;modify*;\r\n SIZE\r\n MDTM\r\n MFMT\r\n211 End"},
        {"RNFR", "350 to?"}};
    if (const auto kept = own_tree(verb, argument))
        return answer::reply(*kept);
    if (plain.contains(verb))
        return answer::reply(plain.at(verb));
    if (verb == "TYPE" || verb == "NOOP" || verb == "RMD" || verb == "DELE" || verb == "RNTO")
        return answer::reply(verb == "TYPE" || verb == "NOOP" ? "200 ok" : "250 done");
    if (verb == "REST") {
        rest = std::stoul(argument);
        return answer::reply("350 from there");
    }
    if (verb == "PWD")
        return answer::reply("257 \"" + folder.string() + "\" is current");
    if (verb == "CWD") {
        folder = (folder / argument / "").lexically_normal().parent_path();
        return answer::reply("250 in " + folder.string());
    }
    if (verb == "MKD")
        return answer::reply("257 \"" + argument + "\" created");
    if (verb == "QUIT")
        return answer::reply("221 bye").then_drop();
    if (verb == "EPSV" || verb == "EPRT" || (verb == "PASV" && !peer.state_->passive_address.empty()))
        return open_data(verb, argument);
    return own_file(verb, argument);
}

/// The reply of a server that keeps files.
std::optional<std::string> scripted_peer::session::own_tree(const std::string& verb,
                                                            const std::string& argument)
{
    const auto state = peer.state_.operator->();
    if (!state->tree)
        return std::nullopt;
    const auto path = (folder / argument).lexically_normal().string();
    const auto reply = state->tree->obey(verb, path, renaming);
    if (verb == "CWD" && reply->starts_with("250"))
        folder = path;
    if (verb == "MLSD" && !state->bodies.contains("MLSD " + path) && !state->bodies.contains(verb) &&
        !state->tree->content(verb, path))
        return "550 no such folder";
    return reply;
}

answer scripted_peer::session::own_file(const std::string& verb, const std::string& argument)
{
    const auto file = content("RETR " + argument);
    if (verb == "MLST" || verb == "MDTM" || verb == "MFMT")
        return own_facts(verb, argument);
    if (verb == "LIST" || verb == "MLSD" || verb == "NLST" || verb == "STOR" || verb == "APPE" ||
        (file && verb == "RETR"))
        return answer::transfer(whole, "226 done\r\n");
    if (verb != "RETR" && verb != "SIZE")
        return answer::reply("500 unknown");
    return answer::reply(file ? "213 " + std::to_string(file->size()) : "550 no such file");
}

/// What is there: the files, the login folder, and whatever has an MLSD body of its own.
answer scripted_peer::session::own_facts(const std::string& verb, const std::string& argument)
{
    const auto file = content("RETR " + argument);
    const bool listed =
        argument == folder || argument == "/" || peer.state_->bodies.contains("MLSD " + argument);
    if (verb == "MFMT")
        return answer::reply("213 Modify=" + argument);
    if (verb == "MDTM" && file)
        return answer::reply("213 20240102030405");
    if (verb == "MDTM" || (!file && !listed))
        return answer::reply("550 no such file");
    const auto facts = file ? "type=file;size=" + std::to_string(file->size()) : "type=dir";
    return answer::reply("250-\r\n " + facts + ";modify=20240102030405; " + argument + "\r\n250 End");
}

answer scripted_peer::session::open_data(const std::string& verb, const std::string& argument)
{
    if (verb == "EPRT")
        return answer::reply(sscanf(argument.c_str(), "|1|127.0.0.1|%hu|", &active) == 1 ? "200 ok" : "501 no");
    passive = tcp::acceptor(io, {loopback, 0});
    const int port = passive.local_endpoint().port();
    const auto address =
        peer.state_->passive_address + ',' + std::to_string(port / 256) + ',' + std::to_string(port % 256);
    return answer::reply(verb == "PASV" ? "227 ok (" + address + ")"
                                        : "229 ok (|||" + std::to_string(port) + "|)");
}

bool scripted_peer::session::step(const std::string& line)
{
    const auto scripted = peer.state_->scripted(line);
    const auto verb = verb_of(line);
    auto next = scripted.bytes ? scripted : own(verb, verb == line ? "" : line.substr(verb.size() + 1));
    control.expires_after(deadline);
    if (next.data) {
        control << "150 data\r\n" << std::flush;
        if (!transfer(line, *next.data))
            next.bytes = "426 no data connection\r\n";
    }
    control.expires_after(deadline); // also for the next line
    // libcurl 7.88 waits a whole second when the answer to it is there before it first looks for it.
    if (verb == "EPSV")
        boost::asio::steady_timer(io, std::chrono::milliseconds(2)).wait();
    control << (scripted.is_silent ? "" : *next.bytes) << std::flush;
    dropped = scripted.drops;
    return control.good() && !next.drops && !scripted.drops;
}

bool scripted_peer::session::run(int number)
{
    control.socket().set_option(tcp::no_delay(true)); // "150" and "226" are two writes in a row
    bool goes_on = step("greeting");
    for (std::string line; goes_on && std::getline(control, line) && !control.eof(); goes_on = step(line)) {
        if (line.ends_with('\r'))
            line.pop_back();
        for (const int connection : {0, number})
            peer.state_->commands[connection].push_back(line);
    }
    return dropped;
}

answer scripted_peer::state::scripted(const std::string& line)
{
    const auto now = steps.find(step++);
    answer chosen = now == steps.end() ? answer{} : now->second;
    for (auto& rule : rules)
        if ((rule.line == line || rule.line == verb_of(line)) && (++rule.seen == rule.nth || rule.nth == 0) &&
            now == steps.end())
            chosen = rule.what;
    return chosen;
}

scripted_peer::scripted_peer(const std::string& login_folder, std::chrono::milliseconds deadline)
{
    auto io = std::make_unique<boost::asio::io_context>();
    auto listener = std::make_unique<tcp::acceptor>(*io, tcp::endpoint(loopback, 0));
    port_ = listener->local_endpoint().port();
    listener_ = listener->native_handle();
    thread_ = std::jthread(
        [=, this, io = std::move(io), listener = std::move(listener)](const std::stop_token& stop) {
            std::vector<std::jthread> sessions;
            for (int number = 1; !stop.stop_requested();) {
                auto next = std::make_unique<session>(*this, login_folder, deadline);
                if (!accept(*listener, next->control, deadline))
                    continue;
                sessions.emplace_back([this, number, served = std::move(next)]() mutable {
                    const bool dropped = served->run(number);
                    served.reset(); // closed
                    drops_ += dropped ? 1 : 0;
                    drops_.notify_all();
                });
                ++number;
            }
        });
}

scripted_peer::~scripted_peer()
{
    shutdown(listener_, SHUT_RDWR); // wakes the thread
    thread_.request_stop();
    thread_.join();
}

} // namespace support
