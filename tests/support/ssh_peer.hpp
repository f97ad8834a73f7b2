#pragma once

#include <utility> // Boost.Asio 1.74 forgets it

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace support {

/// An SSH server in the test process, on a free port of loopback. It hands the bytes of each "sftp" channel to
/// a handler of its own. Ends with the object, and with it all connections.
class ssh_peer {
public:
    /// Takes what arrived on a channel and returns what to send; no value cuts the connection.
    using channel_handler = std::function<std::optional<std::string>(std::string_view bytes)>;

    /// Where the server goes away without a word.
    enum class cut { never, greeting, key_exchange, login, channel };

    struct question {
        std::string text{};
        bool echo = false;
        std::string answer{};
    };

    struct script {
        std::vector<std::string> host_keys{"ed25519"}; ///< of "ed25519", "ecdsa", "rsa"
        std::string password{};                        ///< empty: passwords are refused
        std::string public_key{};                      ///< the key that is accepted, in SSH's encoding
        /// keyboard-interactive: each round of questions, all of which must be answered as they say
        std::vector<std::vector<question>> rounds{};
        bool needs_key_and_password = false;
        bool has_sftp = true;
        std::function<void()> before_subsystem{}; ///< called before the answer, which it may hold up
        std::size_t most_channels = SIZE_MAX;     ///< of a connection
        cut cut_at = cut::never;
        /// Makes the handler of a new channel; without it, what arrives is sent back.
        std::function<channel_handler()> new_channel{};
    };

    explicit ssh_peer(script wanted);
    ssh_peer(const ssh_peer&) = delete;
    ssh_peer& operator=(const ssh_peer&) = delete;
    ~ssh_peer();

    [[nodiscard]] std::uint16_t port() const { return port_; }
    /// What was tried, in order: "none", "publickey", "password SECRET", "interactive ANSWER, ANSWER".
    [[nodiscard]] std::vector<std::string> tries() const;
    /// The host key of a type, in SSH's encoding.
    [[nodiscard]] const std::string& host_key(std::size_t index = 0) const { return host_keys_.at(index); }

private:
    class connection;

    void make_host_keys();
    void accept_all();
    void note(std::string tried);

    script script_;
    void* bind_ = nullptr; ///< ssh_bind
    std::vector<std::string> host_keys_;
    boost::asio::io_context io_;
    boost::asio::ip::tcp::acceptor listener_;
    std::uint16_t port_;
    mutable std::mutex mutex_;
    std::vector<std::string> tries_;
    std::list<std::pair<int, std::thread>> running_; ///< sockets, not closed before the end
    bool ended_ = false;
    std::thread acceptor_;
};

/// Makes a private key of the type "ed25519", "ecdsa" or "rsa"; returns its public key in SSH's encoding.
std::string make_key_file(const std::filesystem::path& file, const std::string& type = "ed25519",
                          const char* pass_phrase = nullptr);

} // namespace support
