// Whole SFTP sessions: each byte of the input says how the server answers the next request.
#include "fuzz.hpp"

#include <sftp/sftp_protocol.hpp>

#include <memory_files.hpp>
#include <sftp_peer.hpp>

using namespace qrftp;
using namespace qrftp::sftp;

/// Takes the input apart. At its end everything is answered as it should be.
struct script {
    std::string_view rest;

    std::size_t take()
    {
        const std::size_t byte = rest.empty() ? 0 : static_cast<unsigned char>(rest[0]);
        rest.remove_prefix(std::min<std::size_t>(1, rest.size()));
        return byte;
    }
    std::string_view take_bytes(std::size_t size)
    {
        const std::string_view taken = rest.substr(0, size);
        rest.remove_prefix(taken.size());
        return taken;
    }
    /// A packet of any type with any content, and the right id.
    std::string any_packet(std::uint32_t id)
    {
        byte_queue out;
        packet_writer packet(out, static_cast<packet_type>(take()));
        packet.put(id);
        const std::string_view body = take_bytes(take());
        out.append(body);
        packet.finish();
        return std::string(out.bytes());
    }
    std::optional<std::string> answer(const sftp_peer::request& asked, std::string& held)
    {
        switch (take()) {
        case 1:
            return "";
        case 2:
            return status_packet(asked.id, static_cast<status_code>(take()));
        case 3:
            return any_packet(asked.id);
        case 4:
            return any_packet(static_cast<std::uint32_t>(take()));
        case 5:
            return std::string(take_bytes(take()));
        case 6:
            return data_packet(asked.id, std::string(take() * take(), 'd'));
        case 7:
            return attrs_packet(
                asked.id, {.size = take() * take(), .permissions = static_cast<std::uint32_t>(take() << 8)});
        case 8:
            return name_packet(asked.id,
                               {{std::string(take_bytes(take())), {}}, {"x", {.permissions = 0040755}}});
        case 9:
            return std::exchange(held, status_packet(asked.id, static_cast<status_code>(take() % 9)));
        default:
            return {};
        }
    }
};

/// A server from which nothing more comes is not waited for.
struct impatient_transport : peer_transport {
    using peer_transport::peer_transport;
    void wait(bool, std::chrono::milliseconds) override { throw Timeout("the server"); }
};

static void fill(sftp_peer& peer)
{
    for (int i = 0; i < 4; ++i) {
        peer.add_folder("/d" + std::to_string(i));
        peer.nodes["/d" + std::to_string(i) + "/f"] = {std::string(static_cast<std::size_t>(i) * 1'000, 'x')};
    }
    peer.max_handles = 3;
    peer.names_at_once = 1;
    peer.max_read = 400;
}

/// Whatever the server does, a request ends, with a typed error or without.
template <class Work>
static bool succeeds(const Work& work)
{
    try {
        work();
        return true;
    } catch (const error&) {
        return false;
    }
}

static void expect_ended(auto& batch)
{
    for (const auto& file : batch.files) {
        require(batch.result(file) != "several");
        require(file.finishes == (batch.result(file).empty() ? 1 : 0));
    }
}

static void copy_files(sftp_protocol& server)
{
    memory_batch<memory_download> downs;
    memory_batch<memory_upload> ups;
    for (std::size_t i = 0; i < 4; ++i) {
        const std::string path = "/d" + std::to_string(i) + "/f";
        downs.add(path, i % 2 == 0 ? std::optional(i * 1'000) : std::nullopt);
        ups.add(path, std::string(i * 1'000, 'y'), i % 2 == 0).resume = i == 3;
    }
    if (succeeds([&] { server.fetch(downs); })) {
        expect_ended(downs);
        for (const memory_download& file : downs.files) {
            require(file.is_in_order &&
                    (!downs.result(file).empty() || file.facts.size == file.content.size()));
        }
    }
    if (succeeds([&] { server.send(ups); })) {
        expect_ended(ups);
    }
}

static void fuzz(std::string_view input)
{
    script bytes{input};
    sftp_peer peer;
    fill(peer);
    std::string held;
    peer.intercept = [&](const sftp_peer::request& asked) { return bytes.answer(asked, held); };
    succeeds([&] {
        sftp_protocol server(
            [&](const session_options&, server_info&) {
                peer.reconnect();
                return std::make_unique<impatient_transport>(peer);
            },
            "host", {});
        memory_queue folders("/");
        succeeds([&] { server.list(folders); });
        copy_files(server);
        succeeds([&] { server.rename("/d1/f", "/d2/f"); });
        succeeds([&] { server.remove_folder("/d1"); });
        succeeds([&] { server.stat("/d2/f"); });
    });
}
