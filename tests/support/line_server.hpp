#pragma once

#include <cstdint>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace support {

/// A port of loopback that says a line to whoever connects, and then nothing.
class line_server {
public:
    explicit line_server(std::string line) : socket_(::socket(AF_INET, SOCK_STREAM, 0)), line_(std::move(line))
    {
        socklen_t size = sizeof address_;
        address_.sin_family = AF_INET;
        address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::bind(socket_, reinterpret_cast<const sockaddr*>(&address_), size);
        ::listen(socket_, 1);
        ::getsockname(socket_, reinterpret_cast<sockaddr*>(&address_), &size);
        thread_ = std::thread([this] {
            const int client = ::accept(socket_, nullptr, nullptr);
            ::send(client, line_.data(), line_.size(), MSG_NOSIGNAL);
            char byte = 0;
            while (::recv(client, &byte, 1, 0) > 0) {
                received_ += byte;
            }
            ::close(client);
        });
    }
    /// What the client has sent, once it is gone.
    [[nodiscard]] std::string received()
    {
        thread_.join();
        thread_ = std::thread([] {});
        return received_;
    }
    ~line_server()
    {
        ::shutdown(socket_, SHUT_RDWR);
        thread_.join();
        ::close(socket_);
    }
    [[nodiscard]] std::uint16_t port() const { return ntohs(address_.sin_port); }

private:
    int socket_;
    std::string line_;
    std::string received_{};
    sockaddr_in address_{};
    std::thread thread_;
};

} // namespace support
