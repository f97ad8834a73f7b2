#include "server_copy.hpp"

#include "../remote_path.hpp"
#include "../replace.hpp"
#include "../session_access.hpp"
#include "fetch.hpp"
#include "file_parts.hpp"
#include "send.hpp"
#include "stream_reader.hpp"
#include "verify.hpp"

#include <qrftp/copy.hpp>

#include <utility>

namespace qrftp {

namespace {

const std::string& user_of(const session& of)
{
    const std::string& chosen = session_access::options(of).user;
    return chosen.empty() ? of.location().user : chosen;
}

/// Copies a single file by `carry`, a member of `protocol`.
template <class File>
void copy_whole(protocol& server, File& file, void (protocol::*carry)(batch<File>&))
{
    file_parts<File> whole(file, 0, 1);
    typename file_parts<File>::view mine(whole, {}); // NOLINT(misc-const-correctness): `carry` changes it
    (server.*carry)(mine);
}

/// What the source's server says of its content, where the options ask for a comparison of both servers'
/// answers.
std::optional<checksum> content_of(protocol& from, protocol& to, const std::string& path,
                                   const transfer_options& options)
{
    const auto here = verification_of(from, path, options);
    const auto there = verification_of(to, path, options);
    if (!here || !there) {
        return std::nullopt;
    }
    if (here->algorithm != there->algorithm) {
        throw NotSupported(path, {.message = "the two servers compute different checksums"});
    }
    return from.ask_checksum(path);
}

} // namespace

remote_source find_remote_source(protocol& server, const std::string& path)
{
    auto found = server.find(path);
    if (found && found->kind == entry_kind::link) {
        found = server.follow(path);
    }
    if (!found) {
        throw NotFound(path);
    }
    if (found->kind == entry_kind::folder) {
        throw IsFolder(path);
    }
    remote_source source{path, {.size = found->size, .mode = found->mode}};
    if (found->modified && found->modified->is_exact()) {
        source.facts.modified = found->modified->time;
    }
    return source;
}

bool is_same_login(const session& one, const session& other)
{
    const url& here = one.location();
    const url& there = other.location();
    return here.scheme == there.scheme && here.host == there.host &&
           here.effective_port() == there.effective_port() && user_of(one) == user_of(other);
}

/// A remote file on its way to another server.
class server_copier::copied_upload final : public basic_upload {
public:
    copied_upload(const remote_source& source, std::string target, const transfer_options& options,
                  meter& progress)
        : basic_upload(std::move(target), options, progress), source_(source)
    {
    }

    /// Reads from here on what `reader` gives.
    void attach(random_reader& reader) { reader_ = &reader; }

    byte_range begin(const std::optional<file_facts>& /*there*/) override
    {
        progress().start(source_.facts.size.value_or(0), 0);
        return {};
    }
    /// Only the end of the source, which is compared with its size, ends the copy.
    [[nodiscard]] std::optional<std::uint64_t> size() const override { return std::nullopt; }
    std::size_t read(std::uint64_t offset, std::span<char> buffer) override
    {
        return reader_->read(offset, buffer);
    }
    [[nodiscard]] bool reads_anywhere() const override { return true; }
    /// What was sent before a break may be of another version of the source.
    bool is_unchanged() override
    {
        progress().restart();
        return false;
    }
    void verify(const checksum& stored) override
    {
        check_same(target(), source_.facts.content.value(), stored);
    }

protected:
    [[nodiscard]] file_facts source_facts() const override { return source_.facts; }

private:
    const remote_source& source_;
    random_reader* reader_ = nullptr;
};

server_copier::server_copier(const session& source, protocol* from, protocol& to, bool is_same)
    : source_(source), from_(from), to_(to), is_same_(is_same)
{
}

void server_copier::copy(const remote_source& source, const std::string& target,
                         const transfer_options& options, meter& progress)
{
    if (is_same_ && source.path == target) {
        throw InvalidOption(target, "it would be copied to itself");
    }
    remote_source known = source;
    if (options.keep_time && !known.facts.modified) {
        if (const auto time = from().modification_time(source.path)) {
            known.facts.modified = time->time;
        }
    }
    if (options.verify) {
        known.facts.content = content_of(from(), to_, source.path, options);
    }
    transfer_options whole = options;
    whole.resume = false; // What is left of an earlier copy may be of another version of the source.
    copied_upload file(known, target, whole, progress);
    if (is_same_ && copy_on_server(source, file)) {
        return;
    }
    protocol& reading = from();
    stream_reader reader([&](const std::stop_token&, std::uint64_t offset,
                             const std::function<bool(std::string_view)>& on_data) {
        const transfer_options part{.offset = offset};
        meter unseen(source.path, part, nullptr, session_access::options(source_).stop);
        data_download content(source.path, on_data, part, unseen);
        copy_whole<download>(reading, content, &protocol::fetch);
    });
    file.attach(reader);
    copy_whole<upload>(to_, file, &protocol::send);
}

/// False where the server does not offer it.
bool server_copier::copy_on_server(const remote_source& source, copied_upload& file)
{
    if (!file.may_replace() && to_.find(file.target())) {
        throw AlreadyExists(file.target());
    }
    const auto replaced = file.needs_replaced() ? to_.find(file.target()) : std::nullopt;
    file.begin({});
    try {
        if (!to_.copy_on_server(source.path, file.path(), file.facts_to_set({}),
                                [&](std::uint64_t bytes) { file.sent(bytes); })) {
            return false;
        }
        const auto stored = to_.size(file.path());
        if (stored && source.facts.size && *stored != *source.facts.size) {
            throw_size_mismatch(file.target(), *stored, *source.facts.size);
        }
        if (file.needs_verifying()) {
            file.verify(to_.ask_checksum(file.path()));
        }
        to_.set_facts(file.path(), file.facts_to_set(replaced));
        if (file.is_temporary()) {
            replace_file(to_, file.path(), file.target(), file.may_replace());
        }
        file.finish();
    } catch (...) {
        if (file.is_temporary()) {
            to_.clean_up([&] { to_.remove_file(file.path()); });
        }
        throw;
    }
    return true;
}

protocol& server_copier::from()
{
    if (from_ == nullptr) {
        own_ = protocol::open(source_.location(), session_access::options(source_));
        from_ = own_.get();
    }
    return *from_;
}

void copy(session& from, const std::string& source, session& to, const std::string& target,
          const transfer_options& options)
{
    protocol& reading = session_access::server(from);
    protocol& writing = session_access::server(to);
    const std::string path = to.absolute(target);
    const session_options& limits = session_access::options(to);
    meter progress(path, options, make_rate_limiter(options.rate_limit, limits.total_timeout), limits.stop);
    server_copier copier(from, &reading == &writing ? nullptr : &reading, writing, is_same_login(from, to));
    copier.copy(find_remote_source(reading, from.absolute(source)), path, options, progress);
}

} // namespace qrftp
