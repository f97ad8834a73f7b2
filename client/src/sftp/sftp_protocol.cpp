#include "sftp_protocol.hpp"

#include "../refusal.hpp"
#include "../remote_path.hpp"
#include "change_batch.hpp"
#include "extensions.hpp"
#include "file_reader.hpp"
#include "perform.hpp"
#include "ssh_settings.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace qrftp::sftp {

namespace {

/// Of the whole file, as one block.
reply call_check_file(pipeline& server, const std::string& path)
{
    return server.call(check_file, path, check_file_algorithms, std::uint64_t{0}, std::uint64_t{0},
                       std::uint32_t{0});
}

} // namespace

sftp_protocol::sftp_protocol(connect_function connect, std::string server, session_options options)
    : connect_(std::move(connect)), server_(std::move(server)), options_(std::move(options))
{
    this->connect();
}

void sftp_protocol::connect()
{
    pipeline_.reset();
    session_options options = options_;
    if (is_cleaning_up()) {
        options.stop = {};
    }
    pipeline::settings settings{.server = server_,
                                .stall_timeout = shorter_limit(options.stall_timeout, options.total_timeout),
                                .stop = options.stop};
    server_info info;
    auto stream = connect_(options, info);
    auto opened = std::make_shared<pipeline>(std::move(stream), std::move(settings));
    for (const auto& [name, version] : opened->extensions()) {
        info.features.push_back(fmt::format("{} {}", name, version));
    }
    opened->set_stall_timeout(options.stall_timeout);
    info.login_folder = std::move(info_.login_folder); // the same for every connection of one login
    info_ = std::move(info);
    pipeline_ = std::move(opened);
}

std::string sftp_protocol::login_folder()
{
    if (info_.login_folder.empty()) {
        info_.login_folder = ask(server_, [](pipeline& server) {
            const reply answer = server.call(packet_type::realpath, ".");
            answer.check(".");
            return remote_path::absolute("/", answer.single_name());
        });
    }
    return info_.login_folder;
}

/// OpenSSH's server lets a channel have 2 MiB on their way, with which one carries 400 MiB in a second where a
/// round trip takes 5 ms. Of other servers it is not known that several handles may write to one file.
unsigned sftp_protocol::best_streams() const
{
    constexpr auto filled_by_one = std::chrono::milliseconds(5);
    constexpr pipeline::clock::rep most = 4;
    if (!info_.greeting.starts_with("SSH-2.0-OpenSSH") || !pipeline_ || !pipeline_->is_open()) {
        return 1;
    }
    return static_cast<unsigned>(
        std::clamp<pipeline::clock::rep>(pipeline_->round_trip() / filled_by_one, 1, most));
}

protocol::opener sftp_protocol::further_streams()
{
    const auto open = connected().further_streams();
    if (!open) {
        return {};
    }
    return [open, connect = connect_, server = server_](const session_options& options) {
        // A stream that is lost was lost with the connection: what it has to finish itself needs another one.
        const auto connect_to = [open, connect, is_first = true](const session_options& current,
                                                                 server_info& info) mutable {
            return std::exchange(is_first, false) ? open(current) : connect(current, info);
        };
        return std::make_unique<sftp_protocol>(connect_to, server, options);
    };
}

/// The connection, limited as the next request is to be.
pipeline& sftp_protocol::connected()
{
    if (!pipeline_ || !pipeline_->is_open()) {
        if (is_carrying_) { // What is under way belongs to the old one.
            throw ConnectionLost(server_);
        }
        connect();
    }
    pipeline_->set_stop(is_cleaning_up() ? std::stop_token() : options_.stop);
    limit_time();
    return *pipeline_;
}

void sftp_protocol::limit_time()
{
    if (!pipeline_) {
        return;
    }
    const bool is_limited = options_.total_timeout > std::chrono::milliseconds::zero();
    pipeline_->set_deadline(is_limited ? std::optional(pipeline::clock::now() + options_.total_timeout)
                                       : std::nullopt);
}

void sftp_protocol::check_name(std::string_view path) const
{
    if (path.find('\0') != std::string_view::npos) {
        throw InvalidName(std::string(path), "a NUL byte");
    }
}

void sftp_protocol::ping()
{
    ask(server_, [this](pipeline& server) { server.call(packet_type::realpath, ".").check(server_); });
}

/// Nothing when there is nothing of that name.
std::optional<attributes> sftp_protocol::attributes_of(packet_type request, const std::string& path)
{
    return ask(path, [&](pipeline& server) -> std::optional<attributes> {
        const reply answer = server.call(request, path);
        if (answer.is_status(status_code::no_such_file)) {
            return {};
        }
        if (answer.is_status(status_code::failure) && path != "/") {
            // Some servers say so of a name below a file.
            const response said{static_cast<long>(answer.code()), std::string(answer.message())};
            const reply above = server.call(packet_type::stat, remote_path::parent(path));
            if (!above.is_status() && kind_of(above.attrs()) != entry_kind::folder) {
                return {};
            }
            throw Refused(path, said);
        }
        answer.check(path);
        return answer.attrs();
    });
}

std::unique_ptr<random_reader> sftp_protocol::open_reader(const std::string& path)
{
    const auto current = [owner = std::weak_ptr(self_)](bool may_connect) {
        const auto self = owner.lock();
        if (!self) {
            throw Closed("session");
        }
        if (may_connect || ((*self)->pipeline_ && (*self)->pipeline_->is_open())) {
            (*self)->connected();
        }
        return (*self)->pipeline_;
    };
    return ask(path, [&](pipeline& /*server*/) -> std::unique_ptr<random_reader> {
        try {
            return std::make_unique<file_reader>(current, path);
        } catch (const Refused& failure) {
            throw_refusal(*this, path, expected::file, said_by(failure));
        }
    });
}

void sftp_protocol::enter(const std::string& path)
{
    // The folder's own "." is reached only by those who may enter it.
    ask(path, [&](pipeline& server) {
        const reply answer = server.call(packet_type::stat, path == "/" ? "/." : path + "/.");
        if (answer.is_status(status_code::no_such_file) || answer.is_status(status_code::failure)) {
            throw_refusal(*this, path, expected::folder,
                          {static_cast<long>(answer.code()), std::string(answer.message())});
        }
        answer.check(path);
        if (kind_of(answer.attrs()).value_or(entry_kind::folder) != entry_kind::folder) {
            throw NotFolder(path);
        }
    });
}

bool sftp_protocol::is_folder(const std::string& path)
{
    const auto found = attributes_of(packet_type::stat, path);
    return found && kind_of(*found) == entry_kind::folder;
}

std::optional<entry> sftp_protocol::find(const std::string& path)
{
    const auto found = attributes_of(packet_type::lstat, path);
    if (!found) {
        return {};
    }
    entry what = make_entry(remote_path::filename(path), *found);
    // Some servers follow the link that LSTAT is about: only READLINK tells it from what it leads to.
    if (what.kind != entry_kind::link && !pipeline_->has_extension(lsetstat, "1")) {
        if (const auto target = read_link(path)) {
            what = entry{.name = what.name, .kind = entry_kind::link, .link_target = *target};
        }
    }
    return what;
}

std::optional<entry> sftp_protocol::stat(const std::string& path)
{
    std::optional<entry> found = find(path);
    if (found && found->kind == entry_kind::link && found->link_target.empty()) {
        found->link_target = read_link(path).value_or("");
    }
    return found;
}

std::optional<entry> sftp_protocol::follow(const std::string& path)
{
    const auto found = attributes_of(packet_type::stat, path);
    return found ? std::optional(make_entry(remote_path::filename(path), *found)) : std::nullopt;
}

void sftp_protocol::name_owners(std::span<entry> entries)
{
    ask(server_, [&](pipeline& server) { owner_names_.fill_in(server, entries); });
}

std::optional<std::uint64_t> sftp_protocol::size(const std::string& path)
{
    const auto found = attributes_of(packet_type::stat, path);
    return found && kind_of(*found) != entry_kind::folder ? found->size : std::nullopt;
}

std::optional<timestamp> sftp_protocol::modification_time(const std::string& path)
{
    const auto found = attributes_of(packet_type::stat, path);
    return found ? make_entry({}, *found).modified : std::nullopt;
}

/// Servers do not name the extension to clients of version 3: asking for a folder's checksum tells.
std::optional<checksum_method> sftp_protocol::find_checksum_method()
{
    if (!checks_files_) {
        checks_files_ = ask(server_, [folder = login_folder()](pipeline& server) {
            const reply answer = call_check_file(server, folder);
            return !answer.is_status(status_code::op_unsupported);
        });
    }
    return *checks_files_ ? std::optional(checksum_method{"check-file", hash_algorithm::sha256}) : std::nullopt;
}

checksum sftp_protocol::ask_checksum(const std::string& path)
{
    return ask(path, [&](pipeline& server) {
        const reply answer = call_check_file(server, path);
        if (answer.is_status(status_code::failure)) {
            throw_refusal(*this, path, expected::file,
                          {static_cast<long>(answer.code()), std::string(answer.message())});
        }
        answer.check(path);
        return read_check_file(answer, path);
    });
}

void sftp_protocol::make_folder(const std::string& path)
{
    const path_change change{path_change::kind::make_folder, path};
    // Who makes a folder may take it for a lock: one that is there after a break may be somebody else's.
    change_one(change, [&]() -> bool {
        if (find(path)) {
            throw ConnectionLost(path);
        }
        return false;
    });
}

void sftp_protocol::remove_folder(const std::string& path)
{
    change_one({path_change::kind::remove_folder, path});
}

void sftp_protocol::remove_file(const std::string& path)
{
    change_one({path_change::kind::remove_file, path});
}

void sftp_protocol::change_one(const path_change& change)
{
    change_one(change, [&] { return is_carried_out(change); });
}

void sftp_protocol::change_one(const path_change& change, const std::function<bool()>& is_done)
{
    std::exception_ptr failure;
    const auto on_done = [&](std::size_t, std::exception_ptr why) { failure = std::move(why); };
    modify(
        change.path,
        [&](pipeline& server) {
            change_batch({&change, 1}, on_done).run(server);
        },
        is_done);
    if (failure) {
        std::rethrow_exception(explain_change(change, failure));
    }
}

bool sftp_protocol::is_carried_out(const path_change& change)
{
    return find(change.path).has_value() == (change.what == path_change::kind::make_folder);
}

void sftp_protocol::rename(const std::string& from, const std::string& to)
{
    modify(
        from,
        [&](pipeline& server) {
            const bool replaces = server.has_extension(posix_rename.extension, "1");
            server.call(replaces ? posix_rename : packet_type::rename, from, to).check(to);
        },
        [&] { return !find(from) && find(to); });
}

} // namespace qrftp::sftp
