#include "folder_scan.hpp"

#include "bulk_copy.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <utility>

namespace qrftp::sftp {

namespace {

/// How often a folder is refused before it is opened alone.
constexpr unsigned max_folder_refusals = 2;
/// How many READDIR of one folder are in flight at most.
constexpr std::size_t max_requests = 16;
/// How many names of one folder are looked at at a time: a connection carries 65,536 requests, for all folders.
constexpr std::size_t max_looks = 64;

/// What a name of a listing may be: a part of a path that is no other folder.
bool is_usable(std::string_view name)
{
    return !name.empty() && name.find('/') == std::string_view::npos &&
           name.find('\0') == std::string_view::npos;
}

} // namespace

/// One folder: OPENDIR, READDIRs until the end, CLOSE.
class folder_scan::job final : public reply_handler {
public:
    job(folder_scan& scan, std::string path) : scan_(scan), path_(std::move(path)) {}

    void start(pipeline& server, handle_window& handles)
    {
        server_ = &server;
        handles_ = &handles;
        server.send(packet_type::opendir, {this, step::open}, path_);
        handles.on_open();
        unanswered_ = 1;
        is_postponed_ = false;
    }

    void on_reply(const request_tag& tag, const reply& answer) override
    {
        --unanswered_;
        switch (tag.step) {
        case step::open:
            return on_opened(answer);
        case step::read:
            return on_names(answer);
        default:
            return on_looked_at(tag, answer);
        }
    }

    /// Forgets the connection. Whether it may be listed again: only once.
    bool interrupt()
    {
        is_complete_ = false;
        in_flight_ = 0;
        answers_ = 0;
        wanted_ = 2;
        unanswered_ = 0;
        handle_.reset();
        unknown_.clear();
        looked_ = 0;
        looking_ = 0;
        if (std::exchange(size_, 0) > 0) {
            scan_.folders_.restarted(path_);
        }
        return ++interruptions_ <= 1;
    }

    void abandon()
    {
        if (std::exchange(unanswered_, 0) > 0) {
            server_->abandon(*this);
        }
        close();
    }

    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] const std::exception_ptr& failure() const { return failure_; }
    [[nodiscard]] bool is_postponed() const { return is_postponed_; }
    /// It was refused too often to be opened beside others.
    [[nodiscard]] bool wants_to_be_alone() const { return refusals_ == max_folder_refusals; }

private:
    enum step : std::uint32_t { open, read, look };

    void on_opened(const reply& answer)
    {
        if (answer.is_status()) {
            handles_->on_refused();
            if (answer.is_status(status_code::failure) && handles_->has_open() &&
                refusals_ < max_folder_refusals) {
                ++refusals_;
                is_postponed_ = true;
                return end();
            }
            return fail(answer);
        }
        handles_->on_opened();
        handle_ = answer.handle();
        read_more();
    }

    void read_more()
    {
        for (; in_flight_ < wanted_; ++in_flight_) {
            ask(packet_type::readdir, step::read, 0, *handle_);
        }
    }

    void on_names(const reply& answer)
    {
        --in_flight_;
        if (!answer.is_status()) {
            take_names(answer);
        } else if (answer.is_status(status_code::eof)) {
            is_complete_ = true;
        } else {
            return fail(answer);
        }
        if (has_ended_) {
            return;
        }
        if (!is_complete_ && answers_ > 1) {
            read_more();
        }
        end_if_done();
    }

    void take_names(const reply& answer)
    {
        name_reader names(answer.body());
        is_complete_ = is_complete_ || names.remaining() == 0; // as some servers say that there are no more
        size_ += answer.body().rest().size();
        if (size_ > scan_.limit_) {
            failure_ = std::make_exception_ptr(IncompleteListing(
                path_, fmt::format("it is longer than {} bytes (listing_limit)", scan_.limit_)));
            return give_up();
        }
        if (++answers_ > 1) { // A short folder has ended with the second answer.
            wanted_ = std::min(2 * wanted_, max_requests);
        }
        while (names.remaining() > 0) {
            take_name(names.next());
        }
    }

    void take_name(const name_and_attributes& found)
    {
        if (found.name == "." || found.name == "..") {
            return;
        }
        if (!is_usable(found.name)) {
            return scan_.folders_.skipped(path_, found.name);
        }
        if (kind_of(found.values)) {
            return scan_.folders_.found(path_, make_entry(found.name, found.values));
        }
        unknown_.emplace_back(found.name);
        look_more();
    }

    void look_more()
    {
        for (; looking_ < max_looks && looked_ < unknown_.size(); ++looking_, ++looked_) {
            ask(packet_type::lstat, step::look, looked_, join(unknown_[looked_]));
        }
    }

    /// A server that does not tell kinds in its listings.
    void on_looked_at(const request_tag& tag, const reply& answer)
    {
        const std::string& name = unknown_[tag.offset];
        --looking_;
        look_more();
        if (answer.is_status(status_code::no_such_file)) {
            return end_if_done(); // It is gone by now.
        }
        scan_.folders_.found(path_, make_entry(name, answer.is_status() ? attributes{} : answer.attrs()));
        end_if_done();
    }

    std::string join(const std::string& name) const { return path_ == "/" ? '/' + name : path_ + '/' + name; }

    template <class... Fields>
    void ask(const request& what, step which, std::uint64_t index, const Fields&... fields)
    {
        server_->send(what, {this, which, 0, index}, fields...);
        ++unanswered_;
    }

    void end_if_done()
    {
        if (is_complete_ && unanswered_ == 0) {
            close();
            end();
        }
    }

    void fail(const reply& answer)
    {
        try {
            answer.check(path_);
        } catch (const error&) {
            failure_ = std::current_exception();
        }
        give_up();
    }

    void give_up()
    {
        abandon();
        end();
    }

    void close()
    {
        if (handle_) {
            server_->send(packet_type::close, {}, *handle_);
            handles_->on_closed(true);
            handle_.reset();
        }
    }

    void end()
    {
        has_ended_ = !is_postponed_;
        scan_.ended_.push_back(this);
    }

    folder_scan& scan_;
    std::string path_;
    pipeline* server_ = nullptr;
    handle_window* handles_ = nullptr;
    std::optional<file_handle> handle_{};
    std::vector<std::string> unknown_{}; ///< names whose kind is asked for
    std::size_t looked_ = 0;             ///< of these, for how many it has been
    std::size_t looking_ = 0;            ///< of these, how many are not answered
    std::uint64_t size_ = 0;             ///< of the answers with names, in bytes
    std::size_t answers_ = 0;            ///< with names
    std::size_t in_flight_ = 0;
    std::size_t wanted_ = 2; ///< READDIRs in flight: a short folder and its end come together
    std::size_t unanswered_ = 0;
    bool is_complete_ = false;
    bool is_postponed_ = false;
    bool has_ended_ = false;
    unsigned refusals_ = 0;
    unsigned interruptions_ = 0;
    std::exception_ptr failure_{};
};

folder_scan::folder_scan(folder_queue& folders, std::uint64_t limit, explain_function explain)
    : folders_(folders), limit_(limit), explain_(std::move(explain))
{
}

folder_scan::~folder_scan() = default;

bool folder_scan::retry(const std::exception_ptr& why)
{
    return retries_.again(why, std::exchange(reported_, 0) > 0);
}

void folder_scan::run(pipeline& server)
{
    handle_window handles(server.round_trip(), server.limits().handles);
    try {
        while (start_folders(server, handles), !active_.empty()) {
            server.pump();
            report();
        }
        send_all(server);
    } catch (...) {
        stop(server, std::current_exception());
        throw;
    }
}

void folder_scan::start_folders(pipeline& server, handle_window& handles)
{
    while (handles.has_room()) {
        std::unique_ptr<job> next = next_folder();
        if (!next) {
            return;
        }
        active_.push_back(std::move(next));
        active_.back()->start(server, handles);
    }
}

std::unique_ptr<folder_scan::job> folder_scan::next_folder()
{
    auto& waiting = again_.empty() && active_.empty() ? alone_ : again_;
    if (!waiting.empty()) {
        std::unique_ptr<job> next = std::move(waiting.back());
        waiting.pop_back();
        return next;
    }
    if (auto path = folders_.next()) {
        return std::make_unique<job>(*this, *std::move(path));
    }
    return {};
}

void folder_scan::report()
{
    while (!ended_.empty()) {
        std::unique_ptr<job> done = take(ended_.back());
        ended_.pop_back();
        if (done->is_postponed()) {
            (done->wants_to_be_alone() ? alone_ : again_).push_back(std::move(done));
            continue;
        }
        tell(*done, done->failure() && explain_ ? explain_(done->path(), done->failure()) : done->failure());
    }
}

void folder_scan::tell(const job& ended, const std::exception_ptr& failure)
{
    ++reported_;
    is_over_ = true; // if the queue throws
    if (failure) {
        folders_.failed(ended.path(), failure);
    } else {
        folders_.finished(ended.path());
    }
    is_over_ = false;
}

void folder_scan::try_to_tell(const job& ended, const std::exception_ptr& failure) noexcept
{
    const bool was_over = is_over_;
    try {
        tell(ended, failure);
        is_over_ = was_over;
    } catch (...) { // NOLINT(bugprone-empty-catch): the failure before it ends the listing already
    }
}

void folder_scan::give_up(const std::exception_ptr& why) noexcept
{
    for (auto* const waiting : {&again_, &alone_}) {
        for (const auto& each : *waiting) {
            try_to_tell(*each, why);
        }
        waiting->clear();
    }
}

std::unique_ptr<folder_scan::job> folder_scan::take(const job* wanted)
{
    const auto found = std::find_if(active_.begin(), active_.end(),
                                    [wanted](const auto& each) { return each.get() == wanted; });
    std::unique_ptr<job> taken = std::move(*found);
    active_.erase(found);
    return taken;
}

void folder_scan::stop(pipeline& server, const std::exception_ptr& why)
{
    ended_.clear();
    std::vector<std::unique_ptr<job>> left = std::exchange(active_, {});
    const bool is_open = server.is_open();
    for (auto& each : left) {
        if (is_open) {
            each->abandon();
        } else if (each->interrupt()) {
            again_.push_back(std::move(each));
        } else {
            try_to_tell(*each, why);
        }
    }
    if (is_open) {
        drain(server);
    }
}

} // namespace qrftp::sftp
