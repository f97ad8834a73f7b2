#include "pipeline.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace qrftp::sftp {

namespace {

/// How often a request to stop is looked for.
constexpr pipeline::duration stop_interval{50};
/// What one packet of SSH carries: libssh then holds no more than that, and what it copies stays in the cache.
constexpr std::size_t read_size = std::size_t{32} * 1024;
/// What a line should be able to carry: as fast as one core decrypts.
constexpr double bytes_per_second = 400.0 * 1024 * 1024;
/// An id is the index of a slot and, above it, how often that was used: a repeated answer is then not taken for
/// that to the slot's next request.
constexpr std::uint32_t index_bits = 16;
constexpr std::size_t max_slots = std::size_t{1} << index_bits;

packet_type answer_to(packet_type type) noexcept
{
    switch (type) {
    case packet_type::open:
    case packet_type::opendir:
        return packet_type::handle;
    case packet_type::read:
        return packet_type::data;
    case packet_type::readdir:
    case packet_type::realpath:
    case packet_type::readlink:
        return packet_type::name;
    case packet_type::stat:
    case packet_type::lstat:
    case packet_type::fstat:
        return packet_type::attrs;
    default:
        return packet_type::status;
    }
}

/// The packet that is handled must stay where it is.
class dispatching {
public:
    explicit dispatching(bool& flag) : flag_(flag) { flag_ = true; }
    dispatching(const dispatching&) = delete;
    dispatching& operator=(const dispatching&) = delete;
    ~dispatching() { flag_ = false; }

private:
    bool& flag_;
};

bool ends_session(const error& failure) noexcept
{
    return failure.cause() == error_cause::protocol_error || failure.cause() == error_cause::timeout ||
           failure.cause() == error_cause::connection_lost;
}

} // namespace

request::request(packet_type kind) noexcept : type(kind), answer(answer_to(kind))
{
}

pipeline::pipeline(std::unique_ptr<transport> connection, settings options)
    : connection_(std::move(connection)), settings_(std::move(options))
{
    handshake();
    if (has_extension("limits@openssh.com", "1")) {
        send(request("limits@openssh.com", packet_type::extended_reply), {&limits_});
        limits_.is_awaited = true;
        timed_id_.reset(); // It leaves with the next request, whose round trip counts.
    }
}

bool pipeline::has_extension(std::string_view name, std::string_view version) const
{
    const auto found = extensions_.find(name);
    return found != extensions_.end() && found->second == version;
}

void pipeline::handshake()
{
    packet_writer packet(output_, packet_type::init);
    packet.put(protocol_version);
    packet.finish();
    const auto began = clock::now();
    last_progress_ = began;
    while (!has_version_) {
        exchange();
    }
    round_trip_ = clock::now() - began;
}

void pipeline::handle_version(packet_reader body)
{
    if (body.read_u32() != protocol_version) {
        throw_malformed("the server speaks another version than 3");
    }
    while (!body.at_end()) {
        const std::string_view name = body.read_string();
        extensions_.emplace(name, body.read_string());
    }
    has_version_ = true;
}

void pipeline::limits_answer::on_reply(const request_tag& /*tag*/, const reply& answer)
{
    is_awaited = false;
    if (answer.is_status()) {
        return;
    }
    packet_reader fields = answer.body();
    const std::uint64_t packet = fields.read_u64();
    const std::uint64_t read = fields.read_u64();
    const std::uint64_t write = fields.read_u64();
    limits.handles = fields.read_u64();
    const auto effective = [packet](std::uint64_t limit, std::uint32_t otherwise) {
        const std::uint64_t whole = packet > 1024 ? packet - 1024 : max_data;
        const std::uint64_t most = std::min({limit, whole, std::uint64_t{max_data}});
        return limit == 0 ? otherwise : static_cast<std::uint32_t>(std::max(most, least_data));
    };
    limits.read = effective(read, limits.read);
    limits.write = effective(write, limits.write);
}

byte_queue& pipeline::prepare()
{
    if (!is_open()) {
        throw ConnectionLost(settings_.server);
    }
    if (free_.empty()) {
        if (slots_.size() == max_slots) {
            throw std::length_error("too many SFTP requests at once");
        }
        free_.reserve(slots_.size() + 1);
        slots_.emplace_back();
        free_.push_back(static_cast<std::uint32_t>(slots_.size() - 1));
    }
    return output_;
}

std::uint32_t pipeline::next_id() const noexcept
{
    return slots_[free_.back()].uses << index_bits | free_.back();
}

void pipeline::begin(packet_writer& packet, const request& what) const
{
    packet.put(next_id());
    if (!what.extension.empty()) {
        packet.put(what.extension);
    }
}

void pipeline::register_request(const request& what, const request_tag& tag) noexcept
{
    if (outstanding_ == (limits_.is_awaited ? 1U : 0U)) {
        last_progress_ = clock::now();
        timed_id_ = next_id();
        timed_since_ = last_progress_;
    }
    slot& taken = slots_[free_.back()];
    free_.pop_back();
    taken.tag = tag;
    taken.type = what.type;
    taken.answer = what.answer;
    taken.pending = true;
    ++outstanding_;
}

reply pipeline::wait_for_answer()
{
    answer_.arrived = false;
    try {
        while (!answer_.arrived) {
            pump();
        }
    } catch (...) {
        abandon(answer_);
        throw;
    }
    return answer_.value;
}

void pipeline::kept_answer::on_reply(const request_tag& /*tag*/, const reply& answer)
{
    body = answer.body().rest(); // the input buffer moves on
    value = reply(answer.type(), packet_reader(body));
    arrived = true;
}

void pipeline::abandon(const reply_handler& handler) noexcept
{
    for (slot& each : slots_) {
        if (each.pending && each.tag.handler == &handler) {
            each.tag.handler = nullptr;
        }
    }
}

void pipeline::close() noexcept
{
    connection_.reset();
    outstanding_ = 0;
    slots_.clear();
    free_.clear();
}

void pipeline::refuse_in_handler() const
{
    if (is_dispatching_) {
        throw std::logic_error("a session was used in a callback of its own request");
    }
}

void pipeline::pump()
{
    if (!is_open()) {
        throw ConnectionLost(settings_.server);
    }
    refuse_in_handler();
    if (outstanding_ > 0 || !output_.empty()) {
        exchange();
    }
}

void pipeline::exchange()
{
    if (settings_.stop.stop_requested()) {
        throw Cancelled(settings_.server);
    }
    try {
        const bool sent = flush();
        if (!receive() && !sent) {
            wait();
        }
    } catch (const error& failure) {
        if (ends_session(failure)) {
            close();
        }
        throw;
    }
}

bool pipeline::flush()
{
    if (output_.empty()) {
        return false;
    }
    const std::size_t sent = connection_->write(output_.bytes());
    output_.consume(sent);
    if (sent > 0) {
        last_progress_ = clock::now();
    }
    return sent > 0;
}

/// Whether there was something to handle.
bool pipeline::receive()
{
    if (dispatch()) { // what an exception left behind
        return true;
    }
    const std::size_t received = connection_->read(input_.prepare(read_size));
    if (received == 0) {
        return false;
    }
    input_.commit(received);
    dispatch();
    last_progress_ =
        clock::now(); // What handling takes, a slow reader of what was fetched, is not the server's.
    return true;
}

/// Handles the packets that have arrived as a whole; returns whether there was one.
bool pipeline::dispatch()
{
    bool handled = false;
    while (input_.size() >= 4) {
        const std::size_t length = packet_reader(input_.bytes()).read_u32();
        if (length == 0 || length > max_packet) {
            throw_malformed(fmt::format("a packet is said to have {} bytes", length));
        }
        if (input_.size() - 4 < length) {
            break;
        }
        const std::string_view packet = input_.bytes().substr(4, length);
        input_.consume(4 + length); // its bytes stay where they are until the next `prepare`
        handled = true;
        const dispatching scope(is_dispatching_);
        handle_packet(packet);
    }
    return handled;
}

void pipeline::handle_packet(std::string_view packet)
{
    packet_reader fields(packet);
    const auto type = static_cast<packet_type>(fields.read_u8());
    if (!has_version_) {
        if (type != packet_type::version) {
            throw_malformed("the first packet is not VERSION");
        }
        return handle_version(fields);
    }
    const std::uint32_t id = fields.read_u32();
    const slot asked = take_slot(id);
    const reply answer(type, fields);
    trace_reply(answer);
    const bool succeeded_without_answer =
        answer.is_status(status_code::ok) && asked.answer != packet_type::status;
    if ((type != asked.answer && !answer.is_status()) || succeeded_without_answer) {
        throw_malformed(fmt::format("{} was answered by packet type {}", name_of(asked.type), packet[0]));
    }
    note_round_trip(id);
    if (asked.tag.handler != nullptr) {
        asked.tag.handler->on_reply(asked.tag, answer);
    } else {
        drop(answer);
    }
}

pipeline::slot pipeline::take_slot(std::uint32_t id)
{
    const std::uint32_t index = id & (max_slots - 1);
    if (index >= slots_.size() || !slots_[index].pending || (slots_[index].uses & 0xffff) != id >> index_bits) {
        throw_malformed("an answer has the id of no request");
    }
    const slot taken = slots_[index];
    slots_[index].pending = false;
    ++slots_[index].uses;
    free_.push_back(index);
    --outstanding_;
    return taken;
}

void pipeline::note_round_trip(std::uint32_t id)
{
    if (timed_id_ == id) {
        round_trip_ = std::min(round_trip_, clock::now() - timed_since_);
        timed_id_.reset();
        connection_->set_window(window());
    }
}

std::size_t pipeline::window() const noexcept
{
    constexpr std::size_t least = std::size_t{4} << 20;
    const auto trip = std::chrono::duration<double>(round_trip_).count();
    return static_cast<std::size_t>(std::clamp(trip * bytes_per_second, 1.0 * least, 4.0 * least));
}

void pipeline::drop(const reply& answer)
{
    if (answer.type() == packet_type::handle) {
        send(packet_type::close, {}, answer.handle());
    }
}

pipeline::duration pipeline::longest_wait() const
{
    const auto now = clock::now();
    const bool may_stall = settings_.stall_timeout > duration::zero();
    auto left =
        may_stall ? last_progress_ + settings_.stall_timeout - now : clock::duration(std::chrono::hours(1));
    if (deadline_) {
        left = std::min(left, *deadline_ - now);
    }
    return std::chrono::ceil<duration>(left);
}

void pipeline::wait()
{
    const duration left = longest_wait();
    if (left <= duration::zero()) {
        throw Timeout(settings_.server);
    }
    const bool to_write = !output_.empty();
    const duration longest = settings_.stop.stop_possible() ? stop_interval : tick_interval;
    connection_->wait(to_write, std::min(left, longest));
}

void pipeline::append_trace(std::string& line, std::uint64_t offset)
{
    line += fmt::format(" at {}", offset);
}

void pipeline::trace_reply(const reply& answer)
{
    if (!is_traced(trace_level::dialogue)) {
        return;
    }
    if (answer.is_status()) {
        trace_line(fmt::format("< STATUS {} {}", static_cast<std::uint32_t>(answer.code()), answer.message()));
    } else {
        trace_line(fmt::format("< {}", name_of(answer.type())));
    }
}

} // namespace qrftp::sftp
