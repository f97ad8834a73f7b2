#pragma once

#include "../trace.hpp"
#include "byte_queue.hpp"
#include "packet.hpp"
#include "reply.hpp"
#include "transport.hpp"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace qrftp::sftp {

class reply_handler;

/// A request by its kind, with the type of answer that it may get beside STATUS; STATUS where there is none.
struct request {
    request(
        packet_type kind) noexcept; // NOLINT(google-explicit-constructor): requests are written as their type
    /// An extended request.
    request(std::string_view name, packet_type wanted) noexcept
        : type(packet_type::extended), answer(wanted), extension(name)
    {
    }

    packet_type type;
    packet_type answer;
    std::string_view extension{};
};

/// What a request was for: given with it, handed back with its answer.
struct request_tag {
    reply_handler* handler = nullptr; ///< without one the answer is dropped, and a handle in it closed
    std::uint32_t step = 0;
    std::uint32_t length = 0;
    std::uint64_t offset = 0;
};

/// Takes answers. It may send further requests but not `call` or `pump`; what it throws comes out of `pump`.
class reply_handler {
public:
    virtual void on_reply(const request_tag& tag, const reply& answer) = 0;

protected:
    ~reply_handler() = default;
};

/// What the server takes at most (limits@openssh.com), else what every server takes.
struct server_limits {
    std::uint32_t read = 32 * 1024;  ///< bytes asked for by one READ
    std::uint32_t write = 32 * 1024; ///< bytes sent by one WRITE
    std::uint64_t handles = 0;       ///< open at once; 0 when not known
};

/// One SFTP session: requests are sent without waiting for the answers to those before them, and matched with
/// their answers by id, in whatever order these come. One thread at a time.
///
/// A server that does not keep to the protocol, one that is silent for the stall timeout and one that is gone
/// end the session: `ProtocolError`, `Timeout`, `ConnectionLost`. Its transport is then closed and everything
/// throws `ConnectionLost`. `Cancelled` leaves the session as it is.
class pipeline {
public:
    using duration = std::chrono::milliseconds;
    using clock = std::chrono::steady_clock;

    struct settings {
        std::string server{}; ///< the subject of errors
        duration stall_timeout = std::chrono::seconds(60);
        std::stop_token stop{};
    };
    /// How long `pump` waits at most.
    static constexpr std::chrono::seconds tick_interval{1};

    /// Exchanges INIT and VERSION and asks for the limits. The answer costs no round trip: it comes before that
    /// to the next request.
    pipeline(std::unique_ptr<transport> connection, settings options);

    [[nodiscard]] const server_limits& limits() const noexcept { return limits_.limits; }
    using extension_map = std::map<std::string, std::string, std::less<>>;
    /// What VERSION offered, with its data.
    [[nodiscard]] const extension_map& extensions() const noexcept { return extensions_; }
    /// Whether the server offers the extension in that version.
    [[nodiscard]] bool has_extension(std::string_view name, std::string_view version) const;
    /// The shortest time that an answer took while nothing else was on its way; VERSION's is the first.
    [[nodiscard]] clock::duration round_trip() const noexcept { return round_trip_; }
    /// How many bytes may be on their way: more on longer lines, 4 to 16 MiB.
    [[nodiscard]] std::size_t window() const noexcept;

    void set_stall_timeout(duration longest) noexcept { settings_.stall_timeout = longest; }
    void set_stop(std::stop_token stop) noexcept { settings_.stop = std::move(stop); }
    [[nodiscard]] const std::stop_token& stop() const noexcept { return settings_.stop; }
    [[nodiscard]] std::optional<clock::time_point> deadline() const noexcept { return deadline_; }
    /// When everything is to be over: `Timeout` from then on.
    void set_deadline(std::optional<clock::time_point> deadline) noexcept { deadline_ = deadline; }

    /// Puts a request into the output buffer. The fields are those of the draft, in order and of exact types; a
    /// `file_handle` is one.
    template <class... Fields>
    void send(const request& what, const request_tag& tag, const Fields&... fields)
    {
        trace_request(what, fields...);
        packet_writer packet(prepare(), what.type);
        begin(packet, what);
        (put_field(packet, fields), ...);
        packet.finish();
        register_request(what, tag);
    }

    /// Puts a WRITE of up to `size` bytes into the output buffer. `read`, given a `std::span<char>`, reads them
    /// into it and returns how many they were, as this does. Nothing is sent when it was none.
    template <class Read>
    std::size_t send_write(request_tag tag, const file_handle& file, std::uint32_t size, const Read& read)
    {
        packet_writer packet(prepare(), packet_type::write);
        begin(packet, packet_type::write);
        packet.put(file.bytes);
        packet.put(tag.offset);
        const std::size_t filled = packet.put_from(size, read);
        if (filled > 0) {
            trace_request(packet_type::write, tag.offset);
            packet.finish();
            tag.length = static_cast<std::uint32_t>(filled);
            register_request(packet_type::write, tag);
        }
        return filled;
    }

    /// Sends a request and waits for its answer, which lives until the next call. Other answers are handled
    /// meanwhile.
    template <class... Fields>
    reply call(const request& what, const Fields&... fields)
    {
        refuse_in_handler();
        send(what, {&answer_}, fields...);
        return wait_for_answer();
    }

    /// Sends what is waiting and handles the answers that have arrived. Waits for the one or the other if there
    /// was neither, for `tick_interval` at most; does nothing when no answer is owed. Throws `Cancelled` within
    /// 100 ms of the request to stop.
    void pump();

    /// Drops the answers that `handler` has not had yet; files that the server opens for them are closed.
    void abandon(const reply_handler& handler) noexcept;

    [[nodiscard]] std::size_t outstanding() const noexcept { return outstanding_; }
    [[nodiscard]] std::size_t unsent() const noexcept { return output_.size(); }
    [[nodiscard]] bool is_open() const noexcept { return connection_ != nullptr; }
    /// Further streams of the connection: see `transport`.
    [[nodiscard]] transport::opener further_streams() const
    {
        return is_open() ? connection_->further_streams() : transport::opener();
    }
    void close() noexcept;

private:
    struct slot {
        request_tag tag{};
        packet_type type{};
        packet_type answer{};
        std::uint32_t uses = 0;
        bool pending = false;
    };
    struct limits_answer : reply_handler {
        void on_reply(const request_tag& tag, const reply& answer) override;
        server_limits limits{};
        bool is_awaited = false;
    };
    /// Keeps the answer to a `call`.
    struct kept_answer : reply_handler {
        void on_reply(const request_tag& tag, const reply& answer) override;
        std::string body{};
        reply value{};
        bool arrived = false;
    };

    template <class Field>
    static void put_field(packet_writer& packet, const Field& field)
    {
        if constexpr (requires { packet.put(field); }) {
            packet.put(field);
        } else {
            put(packet, field);
        }
    }
    static void put(packet_writer& packet, const file_handle& file) { packet.put(file.bytes); }
    static void put(packet_writer& packet, const attributes& values) { sftp::put(packet, values); }

    /// "> OPEN /a/b" and "< STATUS 2 No such file".
    template <class... Fields>
    static void trace_request(const request& what, const Fields&... fields)
    {
        if (is_traced(trace_level::dialogue)) {
            std::string line = "> ";
            line += what.extension.empty() ? name_of(what.type) : what.extension;
            (append_trace(line, fields), ...);
            trace_line(line);
        }
    }
    static void append_trace(std::string& line, std::string_view name) { line.append(" ").append(name); }
    static void append_trace(std::string& line, std::uint64_t offset);
    static void append_trace(std::string& /*line*/, std::uint32_t /*number*/) {}
    static void append_trace(std::string& /*line*/, const file_handle& /*handle*/) {}
    static void append_trace(std::string& /*line*/, const attributes& /*facts*/) {}
    static void trace_reply(const reply& answer);

    void refuse_in_handler() const;
    byte_queue& prepare();
    [[nodiscard]] std::uint32_t next_id() const noexcept;
    void begin(packet_writer& packet, const request& what) const;
    void register_request(const request& what, const request_tag& tag) noexcept;
    reply wait_for_answer();

    void handshake();
    void exchange();
    bool flush();
    bool receive();
    bool dispatch();
    void handle_packet(std::string_view packet);
    void handle_version(packet_reader body);
    slot take_slot(std::uint32_t id);
    void note_round_trip(std::uint32_t id);
    void drop(const reply& answer);
    void wait();
    [[nodiscard]] duration longest_wait() const;

    std::unique_ptr<transport> connection_;
    settings settings_;
    std::optional<clock::time_point> deadline_{};
    extension_map extensions_{};
    limits_answer limits_{};
    bool has_version_ = false;
    bool is_dispatching_ = false;

    byte_queue output_{};
    byte_queue input_{};
    std::vector<slot> slots_{};
    std::vector<std::uint32_t> free_{}; ///< indexes of slots
    std::size_t outstanding_ = 0;
    kept_answer answer_{};

    clock::time_point last_progress_ = clock::now();
    std::optional<std::uint32_t> timed_id_{};
    clock::time_point timed_since_{};
    clock::duration round_trip_ = std::chrono::hours(1);
};

} // namespace qrftp::sftp
