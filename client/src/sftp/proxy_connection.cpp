#include "proxy_connection.hpp"

#include "../bare_host.hpp"
#include "../base64.hpp"
#include "host_addresses.hpp"
#include "tcp_connection.hpp"

#include <qrftp/error.hpp>
#include <qrftp/trace.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <netinet/in.h>
#include <sys/socket.h>
#include <system_error>

namespace qrftp::sftp {

namespace {

constexpr std::uint16_t usual_port = 1080; // libcurl's, so that FTP and SFTP go the same way
constexpr std::size_t longest_header = 16384;
constexpr std::size_t longest_field = 255; // of SOCKS5

/// The bytes of a handshake over a socket that does not block.
class handshake {
public:
    handshake(int fd, interruptible_wait& wait) : fd_(fd), wait_(wait) {}

    void send(std::string_view bytes);
    std::string receive(std::size_t size);
    /// Up to and with the empty line that ends an HTTP header, byte by byte: what follows is the other side's.
    std::string receive_header();
    /// The proxy does not answer as one.
    [[noreturn]] void fail(std::string why) const
    {
        throw NoConnection(wait_.subject(), {0, "the proxy: " + std::move(why)});
    }
    /// The proxy says no.
    [[noreturn]] void refuse(std::string why) const
    {
        throw ProxyRefused(wait_.subject(), {0, std::move(why)});
    }

private:
    /// Whether `result` has a count; waits for `events` where there was nothing to do.
    bool proceed(ssize_t result, short events);

    int fd_;
    interruptible_wait& wait_;
};

bool handshake::proceed(ssize_t result, short events)
{
    if (result > 0) {
        return true;
    }
    if (result == 0) {
        fail("it closed the connection");
    }
    if (errno != EAGAIN && errno != EINTR) {
        fail(std::generic_category().message(errno));
    }
    wait_.wait(fd_, events);
    return false;
}

void handshake::send(std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t sent = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (proceed(sent, POLLOUT)) {
            bytes.remove_prefix(static_cast<std::size_t>(sent));
        }
    }
}

std::string handshake::receive(std::size_t size)
{
    std::string bytes(size, '\0');
    for (std::size_t done = 0; done < size;) {
        const ssize_t got = ::recv(fd_, bytes.data() + done, size - done, 0);
        if (proceed(got, POLLIN)) {
            done += static_cast<std::size_t>(got);
        }
    }
    return bytes;
}

std::string handshake::receive_header()
{
    std::string header;
    while (!header.ends_with("\r\n\r\n")) {
        if (header.size() >= longest_header) {
            fail("its answer has no end");
        }
        header += receive(1);
    }
    return header;
}

std::string bracketed(const std::string& host)
{
    return host.find(':') == std::string::npos ? host : '[' + host + ']';
}

void connect_http(const proxy_address& proxy, const std::string& host, std::uint16_t port, handshake& peer)
{
    const std::string target = fmt::format("{}:{}", bracketed(host), port);
    std::string request = fmt::format("CONNECT {0} HTTP/1.1\r\nHost: {0}\r\n", target);
    if (proxy.has_credentials) {
        request +=
            fmt::format("Proxy-Authorization: Basic {}\r\n", to_base64(proxy.user + ':' + proxy.password));
    }
    peer.send(request + "\r\n");
    const std::string answer = peer.receive_header();
    // "HTTP/1.1 200 …": any status of the 200s is a tunnel.
    constexpr std::size_t status_begin = 9;
    if (!answer.starts_with("HTTP/1.") || answer.size() < status_begin + 3) {
        peer.fail("it is no HTTP proxy: " + masked(answer.substr(0, answer.find('\r'))));
    }
    if (answer[status_begin] != '2') {
        peer.refuse(answer.substr(status_begin, 3));
    }
}

const char* socks_refusal(char code)
{
    static constexpr std::array words = {"",
                                         "general failure",
                                         "not allowed by its rules",
                                         "the network cannot be reached",
                                         "the host cannot be reached",
                                         "connection refused",
                                         "the connection took too long",
                                         "it does not support the command",
                                         "it does not support this kind of address"};
    const auto index = static_cast<unsigned char>(code);
    return index < words.size() ? words.at(index) : "unknown failure";
}

void authenticate_socks(const proxy_address& proxy, handshake& peer)
{
    peer.send(proxy.has_credentials ? std::string("\5\2\0\2", 4) : std::string("\5\1\0", 3));
    const std::string choice = peer.receive(2);
    if (choice[0] != 5) {
        peer.fail("it does not speak SOCKS5");
    }
    if (choice[1] == 0) {
        return;
    }
    if (choice[1] != 2 || !proxy.has_credentials) {
        peer.refuse("it wants a login that is not given");
    }
    if (proxy.user.size() > longest_field || proxy.password.size() > longest_field) {
        peer.fail("its user name or password is too long");
    }
    // RFC 1929
    peer.send(fmt::format("\1{}{}{}{}", static_cast<char>(proxy.user.size()), proxy.user,
                          static_cast<char>(proxy.password.size()), proxy.password));
    if (peer.receive(2)[1] != 0) {
        peer.refuse("it did not accept the user name or the password");
    }
}

/// The address in the form of a SOCKS5 request: its type, and the bytes.
std::string socks_address(const std::string& host, std::uint16_t port, bool by_name, interruptible_wait& wait)
{
    if (by_name) {
        return fmt::format("\3{}{}", static_cast<char>(host.size()), host);
    }
    const socket_address address = resolve(host, port, wait).front();
    if (address.family() == AF_INET6) {
        const auto* const v6 = reinterpret_cast<const sockaddr_in6*>(address.get());
        return '\4' + std::string(reinterpret_cast<const char*>(&v6->sin6_addr), sizeof v6->sin6_addr);
    }
    const auto* const v4 = reinterpret_cast<const sockaddr_in*>(address.get());
    return '\1' + std::string(reinterpret_cast<const char*>(&v4->sin_addr), sizeof v4->sin_addr);
}

void connect_socks(const proxy_address& proxy, const std::string& host, std::uint16_t port, handshake& peer,
                   interruptible_wait& wait)
{
    authenticate_socks(proxy, peer);
    if (host.size() > longest_field) {
        peer.fail("the host's name is too long for it");
    }
    const bool by_name = proxy.kind == proxy_address::protocol::socks5h;
    std::string request = std::string("\5\1\0", 3) + socks_address(host, port, by_name, wait);
    request += static_cast<char>(port >> 8U);
    request += static_cast<char>(port & 0xFFU);
    peer.send(request);
    const std::string answer = peer.receive(4);
    if (answer[1] != 0) {
        peer.refuse(socks_refusal(answer[1]));
    }
    // The address that the proxy uses, of which nothing follows.
    std::size_t length = answer[3] == 4 ? sizeof(in6_addr) : sizeof(in_addr);
    if (answer[3] == 3) {
        length = static_cast<unsigned char>(peer.receive(1)[0]);
    }
    peer.receive(length + 2);
}

} // namespace

unique_fd connect_through(const proxy_address& proxy, const std::string& host, std::uint16_t port,
                          interruptible_wait& wait)
{
    using enum proxy_address::protocol;
    if (proxy.kind != http && proxy.kind != socks5 && proxy.kind != socks5h) {
        throw InvalidOption(proxy.url(),
                            "SFTP goes through HTTP and SOCKS5 proxies, not through one of this kind");
    }
    unique_fd socket = connect_tcp(bare_host(proxy.host), proxy.port == 0 ? usual_port : proxy.port, wait);
    handshake peer(socket.get(), wait);
    if (proxy.kind == http) {
        connect_http(proxy, host, port, peer);
    } else {
        connect_socks(proxy, host, port, peer, wait);
    }
    return socket;
}

} // namespace qrftp::sftp
