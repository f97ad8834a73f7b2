#include "names.hpp"
#include "remote.hpp"
#include "utc.hpp"

#include <curl/curl.h>

#include <utility>

namespace qrftp {

namespace {

/// A name as an argument of libcurl's SFTP commands, which take a backslash for an escape and end at a quote.
std::string quoted(const std::string& name)
{
    std::string result = "\"";
    for (const char byte : name) {
        if (byte == '"' || byte == '\\') {
            result += '\\';
        }
        result += byte;
    }
    return result + '"';
}

class sftp_remote final : public remote {
public:
    using remote::remote;

    refusal ping() override
    {
        // A file that is there or not: opening it costs one round trip at least.
        run({.about = "the connection", .path = info().login_folder, .names_time = true});
        return {};
    }

    refusal enter(const std::string& path) override
    {
        listing_parser parser(format(), [](const entry&) {});
        return list(path, parser, [] {});
    }

    bool is_folder(const std::string& path) override
    {
        const refusal refused = enter(path);
        return !refused || (refused->curl == CURLE_REMOTE_ACCESS_DENIED && remote::is_folder(path));
    }

    std::optional<entry> find(const std::string& path) override
    {
        bool listed = true;
        auto found = find_in_parent(path, &listed);
        // A folder that may be passed through, but not listed.
        if (!listed && !enter(path)) {
            return entry{.name = names::last(path), .kind = entry_kind::folder};
        }
        if (!listed) {
            const outcome file = run({.about = path, .path = path, .names_time = true});
            if (file.done()) {
                return entry{.name = names::last(path), .size = size_of(file), .modified = time_of(file)};
            }
        }
        return found;
    }

    std::optional<timestamp> modification_time(const std::string& path) override
    {
        return time_of(run({.about = path, .path = path, .names_time = true}));
    }

    refusal list(const std::string& path, listing_parser& parser, const std::function<void()>& restart) override
    {
        request wanted{.about = path, .path = path.ends_with('/') ? path : path + '/'};
        feed_listing(wanted, parser, restart);
        const outcome result = run(wanted);
        parser.finish();
        return result.done() ? refusal() : result.said();
    }

    listing_format format() const override { return listing_format::sftp; }

    refusal make_folder(const std::string& path) override { return tell(path, "mkdir " + quoted(path)); }
    refusal remove_folder(const std::string& path) override { return tell(path, "rmdir " + quoted(path)); }
    refusal remove_file(const std::string& path) override { return tell(path, "rm " + quoted(path)); }

    refusal rename(const std::string& from, const std::string& to) override
    {
        return tell(from, "rename " + quoted(from) + ' ' + quoted(to));
    }

    refusal set_modification_time(const std::string& path, std::int64_t seconds) override
    {
        const std::string digits = utc_digits(seconds);
        const std::string date = digits.substr(0, 8) + ' ' + digits.substr(8, 2) + ':' + digits.substr(10, 2) +
                                 ':' + digits.substr(12) + " GMT";
        return tell(path, "mtime " + quoted(date) + ' ' + quoted(path), true);
    }

    std::optional<std::uint64_t> size(const std::string& path) override
    {
        return size_of(run({.about = path, .path = path}));
    }

    refusal fetch(const std::string& path, request how) override
    {
        try {
            return remote::fetch(path, std::move(how));
        } catch (const error::ServerGone& gone) {
            // OpenSSH opens a folder like a file, and reading it looks like a lost connection.
            if (!enter(path)) {
                return gone.said;
            }
            throw;
        }
    }

    upload_result send(const std::string& path, request how) override
    {
        how.path = path;
        const outcome result = run(how);
        if (!result.done()) {
            return {result.said(), {}};
        }
        return {{}, size(path)};
    }

    std::string system_type() override { return {}; }

private:
    static std::optional<timestamp> time_of(const outcome& result)
    {
        return result.time ? std::optional(timestamp{.seconds = *result.time}) : std::nullopt;
    }

    /// libcurl tells no length of an empty file.
    static std::optional<std::uint64_t> size_of(const outcome& result)
    {
        return result.done() ? std::optional(result.length.value_or(0)) : std::nullopt;
    }

    refusal tell(const std::string& about, const std::string& command, bool repeatable = false)
    {
        const outcome result = run({.about = about, .commands = {command}, .repeatable = repeatable});
        return result.done() ? refusal() : result.said();
    }
};

} // namespace

std::unique_ptr<remote> make_sftp_remote(std::unique_ptr<engine> opened)
{
    return std::make_unique<sftp_remote>(std::move(opened));
}

} // namespace qrftp
