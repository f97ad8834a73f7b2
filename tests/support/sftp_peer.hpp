#pragma once

#include "sftp_packets.hpp"

#include <sftp/packet.hpp>
#include <sftp/reply.hpp>
#include <sftp/transport.hpp>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// An SFTP server in memory. It takes the bytes that a client sent and gives those to send back, so that it can
/// stand behind a transport of its own or behind an SSH channel. Files are what its members hold.
class sftp_peer {
public:
    struct node {
        std::string content{};
        std::uint32_t mode = 0100644;
        std::uint32_t modified = 0;
    };
    struct request {
        qrftp::sftp::packet_type type;
        std::uint32_t id;
        qrftp::sftp::packet_reader fields;
    };

    std::map<std::string, node> nodes{{"/", {{}, 0040755}}};
    std::vector<std::pair<std::string, std::string>> extensions{{"posix-rename@openssh.com", "1"}};
    std::string home = "/"; ///< the folder of the login
    std::size_t max_handles = 1000;
    std::size_t max_read = qrftp::sftp::max_data;
    std::size_t names_at_once = 100;
    std::size_t max_file = std::size_t{1} << 30; ///< a WRITE beyond that is refused: the disk is full

    /// Looks at each request before it is carried out. What it returns is sent in place of the answer, empty
    /// for none.
    std::function<std::optional<std::string>(const request&)> intercept{};
    /// Sees the answers to the requests that came together, and may put them into another order.
    std::function<void(std::vector<std::string>&)> reorder{};
    /// The connection goes at the `count`th request from now on, of that type or of any: before it is carried
    /// out, or before its answer is sent.
    void cut_at(qrftp::sftp::packet_type type, std::size_t count, bool carried_out);
    void cut_after_requests(std::size_t count, bool carried_out = false);

    void receive(std::string_view bytes);
    /// What is to be sent to the client; taken off by who sends it.
    std::string output{};
    [[nodiscard]] bool is_cut() const { return is_cut_; }
    /// A new connection: open files are forgotten.
    void reconnect();

    [[nodiscard]] std::size_t open_handles() const { return handles_.size(); }
    [[nodiscard]] std::size_t most_open_handles() const { return most_handles_; }
    [[nodiscard]] std::size_t count(qrftp::sftp::packet_type type) { return counts_[type]; }
    void add_folder(const std::string& path) { nodes[path] = {{}, 0040755}; }

private:
    struct open_file {
        std::string path{};
        std::map<std::string, node>::iterator next{}; ///< of a folder
        bool listed_dots = false;
    };
    using reply_text = std::string;

    void handle(std::string_view packet);
    reply_text carry_out(request asked);
    reply_text use_handle(request asked);
    reply_text open(request asked, const std::string& path);
    reply_text read(request asked, const node& file);
    reply_text write(request asked, node& file);
    reply_text read_folder(const request& asked, open_file& folder);
    reply_text stat(const request& asked, const std::string& path);
    reply_text set_stat(request asked, const std::string& path);
    reply_text remove(const request& asked, const std::string& path);
    reply_text rename(request asked, bool replace);
    reply_text extended(request asked);
    /// Without links; without the last one where it is meant itself.
    std::string resolve(const std::string& path) const;
    std::string own_path(const std::string& path) const;

    qrftp::sftp::byte_queue input_{};
    std::vector<std::string> answers_{};
    std::map<std::string, open_file> handles_{};
    std::map<qrftp::sftp::packet_type, std::size_t> counts_{};
    std::optional<qrftp::sftp::packet_type> cut_type_{};
    std::size_t requests_to_cut_ = 0; ///< 0: none
    bool cut_is_carried_out_ = false;
    bool is_cut_ = false;
    std::size_t most_handles_ = 0;
    std::uint32_t next_handle_ = 0;
    bool has_init_ = false;
};

/// The client's side of a peer.
class peer_transport : public qrftp::sftp::transport {
public:
    explicit peer_transport(sftp_peer& peer) : peer_(peer) {}
    std::size_t read(std::span<char> buffer) override;
    std::size_t write(std::string_view bytes) override;
    void wait(bool to_write, std::chrono::milliseconds longest) override;

private:
    sftp_peer& peer_;
};
