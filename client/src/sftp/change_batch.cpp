#include "change_batch.hpp"

#include <utility>

namespace qrftp::sftp {

namespace {

constexpr std::size_t max_in_flight = 128;

} // namespace

void send_change(pipeline& server, const request_tag& tag, const path_change& change)
{
    switch (change.what) {
    case path_change::kind::make_folder:
        return server.send(packet_type::mkdir, tag, change.path, attributes{});
    case path_change::kind::remove_file:
        return server.send(packet_type::remove, tag, change.path);
    case path_change::kind::remove_folder:
        return server.send(packet_type::rmdir, tag, change.path);
    }
}

change_batch::change_batch(std::span<const path_change> changes, done_function on_done)
    : changes_(changes), on_done_(std::move(on_done)), is_answered_(changes.size())
{
}

void change_batch::run(pipeline& server)
{
    try {
        while (reported_ < changes_.size()) {
            for (; next_ < changes_.size() && next_ - reported_ < max_in_flight; ++next_) {
                request_tag tag{this};
                tag.offset = next_;
                send_change(server, tag, changes_[next_]);
            }
            server.pump();
            report();
        }
    } catch (...) {
        server.abandon(*this);
        report();
        throw;
    }
}

void change_batch::on_reply(const request_tag& tag, const reply& answer)
{
    std::exception_ptr failure;
    try {
        answer.check(changes_[tag.offset].path);
    } catch (const error&) {
        failure = std::current_exception();
    }
    is_answered_[tag.offset] = true;
    answered_.emplace_back(tag.offset, std::move(failure));
}

void change_batch::report()
{
    for (auto& [index, failure] : std::exchange(answered_, {})) {
        ++reported_;
        on_done_(index, std::move(failure));
    }
}

std::vector<std::size_t> change_batch::unanswered() const
{
    std::vector<std::size_t> left;
    for (std::size_t i = 0; i < is_answered_.size(); ++i) {
        if (!is_answered_[i]) {
            left.push_back(i);
        }
    }
    return left;
}

} // namespace qrftp::sftp
