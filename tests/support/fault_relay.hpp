#pragma once

#include <utility> // Boost.Asio 1.74 forgets it

#include <atomic>
#include <boost/algorithm/string.hpp>
#include <boost/asio.hpp>
#include <chrono>
#include <optional>
#include <random>
#include <thread>

namespace support {
namespace asio = boost::asio;

/// What a network does: RST to the client; FIN to both sides at the end, or in the middle, of what is under
/// way; a bit flips; harmless, bytes reach the client in pieces (ProFTPD waits for more of a command in such
/// pieces); nothing passes any more until the client gives up. A server always sees FIN: its own then tells
/// that it is done.
enum class fault { reset, finish, truncate, corrupt, pieces, stall };

/// Stands between a client and a server on 127.0.0.1, FTP's data connections included, and has an accident when
/// so many bytes have passed.
class fault_relay {
public:
    fault_relay(long target, bool ftp, std::uint64_t seed) : ftp_(ftp), random_(seed)
    {
        co_spawn(io_, serve(listener_, static_cast<std::uint16_t>(target), true), asio::detached);
        thread_ = std::jthread([this] { io_.run(); });
    }
    fault_relay(const fault_relay&) = delete;
    ~fault_relay() { io_.stop(); }

    long port() const { return listener_->local_endpoint().port(); }
    std::atomic<int> harmed = 0; ///< faults so far that can be noticed
    std::atomic<int> connections = 0;
    std::atomic<std::chrono::milliseconds> delay = std::chrono::milliseconds(0); ///< of what the client gets

    /// `after` is in bytes, both ways and over all connections together. What was planned before and has not
    /// happened goes first.
    void plan_next(fault kind, std::size_t after)
    {
        const auto plan = [=, this] {
            after_ = std::exchange(planned_, planned_.value_or(kind)) ? after_ : after;
        };
        asio::post(io_, asio::use_future(plan)).get();
    }
    /// Returns when the server has closed whatever the client has closed or lost; false if that takes too long.
    bool settle()
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!asio::post(io_, asio::use_future([this] { return settled(); })).get()) {
            if (std::chrono::steady_clock::now() > deadline)
                return false;
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
        return true;
    }

private:
    using tcp = boost::asio::ip::tcp;
    using acceptor = std::shared_ptr<tcp::acceptor>;
    struct link {
        tcp::socket client, server;
        bool control = false, client_open = true, server_open = true, used = false;
        std::optional<fault> cut{}; ///< nothing passes any more
        int under_way = 0;
        std::vector<acceptor> data{};
    };
    using shared = std::shared_ptr<link>;

    acceptor listen()
    {
        return std::make_shared<tcp::acceptor>(io_, tcp::endpoint(asio::ip::address_v4::loopback(), 0));
    }
    asio::awaitable<void> serve(acceptor at, std::uint16_t target, bool control)
    try {
        do {
            auto client = co_await at->async_accept(asio::use_awaitable);
            const auto both = std::make_shared<link>(link{std::move(client), tcp::socket(io_), control});
            co_await both->server.async_connect({asio::ip::address_v4::loopback(), target},
                                                asio::use_awaitable);
            for (auto* each : {&both->client, &both->server})
                each->set_option(tcp::no_delay(true));
            links_.push_back(both), ++connections;
            for (const bool to_client : {true, false})
                co_spawn(io_, pump(both, to_client), asio::detached);
        } while (control);
    } catch (const boost::system::system_error&) { // the control connection ended before a data connection came
    }
    asio::awaitable<void> pump(shared of, bool to_client)
    {
        auto &in = to_client ? of->server : of->client, &out = to_client ? of->client : of->server;
        boost::system::error_code ended, ignored, gone;
        std::string got;
        for (std::vector<char> all(1 << 16); !ended;) {
            const auto size = co_await in.async_read_some(asio::buffer(all),
                                                          asio::redirect_error(asio::use_awaitable, ended));
            ++of->under_way;
            got.append(all.data(), size), of->used = of->used || size > 0;
            std::string bytes = whole_lines(*of, to_client, got);
            if (to_client && delay.load().count() > 0)
                co_await asio::steady_timer(io_, delay.load()).async_wait(asio::use_awaitable);
            const auto passed = of->cut ? 0 : strike(*of, to_client, bytes);
            for (std::size_t done = 0, piece = 0; done < passed && !gone;
                 in_pieces_ -= std::min(in_pieces_, piece)) {
                piece = in_pieces_ == 0 || !to_client ? passed - done
                                                      : std::min(passed - done, 1 + random_() % piece_);
                done += co_await asio::async_write(out, asio::buffer(&bytes[done], piece),
                                                   asio::redirect_error(asio::use_awaitable, gone));
            }
            if (of->cut == fault::reset)
                of->client.set_option(asio::socket_base::linger(true, 0), ignored), of->client.close(ignored);
            if (of->cut == fault::finish)
                of->client.shutdown(tcp::socket::shutdown_both, ignored);
            --of->under_way;
        }
        (to_client ? of->server_open : of->client_open) = false;
        if (!to_client || !of->cut)
            out.shutdown(tcp::socket::shutdown_send, ignored);
        for (const auto& each : of->data)
            each->close(ignored);
    }
    /// The server's data ports become ports of the relay's.
    std::string whole_lines(link& of, bool to_client, std::string& got)
    {
        if (!ftp_ || !of.control)
            return std::exchange(got, {});
        if (!to_client)
            listing_ = boost::contains(got, "MLSD");
        std::string lines = got.substr(0, got.rfind('\n') + 1);
        got.erase(0, lines.size());
        const auto at = lines.find("(|||"), port = at + 4;
        if (!to_client || at == lines.npos)
            return lines;
        of.data.push_back(listen());
        co_spawn(io_, serve(of.data.back(), static_cast<std::uint16_t>(std::stoi(lines.substr(port))), false),
                 asio::detached);
        return lines.replace(port, lines.find('|', port) - port,
                             std::to_string(of.data.back()->local_endpoint().port()));
    }
    /// Lets the planned fault happen if its moment has come; returns how much of `bytes` is passed on.
    std::size_t strike(link& of, bool to_client, std::string& bytes)
    {
        const std::size_t size = bytes.size();
        if (!planned_ || after_ >= size)
            return after_ -= std::min(after_, size), size;
        const std::size_t at =
            ftp_ && of.control && !to_client ? 0 : after_; // ProFTPD carries out the beginning of a command
        fault kind = *planned_;
        // Plain FTP has no checksum: only what is no reply any more can be noticed. Nor has it an end of a
        // listing other than FIN, which must not come early then.
        const bool noticed = !ftp_ || (of.control && to_client && boost::is_digit()(bytes[0]));
        if (kind == fault::corrupt && !noticed)
            return after_ = 0, size;
        if (kind < fault::corrupt && ftp_ && listing_ && !of.control)
            kind = fault::reset;
        planned_.reset(), harmed += kind != fault::pieces;
        if (kind == fault::corrupt)
            bytes[ftp_ ? 0 : at] ^= static_cast<char>(1 << (ftp_ ? 4 + random_() % 4 : random_() % 8));
        else if (kind == fault::pieces)
            in_pieces_ = 1 + random_() % 4096, piece_ = random_() % 2 ? 1 : 200;
        else
            of.cut = kind == fault::truncate ? fault::finish : kind;
        return kind == fault::reset || kind == fault::truncate || kind == fault::stall ? at : size;
    }
    bool settled()
    {
        std::erase_if(links_, [](const shared& each) {
            return !each->client_open && !each->server_open && each->under_way == 0;
        });
        return std::none_of(links_.begin(), links_.end(), [](const shared& each) {
            char next = 0; // a server does not close a data connection for which it had no use
            const auto peeked =
                each->client_open ? recv(each->client.native_handle(), &next, 1, MSG_PEEK | MSG_DONTWAIT) : 0;
            return each->under_way > 0 || (each->used && each->server_open && !(peeked < 0 && errno == EAGAIN));
        });
    }

    bool ftp_, listing_ = false;
    asio::io_context io_{1};
    acceptor listener_ = listen();
    std::mt19937_64 random_;
    std::vector<shared> links_{};
    std::optional<fault> planned_{};
    std::size_t after_ = 0, in_pieces_ = 0, piece_ = 1;
    std::jthread thread_{};
};

} // namespace support
