#include "single_file.hpp"

#include "../refusal.hpp"
#include "../remote_path.hpp"
#include "../session_access.hpp"
#include "connection_pool.hpp"
#include "fetch.hpp"
#include "file_parts.hpp"
#include "local_error.hpp"
#include "local_stream.hpp"
#include "send.hpp"
#include "verify.hpp"

#include <qrftp/tree.hpp>

#include <algorithm>
#include <chrono>

namespace qrftp {

namespace {

constexpr std::uint64_t mebibyte = std::uint64_t{1} << 20;
/// What is less comes sooner over the connection that is there than over a further one.
constexpr std::uint64_t smallest_share = 8 * mebibyte;
/// Where a part costs no round trip: a connection that comes late, or is slow, then carries fewer of them.
constexpr std::uint64_t small_part = 2 * mebibyte;
/// However large a server says that a file is.
constexpr std::uint64_t max_parts = 1024;

/// Over how many connections a file goes, and how many streams of the first, in how many parts.
struct spread {
    unsigned connections = 1;
    unsigned streams = 1;
    unsigned parts = 1;
};

/// How many connections the options allow for one file.
unsigned allowed_connections(const protocol& server, const transfer_options& options, direction way)
{
    if (options.resume || options.verify) {
        return 1;
    }
    const unsigned segments = way == direction::fetch ? options.segments : 1;
    return std::max({server.carries_parts() ? options.jobs : 1, segments, 1U});
}

/// How many streams of one connection do. A file that is written in place grows from its beginning to its end.
unsigned allowed_streams(const protocol& server, const transfer_options& options)
{
    return options.resume || options.verify || options.in_place ? 1 : server.best_streams();
}

spread spread_file(const protocol& server, unsigned allowed, std::uint64_t size, unsigned streams = 1)
{
    const auto share = [size](unsigned most) {
        return static_cast<unsigned>(std::clamp<std::uint64_t>(size / smallest_share, 1, most));
    };
    streams = share(streams);
    const unsigned connections = share(allowed > streams ? allowed - streams + 1 : 1);
    const bool is_cheap = connections + streams > 2 && server.carries_parts();
    const std::uint64_t parts = is_cheap ? std::min((size - 1) / small_part + 1, max_parts) : connections;
    return {connections, streams, static_cast<unsigned>(parts)};
}

/// Whether others can put what they like in the place of a temporary name, which each part opens again. A group
/// of the same number as its owner is the owner's own.
bool is_shared_folder_of(const std::string& path, protocol& server)
{
    using std::filesystem::perms;
    const auto folder = server.find(remote_path::join(remote_path::parent(path), "."));
    if (!folder || !folder->mode || (*folder->mode & perms::sticky_bit) != perms::none) {
        return false;
    }
    const bool has_own_group = !folder->group.empty() && folder->group == folder->owner;
    const perms others = has_own_group ? perms::others_write : perms::others_write | perms::group_write;
    return (*folder->mode & others) != perms::none;
}

meter make_meter(const session& opened, const std::string& path, const transfer_options& options,
                 const connection_pool& pool)
{
    const auto longest = session_access::options(opened).total_timeout;
    return {path, options, make_rate_limiter(options.rate_limit, longest), pool.stop_token()};
}

/// Runs `work`; a broken connection and a limit of time are thrown with what they mean for this transfer.
template <class Work>
void with_consequences(const session& opened, const meter& progress, const std::string& path,
                       const std::string& kept, const Work& work)
{
    using std::chrono::steady_clock;
    const auto began = steady_clock::now();
    const auto limit = session_access::options(opened).total_timeout;
    try {
        work();
    } catch (const ConnectionLost& failure) {
        throw ConnectionLost(path, kept, said_by(failure));
    } catch (const Timeout&) {
        if (limit.count() == 0 || steady_clock::now() - began < limit) {
            throw;
        }
        progress.throw_unfinished(limit);
    }
}

std::optional<error_cause> cause_of(const std::exception_ptr& why)
{
    try {
        std::rethrow_exception(why);
    } catch (const error& failure) {
        return failure.cause();
    } catch (...) {
        return {};
    }
}

/// What a fetch that breaks off leaves.
std::string kept_by(const transfer_options& options)
{
    return options.resume ? "what had arrived was kept" : options.in_place ? "" : "nothing was kept";
}

/// Copies `file` by `copy`, a member of `protocol`, in so many parts.
template <class File>
void copy_parts(const session& opened, connection_pool& pool, const transfer_options& options, File& file,
                std::uint64_t size, unsigned parts, void (protocol::*copy)(batch<File>&))
{
    using view = typename file_parts<File>::view;
    const session_options& limits = session_access::options(opened);
    const auto is_lost = [&limits](const std::exception_ptr& why) {
        const auto cause = cause_of(why);
        return cause == error_cause::connection_lost ||
               (cause == error_cause::timeout && limits.total_timeout.count() == 0);
    };
    const retry_policy retries(options, limits, pool.stop_token());
    file_parts<File> pieces(file, size, parts);
    pool.run(session_access::server(opened), [&](protocol& connection, unsigned job) {
        const bool is_stream = job > 0 && job <= pool.streams();
        view mine(pieces, retries, is_stream); // NOLINT(misc-const-correctness)
        if (job > 0 && parts == 1) {
            return;
        }
        try {
            (connection.*copy)(mine);
        } catch (const error&) {
            if (!is_stream || mine.has_failed() || !is_lost(std::current_exception())) {
                throw; // Else job 0 carries what the stream gave back.
            }
        }
    });
    if (pieces.has_returned()) {
        view rest(pieces, retries); // NOLINT(misc-const-correctness)
        (session_access::server(opened).*copy)(rest);
    }
    if (std::is_same_v<File, upload> && parts > 1) {
        file_parts<File> last(file, byte_range{size});
        view end(last, retries); // NOLINT(misc-const-correctness)
        (session_access::server(opened).*copy)(end);
    }
}

/// Parts that had ended leave a file that fails in another part where it is: removes it, unless the connection
/// failed.
void remove_parts(const session& to, const upload& file, error_cause why)
{
    if (file.is_temporary() && !file.keeps_temporary() && why != error_cause::connection_lost &&
        why != error_cause::no_connection && why != error_cause::timeout) {
        protocol& server = session_access::server(to);
        server.clean_up([&] { server.remove_file(file.path()); });
    }
}

/// What can be read only once goes over one connection, and is as long as it turns out to be.
void send_stream(const session& to, const std::filesystem::path& local, const std::string& path,
                 const transfer_options& options)
{
    const std::stop_token stop = session_access::options(to).stop;
    local_stream source(local, stop);
    const auto read = [&](std::span<char> buffer) { return source.read(buffer); };
    send_data(to, read, path, options);
}

} // namespace

void fetch_file(const session& from, const std::string& path, const std::filesystem::path& local,
                const transfer_options& options)
{
    if (options.offset != 0 || options.length) {
        throw InvalidOption(path, "a part of a file goes to a program, not to a local file");
    }
    protocol& server = session_access::server(from);
    verification_of(server, from.location().server(), options);
    std::uint64_t size = 0;
    const unsigned allowed = allowed_connections(server, options, direction::fetch);
    if (allowed > 1) {
        size = options.listed_size ? *options.listed_size : server.size(path).value_or(0);
    }
    const auto [connections, streams, parts] = spread_file(server, allowed, size);
    connection_pool pool(from, connections - 1, streams - 1);
    meter progress = make_meter(from, path, options, pool);
    file_download file(from.location().server(), path, find_local_place(local, options.follow_target), options,
                       progress, {}, parts);
    with_consequences(from, progress, path, kept_by(options), [&, count = parts] {
        copy_parts<download>(from, pool, options, file, size, count, &protocol::fetch);
    });
}

void send_file(const session& to, const std::filesystem::path& local, const std::string& path,
               const transfer_options& options)
{
    if (local_stream::is_at(local)) {
        find_local_place(local); // throws where it is a stranger's link
        return send_stream(to, local, path, options);
    }
    protocol& server = session_access::server(to);
    auto source = open_source(local);
    verification_of(server, to.location().server(), options);
    const std::uint64_t size = with_local_errors(local, [&] { return source->status().size; });
    const unsigned allowed = allowed_connections(server, options, direction::send);
    auto [connections, streams, parts] = spread_file(server, allowed, size, allowed_streams(server, options));
    if (!options.replace && !options.resume && server.find(path)) {
        throw AlreadyExists(path);
    }
    connection_pool pool(to, connections - 1, streams - 1);
    if (parts > 1 && !options.in_place && is_shared_folder_of(path, server)) {
        parts = 1;
    }
    meter progress = make_meter(to, path, options, pool);
    file_upload file(std::move(source), local, path, options, progress, parts > 1);
    with_consequences(to, progress, path, "", [&, count = parts] {
        try {
            copy_parts<upload>(to, pool, options, file, size, count, &protocol::send);
        } catch (const error& failure) {
            if (count > 1) {
                remove_parts(to, file, failure.cause());
            }
            throw;
        }
    });
}

void fetch_data(const session& from, const std::string& path,
                const std::function<bool(std::string_view)>& on_data, const transfer_options& options)
{
    connection_pool pool(from, 0);
    meter progress = make_meter(from, path, options, pool);
    data_download file(path, on_data, options, progress,
                       verification_of(session_access::server(from), from.location().server(), options));
    copy_parts<download>(from, pool, options, file, 0, 1, &protocol::fetch);
}

void send_data(const session& to, const std::function<std::size_t(std::span<char>)>& read,
               const std::string& path, const transfer_options& options)
{
    connection_pool pool(to, 0);
    meter progress = make_meter(to, path, options, pool);
    data_upload file(read, path, options, progress,
                     verification_of(session_access::server(to), to.location().server(), options));
    copy_parts<upload>(to, pool, options, file, 0, 1, &protocol::send);
}

} // namespace qrftp
