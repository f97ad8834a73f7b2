#pragma once

#include <utility> // Boost.Asio 1.74 forgets it

#include <atomic>
#include <boost/asio.hpp>
#include <thread>

namespace support {

/// Stands between a client and a server on 127.0.0.1 and can cut what runs through it.
class relay {
public:
    using link = std::pair<boost::asio::ip::tcp::socket, boost::asio::ip::tcp::socket>;
    explicit relay(long target);
    relay(const relay&) = delete;
    ~relay() { io_.stop(); }

    long port() const { return listener_.local_endpoint().port(); }
    int connections() const { return connections_; } ///< accepted so far
    /// Ends all present connections on both sides; both can know of it when this returns.
    void drop();

private:
    boost::asio::awaitable<void> serve(std::uint16_t target);
    boost::asio::io_context io_{1};
    boost::asio::ip::tcp::acceptor listener_;
    std::vector<std::shared_ptr<link>> links_{};
    std::atomic<int> connections_ = 0;
    std::jthread thread_{};
};

} // namespace support
