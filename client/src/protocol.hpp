#pragma once

#include "retry_policy.hpp"

#include <qrftp/checksum.hpp>
#include <qrftp/disk_space.hpp>
#include <qrftp/entry.hpp>
#include <qrftp/error.hpp>
#include <qrftp/options.hpp>
#include <qrftp/server_info.hpp>
#include <qrftp/url.hpp>

#include <chrono>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace qrftp {

class random_reader;

/// What is known of a file's content and is copied with it. Empty: not told, or not to be set.
struct file_facts {
    std::optional<std::uint64_t> size{};
    std::optional<std::chrono::sys_seconds> modified{};
    std::optional<std::filesystem::perms> mode{};
    std::optional<checksum> content{};
};

/// What an entry tells of it; its time where that is exact.
[[nodiscard]] file_facts facts_of(const entry& found);

/// A part of a file, in bytes from its beginning.
struct byte_range {
    static constexpr std::uint64_t to_the_end = std::numeric_limits<std::uint64_t>::max();

    std::uint64_t begin = 0;
    std::uint64_t end = to_the_end;

    [[nodiscard]] bool is_whole() const { return begin == 0 && end == to_the_end; }
    /// Whether a file that is sent is given its facts and its name after it: nothing is left to be sent then.
    [[nodiscard]] bool is_last() const { return end == to_the_end; }
};

/// One file on its way from the server. What its members throw ends the transfer of this file.
class download {
public:
    explicit download(std::string path) : path_(std::move(path)) {}
    download(const download&) = delete;
    download& operator=(const download&) = delete;
    virtual ~download() = default;

    /// The remote file, absolute.
    [[nodiscard]] const std::string& path() const { return path_; }

    /// Whether `begin` has to be given the size and the time, since what is there already is to be completed.
    [[nodiscard]] virtual bool needs_size() const = 0;
    /// Whether `begin` is better given the time: a transfer that breaks off can then go on.
    [[nodiscard]] virtual bool wants_time() const { return false; }
    /// Whether `finish` has to be given the modification time.
    [[nodiscard]] virtual bool needs_time() const = 0;
    /// Whether `finish` has to be given the mode.
    [[nodiscard]] virtual bool needs_mode() const { return false; }
    /// Whether `finish` has to be given the checksum of the content.
    [[nodiscard]] virtual bool needs_checksum() const { return false; }
    /// The size that a listing told, where it may be relied on: it need not be asked for.
    [[nodiscard]] virtual std::optional<std::uint64_t> listed_size() const = 0;
    /// The modification time that a listing told for certain.
    [[nodiscard]] virtual std::optional<std::chrono::sys_seconds> listed_time() const { return {}; }

    /// The server has the file: opens what is written to. Returns what is wanted of the file. Called once, and
    /// for each part where the file comes in parts.
    virtual byte_range begin(const file_facts& source) = 0;
    /// Takes bytes of the file that begin at `offset` in it. Those of one part come in order, unless
    /// `takes_any_order`.
    virtual void write(std::uint64_t offset, std::string_view bytes) = 0;
    [[nodiscard]] virtual bool takes_any_order() const = 0;
    /// Called about every second while the transfer lasts, also when nothing arrives: reports progress.
    virtual void tick() {}
    /// Forgets what was written since `begin`, whose answer still holds: it comes once more. False where it was
    /// given away.
    virtual bool restart() = 0;
    /// Everything that was wanted has been written: checks it, and gives the target its name. Called once for
    /// each part; the last one counts.
    virtual void finish(const file_facts& source) = 0;

private:
    std::string path_;
};

/// One file on its way to the server. What its members throw ends the transfer of this file.
class upload {
public:
    explicit upload(std::string target) : target_(std::move(target)) {}
    upload(const upload&) = delete;
    upload& operator=(const upload&) = delete;
    virtual ~upload() = default;

    /// The remote file in the end, absolute.
    [[nodiscard]] const std::string& target() const { return target_; }
    /// What is written to: a temporary name beside the target, or the target itself.
    [[nodiscard]] virtual const std::string& path() const = 0;
    [[nodiscard]] bool is_temporary() const { return path() != target(); }
    /// Gives the upload another temporary name: the server did not take the one before.
    virtual void rename_temporary() = 0;
    /// Whether a target that exists may be replaced.
    [[nodiscard]] virtual bool may_replace() const = 0;
    /// Whether `begin` has to be given the size of what is at `path`.
    [[nodiscard]] virtual bool resumes() const = 0;
    /// Where it resumes and there is nothing under the temporary name: whether a target is completed instead.
    [[nodiscard]] virtual bool completes_target() const { return resumes(); }
    /// Told of that target. It is not completed, false, where it is older than the source.
    virtual bool complete_target(const file_facts& there) = 0;
    /// Whether what is under the temporary name stays for a later transfer when this one fails.
    [[nodiscard]] virtual bool keeps_temporary() const = 0;

    /// Opens the source. `there` is what the server has at `path`, where `resumes`; nothing when there is none.
    /// Returns what is to be sent; an empty range when all of it is there.
    virtual byte_range begin(const std::optional<file_facts>& there) = 0;
    /// How long the source is; nothing when only its end tells.
    [[nodiscard]] virtual std::optional<std::uint64_t> size() const = 0;
    /// Reads bytes of the source from `offset` on; 0 at its end. In order, unless `reads_anywhere`.
    virtual std::size_t read(std::uint64_t offset, std::span<char> buffer) = 0;
    /// Whether the source can be read from any place, and again.
    [[nodiscard]] virtual bool reads_anywhere() const = 0;
    /// After the connection broke: whether the source is what it was. If not, all of it is to be sent anew.
    virtual bool is_unchanged() = 0;
    /// Whether `facts_to_set` has to be given what it replaces: a file that is replaced keeps its mode.
    [[nodiscard]] virtual bool needs_replaced() const = 0;
    /// What the file at `path` is given when all of it was sent, as far as the server can. `replaced` is what
    /// has the name of the target now.
    [[nodiscard]] virtual file_facts facts_to_set(const std::optional<entry>& replaced) const = 0;
    /// Told what the server has confirmed; reports progress.
    virtual void sent(std::uint64_t bytes) = 0;
    /// Called about every second while the transfer lasts, also when nothing is confirmed: reports progress.
    virtual void tick() {}

    /// Whether `verify` is to be called when all of it has been sent.
    [[nodiscard]] virtual bool needs_verifying() const { return false; }
    /// Throws `ChecksumMismatch` if what the server has stored is something else than the source.
    virtual void verify(const checksum& /*stored*/) {}

    /// The target has its name.
    virtual void finish() = 0;

private:
    std::string target_;
};

/// Files that are copied over one connection or several, each of which takes from the batch what it can carry.
template <class File>
class batch {
public:
    struct part {
        File* file = nullptr;
        byte_range range{}; ///< whole, unless the file is spread over several connections
    };

    explicit batch(retry_policy retries = {}) : retries_(std::move(retries)) {}
    batch(const batch&) = delete;
    batch& operator=(const batch&) = delete;
    virtual ~batch() = default;

    /// The next part to carry; nothing when none is left. A part that was handed out comes back by `finished`
    /// or `failed`.
    virtual std::optional<part> next() = 0;
    virtual void finished(const part& done) = 0;
    /// The file is as if it had not been begun. May throw, which ends the batch: other files under way are
    /// given up.
    virtual void failed(const part& lost, std::exception_ptr why) = 0;
    /// Whether other connections carry what this one loses, which then comes to `take_back`.
    [[nodiscard]] virtual bool ends_with_connection() const { return false; }
    virtual void take_back(const part& /*left*/) {}
    /// The connection broke: whether what was under way is taken up again, which it then is right away.
    bool retry(const std::exception_ptr& why, bool advanced) { return retries_.again(why, advanced); }

private:
    retry_policy retries_;
};

using download_batch = batch<download>;
using upload_batch = batch<upload>;

/// Folders that are listed; their entries may put further ones into the queue.
class folder_queue {
public:
    folder_queue() = default;
    folder_queue(const folder_queue&) = delete;
    folder_queue& operator=(const folder_queue&) = delete;
    virtual ~folder_queue() = default;

    /// An absolute folder; nothing when none waits at the moment.
    virtual std::optional<std::string> next() = 0;
    virtual void found(const std::string& folder, entry&& what) = 0;
    virtual void skipped(const std::string& folder, std::string_view line) = 0;
    /// What was told of `folder` so far is void: it is listed once more.
    virtual void restarted(const std::string& folder) = 0;
    virtual void finished(const std::string& folder) = 0;
    /// May throw, which ends the listing.
    virtual void failed(const std::string& folder, std::exception_ptr why) = 0;
};

/// What listing one folder calls.
struct listing_sink {
    std::function<void(entry&&)> on_entry;
    std::function<void(std::string_view)> on_skipped{};
    /// Forgets what was given; without it, a listing of which something was given away is not asked for again.
    std::function<void()> on_restart{};
};

/// One change of many that do not depend on each other.
struct path_change {
    enum class kind { make_folder, remove_file, remove_folder };
    kind what;
    std::string path; ///< absolute
};

/// What the client asks of a server, in the terms of no protocol. All paths are absolute and checked.
///
/// A refusal of the server's is thrown as the error that says why (`throw_refusal`). A connection that is lost
/// is opened again, and a request that can be repeated is, once. One thread at a time.
class protocol {
public:
    /// Connects and logs in.
    static std::unique_ptr<protocol> open(const url& server, const session_options& options);

    protocol() = default;
    protocol(const protocol&) = delete;
    protocol& operator=(const protocol&) = delete;
    virtual ~protocol() = default;

    /// Without the login folder, as long as nobody asked for it.
    [[nodiscard]] virtual const server_info& info() const = 0;
    /// Where relative names begin.
    virtual std::string login_folder() { return info().login_folder; }
    /// Throws `InvalidName` for a name that the protocol cannot carry.
    virtual void check_name(std::string_view path) const = 0;

    /// A request that does next to nothing.
    virtual void ping() = 0;
    /// Makes sure that there is a folder that can be entered.
    virtual void enter(const std::string& path) = 0;
    /// Whether there is a folder, or a link to one.
    virtual bool is_folder(const std::string& path) = 0;
    /// What is there; links are not followed, as far as the server can.
    virtual std::optional<entry> find(const std::string& path) = 0;
    /// What is there itself: a link is told from what it leads to, whatever that costs.
    virtual std::optional<entry> lstat(const std::string& path) { return find(path); }
    /// `find`, and where a link leads (`entry::link_target`).
    virtual std::optional<entry> stat(const std::string& path) = 0;
    /// What the link at `path` leads to in the end; nothing where that is missing.
    virtual std::optional<entry> follow(const std::string& path);
    /// Puts names in the place of the numbers of owners and groups, where the server tells them.
    virtual void name_owners(std::span<entry> /*entries*/) {}
    /// The size of a file, through links.
    virtual std::optional<std::uint64_t> size(const std::string& path) = 0;
    /// The modification time of a file, through links.
    virtual std::optional<timestamp> modification_time(const std::string& path) = 0;
    /// How the server computes checksums; nothing where it does not.
    virtual std::optional<checksum_method> find_checksum_method() = 0;
    /// The checksum of a file, by that method.
    virtual checksum ask_checksum(const std::string& path) = 0;

    virtual void list(const std::string& path, const listing_sink& sink) = 0;
    /// Lists folders until the queue gives none and none is under way.
    virtual void list(folder_queue& folders);

    virtual void make_folder(const std::string& path) = 0;
    virtual void remove_folder(const std::string& path) = 0;
    virtual void remove_file(const std::string& path) = 0;
    /// Carries out changes that do not depend on each other. `on_done` is called for each with its index and
    /// the error, or null; it may throw, which ends it.
    virtual void change(std::span<const path_change> changes,
                        const std::function<void(std::size_t, std::exception_ptr)>& on_done);
    /// Renames; whether a file `to` is replaced is the server's to decide. Where it refuses, throws `Refused`,
    /// `AlreadyExists`, or whatever the server said.
    virtual void rename(const std::string& from, const std::string& to) = 0;
    /// Gives a file these facts, as far as the server can; which ones it cannot is no error.
    virtual void set_facts(const std::string& path, const file_facts& facts) = 0;
    /// The same of a file or a folder, where what the server refuses is thrown; `NotSupported` where it has no
    /// request for it.
    virtual void require_facts(const std::string& path, const file_facts& facts) = 0;

    /// Makes a symbolic link. Throws `AlreadyExists` where something has the name.
    virtual void make_link(const std::string& target, const std::string& path) = 0;
    /// Whether a symbolic link says what it was made with, byte for byte.
    [[nodiscard]] virtual bool keeps_link_targets() const { return true; }
    virtual void make_hard_link(const std::string& existing, const std::string& path);
    /// What a symbolic link says; nothing for what is no link.
    virtual std::optional<std::string> read_link(const std::string& path) = 0;
    virtual disk_space space(const std::string& path) = 0;
    /// Copies a file to the new name `to` on the server itself, which gets the mode of `initial`; `on_copied`
    /// is told how many bytes more it has. False, and nothing done, where the server cannot.
    virtual bool copy_on_server(const std::string& from, const std::string& to, const file_facts& initial,
                                const std::function<void(std::uint64_t bytes)>& on_copied);

    /// Copies the files of the batch. What concerns one file goes to `batch::failed`; what ends the connection,
    /// and cannot be mended by opening another, is thrown.
    virtual void fetch(download_batch& files) = 0;
    virtual void send(upload_batch& files) = 0;
    /// Opens a file to be read at any place; null where the protocol cannot do that.
    virtual std::unique_ptr<random_reader> open_reader(const std::string& path);
    /// How many connections serve a batch of small files best.
    [[nodiscard]] virtual unsigned best_connections() const = 0;
    /// Whether one file may come and go in parts over several connections.
    [[nodiscard]] virtual bool carries_parts() const = 0;
    /// Over how many streams of this connection a large file is best sent.
    [[nodiscard]] virtual unsigned best_streams() const { return 1; }
    using opener = std::function<std::unique_ptr<protocol>(const session_options&)>;
    /// Opens a further stream, for another thread; there is one where `best_streams` are several.
    [[nodiscard]] virtual opener further_streams() { return {}; }

    /// The answer to FTP's SYST; else empty.
    virtual std::string system_type() = 0;

    /// Cleans up after a failure, although the caller may have asked for the end: requests in `work` are not
    /// cancelled. What fails here is lost, since the failure before it is the one to report.
    void clean_up(const std::function<void()>& work) noexcept;

protected:
    void apply(const path_change& change);
    [[nodiscard]] bool is_cleaning_up() const { return cleaning_up_; }

private:
    bool cleaning_up_ = false;
};

/// Defined in ftp/ and sftp/.
std::unique_ptr<protocol> open_ftp(const url& server, const session_options& options);
std::unique_ptr<protocol> open_sftp(const url& server, const session_options& options);

} // namespace qrftp
