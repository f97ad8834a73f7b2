#include "transfer.hpp"

#include "local_file.hpp"
#include "names.hpp"

#include <foundation/core/except/Exception.hpp>

#include <system_error>
#include <utility>

namespace qrftp {

namespace files = zorbel::io::common::file;
namespace fs = std::filesystem;
using foundation::core::except::raise;

namespace {

/// A longer file is not worth being fetched twice to save one round trip.
constexpr std::uint64_t small = std::uint64_t{1} << 20;

std::string sizes(std::uint64_t got, std::uint64_t of)
{
    return std::to_string(got) + " of " + std::to_string(of) + " bytes";
}

/// How much of a file of `whole` bytes a resumed transfer finds done.
std::uint64_t resume_point(const std::string& target, std::uint64_t there, std::uint64_t whole)
{
    if (there > whole) {
        raise<error::CannotResume>(target, "it has " + std::to_string(there) +
                                               " bytes already, and the file only " + std::to_string(whole));
    }
    return there;
}

/// Sends `source` to `path`, and checks that all of it arrived.
refusal send_whole(remote& server, const std::string& path, const request& how, const std::string& target)
{
    const upload_result result = server.send(path, how);
    if (!result.refused && result.stored && *result.stored != how.source->size) {
        raise<error::SizeMismatch>(target, sizes(*result.stored, how.source->size));
    }
    return result.refused;
}

/// Sends to a temporary name beside `target`, which then takes its place. `stamp` is called with the name of a
/// file that has arrived.
template <class Stamp>
void send_atomically(remote& server, const request& how, const std::string& target, const Stamp& stamp)
{
    constexpr long name_not_allowed = 553; // RFC 959, 4.2: also when something else has the name
    const auto temporary = [&] { return names::join(names::parent(target), names::temporary()); };
    std::string path = temporary();
    try {
        refusal refused = send_whole(server, path, how, target);
        if (refused && refused->reply == name_not_allowed) {
            path = temporary();
            how.source->seek(0);
            refused = send_whole(server, path, how, target);
        }
        if (refused) {
            explain(server, target, expected::new_file, *refused);
        }
        stamp(path);
        rename_over(server, path, target);
    } catch (...) {
        server.clean_up([&] { server.remove_file(path); });
        throw;
    }
}

std::uint64_t resume_sending(remote& server, const std::string& path, std::uint64_t whole)
{
    if (!server.find(path)) {
        return 0;
    }
    const auto there = server.size(path);
    if (!there) {
        raise<error::CannotResume>(path, "the server does not tell its size");
    }
    return resume_point(path, *there, whole);
}

std::uint64_t resume_fetching(remote& server, const std::string& path, const fs::path& local)
{
    std::error_code code;
    const std::uint64_t there = fs::exists(local, code) ? files::file_system()->size(local) : 0;
    if (there == 0) {
        return 0;
    }
    const auto whole = server.size(path);
    if (!whole) {
        raise<error::CannotResume>(local.string(), "the server does not tell the size of \"" + path + '"');
    }
    return resume_point(local.string(), there, *whole);
}

} // namespace

void rename_over(remote& server, const std::string& from, const std::string& to)
{
    const refusal refused = server.rename(from, to);
    if (!refused) {
        return;
    }
    // No listing of the folder, which may be long, unless something is wrong.
    if (!server.size(from) && !server.find(from)) {
        explain(server, from, expected::file, *refused);
    }
    if (server.is_folder(to)) {
        const auto there = server.find(to); // A link to a folder is replaced as other links are.
        if (!there || there->kind == entry_kind::folder) {
            explain(server, to, expected::new_file, *refused);
        }
    }
    const std::string aside = names::join(names::parent(to), names::temporary());
    if (const refusal moved = server.rename(to, aside)) {
        const bool there = server.find(to).has_value();
        explain(server, to, there ? expected::file : expected::new_file, there ? *moved : *refused);
    }
    refusal again;
    try {
        again = server.rename(from, to);
    } catch (...) {
        // It may have been carried out, and then the old file has been replaced.
        server.clean_up([&] { server.find(to) ? server.remove_file(aside) : server.rename(aside, to); });
        throw;
    }
    if (again) {
        server.clean_up([&] { server.rename(aside, to); });
        explain(server, to, expected::new_file, *again);
    }
    server.clean_up([&] { server.remove_file(aside); });
}

void fetch_file(remote& server, const std::string& path, const fs::path& local, const transfer_options& how)
{
    std::error_code code;
    if (fs::is_directory(local, code)) {
        files::raise_file_error(local, std::make_error_code(std::errc::is_a_directory));
    }
    if (!how.replace && !how.resume && fs::exists(fs::symlink_status(local, code))) {
        raise<error::Exists>(local.string());
    }
    const std::uint64_t offset = how.resume ? resume_fetching(server, path, local) : 0;
    local_target target(local, how.in_place || how.resume, offset);
    request wanted{
        .about = path, .offset = offset, .rate_limit = how.rate_limit, .on_progress = how.on_progress};
    wanted.take = [&](std::string_view bytes) { target.write(bytes); };
    wanted.restart = [&] { target.restart(); };
    if (target.is_temporary() && how.listed_size <= small) {
        wanted.listed_size = how.listed_size;
    }
    refusal refused = server.fetch(path, wanted);
    if (!refused && wanted.listed_size && target.written() != wanted.listed_size) {
        // It is not as long as it was, or not all of it came.
        wanted.listed_size.reset();
        wanted.restart();
        refused = server.fetch(path, wanted);
    }
    if (refused) {
        explain(server, path, expected::file, *refused);
    }
    std::optional<std::int64_t> time;
    if (how.keep_time) {
        if (const auto told = server.modification_time(path)) {
            time = told->seconds;
        }
    }
    target.commit(time);
}

void send_file(remote& server, const fs::path& local, const std::string& path, const transfer_options& how)
{
    const auto file = files::file_system()->open(local, files::OpenMode::read);
    if (!fs::is_regular_file(local)) {
        raise<ZORBEL::io::common::file::FileError>(files::display_path(local), "it is no ordinary file");
    }
    const upload_source source{.read =
                                   [&](char* buffer, std::size_t room) {
                                       return static_cast<std::size_t>(
                                           file->read(buffer, static_cast<long>(room)));
                                   },
                               .seek = [&](std::uint64_t position) { file->seek(position); },
                               .size = files::file_system()->size(local)};
    const std::int64_t time = how.keep_time ? modification_time(local) : 0;
    const auto stamp = [&](const std::string& name) {
        if (how.keep_time) {
            server.set_modification_time(name, time); // A server that cannot do it is no reason to fail.
        }
    };
    if (!how.replace && !how.resume && server.find(path)) {
        raise<error::Exists>(path);
    }
    request wanted{
        .about = path, .source = &source, .rate_limit = how.rate_limit, .on_progress = how.on_progress};
    if (!how.resume && !how.in_place) {
        send_atomically(server, wanted, path, stamp);
        return;
    }
    wanted.offset = how.resume ? resume_sending(server, path, source.size) : 0;
    wanted.repeatable = wanted.offset == 0; // What was appended would be appended again.
    if (how.resume && wanted.offset == source.size && source.size > 0) {
        return;
    }
    if (const refusal refused = send_whole(server, path, wanted, path)) {
        explain(server, path, expected::new_file, *refused);
    }
    stamp(path);
}

} // namespace qrftp
