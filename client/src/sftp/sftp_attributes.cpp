#include "extensions.hpp"
#include "perform.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <limits>

/// What `sftp_protocol` asks and sets of files besides their names and their content.
namespace qrftp::sftp {

namespace {

constexpr std::uint64_t no_limit = std::numeric_limits<std::uint64_t>::max();

/// How much the server copies in one request: small enough to be done before the stall timeout.
constexpr std::uint64_t copied_at_once = std::uint64_t{64} << 20;

response said_in(const reply& answer)
{
    return {static_cast<long>(answer.code()), std::string(answer.message())};
}

/// A file that is open on the server for as long as this lives.
class open_handle {
public:
    open_handle(pipeline& server, const reply& answer) : server_(server), handle_(answer.handle()) {}
    open_handle(const open_handle&) = delete;
    open_handle& operator=(const open_handle&) = delete;
    ~open_handle()
    {
        try {
            if (is_open_ && server_.is_open()) {
                server_.send(packet_type::close, {}, handle_);
            }
        } catch (...) { // NOLINT(bugprone-empty-catch): the failure before it is the one to report
        }
    }

    [[nodiscard]] const file_handle& get() const { return handle_; }
    void close(const std::string& subject)
    {
        is_open_ = false;
        server_.call(packet_type::close, handle_).check(subject);
    }

private:
    pipeline& server_;
    file_handle handle_;
    bool is_open_ = true;
};

} // namespace

void sftp_protocol::set_facts(const std::string& path, const file_facts& facts)
{
    const attributes values = to_attributes(facts);
    if (values == attributes{}) {
        return;
    }
    ask(path, [&](pipeline& server) {
        const reply answer = server.call(packet_type::setstat, path, values);
        if (answer.is_status(status_code::no_such_file)) {
            answer.check(path);
        }
        if (answer.is_failure() && values.permissions && values.time) { // one of them may do
            server.call(packet_type::setstat, path, attributes{.permissions = values.permissions});
            server.call(packet_type::setstat, path, attributes{.time = values.time});
        }
    });
}

void sftp_protocol::require_facts(const std::string& path, const file_facts& facts)
{
    const attributes values = to_attributes(facts);
    if (facts.modified && !values.time) {
        throw NotSupported(path, {0, "SFTP has times from 1970 to 2106"});
    }
    ask(path, [&](pipeline& server) {
        const reply answer = server.call(packet_type::setstat, path, values);
        if (answer.is_status(status_code::failure)) {
            throw_refusal(*this, path, expected::anything, said_in(answer));
        }
        answer.check(path);
    });
}

/// Nothing for what is no link.
std::optional<std::string> sftp_protocol::read_link(const std::string& path)
{
    return ask(path, [&](pipeline& server) -> std::optional<std::string> {
        const reply answer = server.call(packet_type::readlink, path);
        std::string target = answer.is_status() ? "" : answer.single_name();
        return target.empty() ? std::nullopt : std::optional(std::move(target));
    });
}

/// Makes the name `path` by a request that takes it as its second argument.
void sftp_protocol::make_name(const request& what, const std::string& target, const std::string& path)
{
    modify(
        path,
        [&](pipeline& server) {
            const reply answer = server.call(what, target, path);
            if (answer.is_status(status_code::failure) || answer.is_status(status_code::no_such_file)) {
                throw_refusal(*this, path, expected::nothing, said_in(answer));
            }
            answer.check(path);
        },
        [&] { return find(path).has_value(); });
}

/// The draft has the two names the other way round; OpenSSH's order is what servers and clients go by.
void sftp_protocol::make_link(const std::string& target, const std::string& path)
{
    make_name(packet_type::symlink, target, path);
}

void sftp_protocol::make_hard_link(const std::string& existing, const std::string& path)
{
    if (!connected().has_extension(hard_link.extension, "1")) {
        throw NotSupported(path, {.message = fmt::format("it has no {}", hard_link.extension)});
    }
    if (!find(existing)) {
        throw NotFound(existing);
    }
    make_name(hard_link, existing, path);
}

disk_space sftp_protocol::space(const std::string& path)
{
    const auto told = ask(path, [&](pipeline& server) { return ask_space(server, path); });
    if (!told) {
        throw NotSupported(path, {.message = "it has no statvfs@openssh.com"});
    }
    return *told;
}

/// Nothing where the server does not tell.
std::optional<disk_space> sftp_protocol::ask_space(pipeline& server, const std::string& path)
{
    if (!server.has_extension(statvfs.extension, "2")) {
        return std::nullopt;
    }
    const reply answer = server.call(statvfs, path);
    answer.check(path);
    packet_reader fields = answer.body();
    fields.read_u64(); // the size of a block, by which nothing is counted
    const std::uint64_t unit = fields.read_u64();
    const auto read_bytes = [&] {
        std::uint64_t bytes = 0;
        return __builtin_mul_overflow(fields.read_u64(), unit, &bytes) ? no_limit : bytes;
    };
    return disk_space{.total = read_bytes(), .free = read_bytes(), .available = read_bytes()};
}

bool sftp_protocol::copy_on_server(const std::string& from, const std::string& to, const file_facts& initial,
                                   const std::function<void(std::uint64_t)>& on_copied)
{
    return perform(from, [&](pipeline& server) {
        if (!server.has_extension(copy_data_extension.extension, "1")) {
            return false;
        }
        const reply opened = server.call(packet_type::open, from, open_flag::read, attributes{});
        opened.check(from);
        open_handle source(server, opened); // NOLINT(misc-const-correctness): it closes in the end
        try {
            const std::uint32_t flags = open_flag::write | open_flag::create | open_flag::truncate;
            const reply made = server.call(packet_type::open, to, flags, to_attributes({.mode = initial.mode}));
            made.check(to);
            open_handle target(server, made);
            copy_data(server, {source.get(), target.get(), to}, on_copied);
            target.close(to);
        } catch (...) {
            std::rethrow_exception(explain_copy(to, true, std::current_exception()));
        }
        return true;
    });
}

void sftp_protocol::copy_data(pipeline& server, const open_pair& files,
                              const std::function<void(std::uint64_t)>& on_copied)
{
    const reply told = server.call(packet_type::fstat, files.from);
    told.check(files.subject);
    const std::uint64_t size = told.attrs().size.value_or(0);
    for (std::uint64_t done = 0; done < size;) {
        const std::uint64_t length = std::min(copied_at_once, size - done);
        server.call(copy_data_extension, files.from, done, length, files.to, done).check(files.subject);
        done += length;
        limit_time();
        on_copied(length);
    }
}

} // namespace qrftp::sftp
