#include "single_file.hpp"

#include "../session_access.hpp"
#include "connection_pool.hpp"
#include "fetch.hpp"
#include "local_error.hpp"
#include "parts_batch.hpp"
#include "send.hpp"
#include "single_batch.hpp"

#include <algorithm>

namespace qrftp {

namespace {

/// A part that is smaller than this comes sooner over the connection that is there.
constexpr std::uint64_t smallest_part = std::uint64_t{8} << 20;

unsigned useful_parts(const protocol& server, const transfer_options& options, std::uint64_t size)
{
    if (options.jobs < 2 || options.resume || !server.carries_parts()) {
        return 1;
    }
    return static_cast<unsigned>(std::clamp<std::uint64_t>(size / smallest_part, 1, options.jobs));
}

/// Copies `file` by `copy`, a member of `protocol`, in so many parts.
template <class File>
void copy_parts(const session& opened, connection_pool& pool, File& file, std::uint64_t size, unsigned parts,
                void (protocol::*copy)(batch<File>&))
{
    protocol& server = session_access::server(opened);
    if (parts == 1) {
        single_batch<File> whole(file); // NOLINT(misc-const-correctness): `copy` changes it
        (server.*copy)(whole);
        return;
    }
    parts_batch<File> pieces(file, size, parts);
    pool.run(server, [&](protocol& connection, unsigned /*job*/) { (connection.*copy)(pieces); });
}

} // namespace

void fetch_file(const session& from, const std::string& path, const std::filesystem::path& local,
                const transfer_options& options)
{
    protocol& server = session_access::server(from);
    std::uint64_t size = 0;
    if (options.jobs > 1 && server.carries_parts()) {
        size = options.listed_size ? *options.listed_size : server.size(path).value_or(0);
    }
    const unsigned parts = useful_parts(server, options, size);
    connection_pool pool(from.location(), session_access::options(from), parts - 1);
    meter progress(path, options, make_rate_limiter(options.rate_limit), pool.stop_token());
    file_download file(path, find_local_place(local, options.follow_target), options, progress, {}, parts);
    copy_parts<download>(from, pool, file, size, parts, &protocol::fetch);
}

void send_file(const session& to, const std::filesystem::path& local, const std::string& path,
               const transfer_options& options)
{
    protocol& server = session_access::server(to);
    auto source = open_source(local);
    const std::uint64_t size = with_local_errors(local, [&] { return source->status().size; });
    const unsigned parts = useful_parts(server, options, size);
    if (!options.replace && !options.resume && server.find(path)) {
        throw AlreadyExists(path);
    }
    connection_pool pool(to.location(), session_access::options(to), parts - 1);
    meter progress(path, options, make_rate_limiter(options.rate_limit), pool.stop_token());
    file_upload file(std::move(source), local, path, options, progress, parts);
    copy_parts<upload>(to, pool, file, size, parts, &protocol::send);
}

} // namespace qrftp
