#include "sftp_server.hpp"

#include <utility>

namespace support {

namespace {

const std::string arrow = "-> ";

sftp_peer::node to_node(const std::string& content)
{
    constexpr std::uint32_t time = 1704164645; // 2024-01-02 03:04:05
    if (content == "/")
        return {"", 0040755, time};
    if (content.starts_with(arrow))
        return {content.substr(arrow.size()), 0120777, time};
    return {content, 0100644, time};
}

std::string to_content(const sftp_peer::node& node)
{
    switch (node.mode & 0170000) {
    case 0040000:
        return "/";
    case 0120000:
        return arrow + node.content;
    default:
        return node.content;
    }
}

} // namespace

sftp_server::sftp_server() : ssh_({.password = "p", .new_channel = [this] { return open_channel(); }})
{
}

std::string sftp_server::url() const
{
    return "sftp://127.0.0.1:" + std::to_string(ssh_.port());
}

void sftp_server::keep(const files& all)
{
    script([&](sftp_peer& peer) {
        peer.nodes = {{"/", to_node("/")}};
        for (const auto& [path, content] : all)
            peer.nodes[path] = to_node(content);
    });
}

files sftp_server::kept() const
{
    const std::lock_guard lock(mutex_);
    files all;
    for (const auto& [path, node] : peer_.nodes)
        if (path != "/")
            all[path] = to_content(node);
    return all;
}

void sftp_server::script(const std::function<void(sftp_peer& peer)>& change)
{
    const std::lock_guard lock(mutex_);
    change(peer_);
}

int sftp_server::cuts() const
{
    const std::lock_guard lock(mutex_);
    return cuts_;
}

ssh_peer::channel_handler sftp_server::open_channel()
{
    const std::lock_guard lock(mutex_);
    if (!stays_away_ || cuts_ == 0)
        peer_.reconnect();
    return [this](std::string_view bytes) { return answer(bytes); };
}

std::optional<std::string> sftp_server::answer(std::string_view bytes)
{
    const std::lock_guard lock(mutex_);
    if (peer_.is_cut())
        return std::nullopt;
    peer_.receive(bytes);
    cuts_ += peer_.is_cut() ? 1 : 0;
    std::string output = std::exchange(peer_.output, {});
    return peer_.is_cut() ? std::nullopt : std::optional(std::move(output));
}

} // namespace support
