#include "relay.hpp"

namespace support {
namespace {

namespace asio = boost::asio;
using asio::use_awaitable;
using asio::ip::tcp;

void end(relay::link& both)
{
    boost::system::error_code ended_already;
    for (auto* each : {&both.first, &both.second})
        each->shutdown(tcp::socket::shutdown_both, ended_already);
}

asio::awaitable<void> pump(std::shared_ptr<relay::link> both, tcp::socket& in, tcp::socket& out)
try {
    for (std::vector<char> all(1 << 16);;) {
        const auto size = co_await in.async_read_some(asio::buffer(all), use_awaitable);
        co_await asio::async_write(out, asio::buffer(all, size), use_awaitable);
    }
} catch (const boost::system::system_error&) {
    end(*both);
}

} // namespace

relay::relay(long target) : listener_(io_, {asio::ip::address_v4::loopback(), 0})
{
    co_spawn(io_, serve(static_cast<std::uint16_t>(target)), asio::detached);
    thread_ = std::jthread([this] { io_.run(); });
}

asio::awaitable<void> relay::serve(std::uint16_t target)
{
    for (;;) {
        const auto both =
            std::make_shared<link>(co_await listener_.async_accept(use_awaitable), tcp::socket(io_));
        links_.push_back(both), ++connections_;
        co_await both->second.async_connect({asio::ip::address_v4::loopback(), target}, use_awaitable);
        for (auto* each : {&both->first, &both->second})
            each->set_option(tcp::no_delay(true));
        co_spawn(io_, pump(both, both->first, both->second), asio::detached);
        co_spawn(io_, pump(both, both->second, both->first), asio::detached);
    }
}

void relay::drop()
{
    asio::post(io_, asio::use_future([this] {
                   for (const auto& each : std::exchange(links_, {}))
                       end(*each);
               }))
        .get();
}

} // namespace support
