#include "../refusal.hpp"
#include "../remote_path.hpp"
#include "../replace.hpp"
#include "bulk_copy.hpp"
#include "change_batch.hpp"
#include "download_job.hpp"
#include "folder_scan.hpp"
#include "sftp_protocol.hpp"
#include "upload_job.hpp"

#include <utility>

/// What `sftp_protocol` does of many at once.
namespace qrftp::sftp {

namespace {

/// Whether the server said no, without a word that says enough.
bool needs_reason(const error& failure)
{
    return failure.cause() == error_cause::refused || failure.cause() == error_cause::not_found ||
           failure.cause() == error_cause::permission_denied;
}

bool ends_request(const error& failure)
{
    switch (failure.cause()) {
    case error_cause::connection_lost:
    case error_cause::timeout:
    case error_cause::protocol_error:
    case error_cause::cancelled:
        return true;
    default:
        return false;
    }
}

/// Runs `work`, which is to throw the reason for `why`, and returns it.
template <class Work>
std::exception_ptr reason_for(const std::exception_ptr& why, const Work& work)
{
    try {
        std::rethrow_exception(why);
    } catch (const error& failure) {
        if (!needs_reason(failure)) {
            return why;
        }
        try {
            work(failure);
        } catch (const error& reason) {
            return ends_request(reason) ? why : std::current_exception();
        }
        return why;
    } catch (...) {
        return why;
    }
}

/// While it lives, requests on the side open no new connection, or may again.
class carrying {
public:
    explicit carrying(bool& flag, bool value = true) : flag_(flag), before_(std::exchange(flag, value)) {}
    carrying(const carrying&) = delete;
    carrying& operator=(const carrying&) = delete;
    ~carrying() { flag_ = before_; }

private:
    bool& flag_;
    bool before_;
};

/// A single folder as a queue.
class single_folder final : public folder_queue {
public:
    single_folder(const std::string& path, const listing_sink& sink) : path_(&path), sink_(sink) {}

    std::optional<std::string> next() override
    {
        const std::string* const path = std::exchange(path_, nullptr);
        return path == nullptr ? std::nullopt : std::optional(*path);
    }
    void found(const std::string& /*folder*/, entry&& what) override { sink_.on_entry(std::move(what)); }
    void skipped(const std::string& /*folder*/, std::string_view line) override
    {
        if (sink_.on_skipped) {
            sink_.on_skipped(line);
        }
    }
    void restarted(const std::string& folder) override
    {
        if (!sink_.on_restart) {
            throw ConnectionLost(folder);
        }
        sink_.on_restart();
    }
    void finished(const std::string& /*folder*/) override {}
    void failed(const std::string& /*folder*/, std::exception_ptr why) override { std::rethrow_exception(why); }

private:
    const std::string* path_;
    const listing_sink& sink_;
};

} // namespace

void sftp_protocol::change(std::span<const path_change> changes,
                           const std::function<void(std::size_t, std::exception_ptr)>& on_done)
{
    change_batch batch(changes, [&](std::size_t index, const std::exception_ptr& why) {
        on_done(index, why ? explain_change(changes[index], why) : why);
    });
    pipeline& server = connected();
    try {
        const carrying scope(is_carrying_);
        return batch.run(server);
    } catch (const ConnectionLost&) {
        if (server.is_open()) {
            throw;
        }
    }
    for (const std::size_t index : batch.unanswered()) {
        std::exception_ptr failure;
        try {
            if (!is_carried_out(changes[index])) {
                change_one(changes[index]);
            }
        } catch (const error&) {
            failure = std::current_exception();
        }
        on_done(index, failure);
    }
}

std::exception_ptr sftp_protocol::explain_change(const path_change& change, const std::exception_ptr& why)
{
    return reason_for(why, [&](const error& failure) {
        switch (change.what) {
        case path_change::kind::make_folder:
            throw_refusal(*this, change.path, expected::nothing, said_by(failure));
        case path_change::kind::remove_file:
            throw_refusal(*this, change.path, expected::file, said_by(failure));
        case path_change::kind::remove_folder:
            throw_refusal(*this, change.path, expected::empty_folder, said_by(failure));
        }
    });
}

void sftp_protocol::list(const std::string& path, const listing_sink& sink)
{
    single_folder folder(path, sink);
    list(folder);
}

void sftp_protocol::list(folder_queue& folders)
{
    folder_scan scan(folders, options_.listing_limit,
                     [this](const std::string& folder, const std::exception_ptr& why) {
                         return reason_for(why, [&](const error& failure) {
                             throw_refusal(*this, folder, expected::folder, said_by(failure));
                         });
                     });
    carry_out(scan);
}

void sftp_protocol::fetch(download_batch& files)
{
    bulk_copy<download_job> copy(files, hooks());
    carry_out(copy);
}

void sftp_protocol::send(upload_batch& files)
{
    bulk_copy<upload_job> copy(files, hooks());
    carry_out(copy);
}

/// Runs `work`, which keeps what is left, over one connection after another, as long as it wants another one.
template <class Work>
void sftp_protocol::carry_out(Work& work)
{
    try {
        for (;;) {
            std::shared_ptr<pipeline> server;
            try {
                connected();
                server = pipeline_; // It stays while a replacement opens the next one.
                const carrying scope(is_carrying_);
                return work.run(*server);
            } catch (const error&) {
                const bool is_lost = !server || !server->is_open();
                if (!is_lost || work.is_over() || !work.retry(std::current_exception())) {
                    throw;
                }
            }
        }
    } catch (...) {
        work.give_up(std::current_exception());
        throw;
    }
}

copy_hooks sftp_protocol::hooks()
{
    return {.explain = [this](const std::string& path, bool is_upload,
                              const std::exception_ptr& why) { return explain_copy(path, is_upload, why); },
            .replace = [this](const std::string& from, const std::string& to) { replace(from, to); },
            .on_file_ended = [this] { limit_time(); }};
}

/// What was moved aside goes back although the connection is lost: over a new one, which the batch then uses.
void sftp_protocol::replace(const std::string& from, const std::string& to)
{
    const carrying none(is_carrying_, false);
    try {
        replace_file(*this, from, to, true);
    } catch (...) {
        clean_up([&] { remove_file(from); });
        throw;
    }
}

std::exception_ptr sftp_protocol::explain_copy(const std::string& path, bool is_upload,
                                               const std::exception_ptr& why)
{
    return reason_for(why, [&](const error& failure) {
        if (failure.cause() == error_cause::refused && is_upload && is_disk_full(path)) {
            throw DiskFull(path, said_by(failure));
        }
        throw_refusal(*this, path, is_upload ? expected::new_file : expected::file, said_by(failure));
    });
}

bool sftp_protocol::is_disk_full(const std::string& path)
{
    try {
        const auto left = ask_space(connected(), remote_path::parent(path));
        return left && left->available == 0;
    } catch (const error&) { // It is not known, then.
        return false;
    }
}

} // namespace qrftp::sftp
