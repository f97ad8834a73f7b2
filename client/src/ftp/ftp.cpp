#include "names.hpp"
#include "remote.hpp"
#include "utc.hpp"

#include <boost/algorithm/string/predicate.hpp>
#include <boost/algorithm/string/replace.hpp>

#include <algorithm>
#include <charconv>
#include <utility>

namespace qrftp {

namespace {

constexpr long completed = 200; // RFC 959, 4.2: replies from 200 to 299, and 350 to RNFR
constexpr long file_status = 213;
constexpr long more_wanted = 350;

bool is_done(const ftp_reply& reply)
{
    constexpr long after = 300;
    return reply.code >= completed && reply.code < after;
}

/// The text behind the code of a reply's last line.
std::string_view value_of(const ftp_reply& reply)
{
    constexpr std::size_t start = 4;
    return reply.lines.empty() || reply.lines.back().size() < start
               ? std::string_view()
               : std::string_view(reply.lines.back()).substr(start);
}

std::optional<std::uint64_t> number_of(const ftp_reply& reply)
{
    std::uint64_t number = 0;
    const std::string_view text = value_of(reply);
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return reply.code == file_status && error == std::errc() && end != text.data() ? std::optional(number)
                                                                                   : std::nullopt;
}

class ftp_remote final : public remote {
public:
    explicit ftp_remote(std::unique_ptr<engine> opened) : remote(std::move(opened))
    {
        has_mlst_ = has_feature("MLST");
        has_mfmt_ = has_feature("MFMT");
    }

    refusal ping() override { return ask("the connection", {"NOOP"}, true); }

    refusal enter(const std::string& path) override
    {
        refusal refused = ask(path, {"CWD " + path}, true);
        if (!refused) {
            // Back at once: a folder that the server stands in could not be removed.
            tell(path, {"CWD " + info().login_folder}, true);
        }
        return refused;
    }

    /// Without a listing: what is asked about is often a new file, in a folder of many.
    bool is_folder(const std::string& path) override
    {
        const auto told = ask_mlst(path);
        return told && told->kind != entry_kind::link ? told->kind == entry_kind::folder : !enter(path);
    }

    std::optional<entry> find(const std::string& path) override
    {
        const auto told = ask_mlst(path);
        if (told) {
            return told->mode == mode_of_links ? find_link(path, *told) : told;
        }
        return has_mlst_ ? find_in_parent(path) : find_without_mlst(path);
    }

    std::optional<timestamp> modification_time(const std::string& path) override
    {
        const outcome result = tell(path, {"MDTM " + path}, true);
        // The value is a time as in the facts of MLSD.
        std::optional<timestamp> time;
        listing_parser parser(listing_format::mlsd, [&](entry&& found) { time = found.modified; });
        if (result.reply().code == file_status) {
            parser.feed("type=file;modify=" + std::string(value_of(result.reply())) + "; x\n");
        }
        return time;
    }

    refusal list(const std::string& path, listing_parser& parser, const std::function<void()>& restart) override
    {
        const auto folder_path = path.ends_with('/') ? path : path + '/';
        request wanted{.about = path, .path = folder_path, .method = has_mlst_ ? "MLSD" : "LIST"};
        feed_listing(wanted, parser, restart);
        // LIST may take a name for a pattern or for several, and list a file as if it were a folder's content.
        wanted.enters = !has_mlst_;
        const outcome result = run(wanted);
        parser.finish();
        if (has_mlst_ && !result.done() && is_unknown_command(result.reply())) {
            has_mlst_ = false; // It is advertised and missing; the caller asks again, in the other format.
        }
        return result.done() ? refusal() : result.said();
    }

    listing_format format() const override { return has_mlst_ ? listing_format::mlsd : listing_format::list; }

    refusal make_folder(const std::string& path) override { return ask(path, {"MKD " + path}); }
    refusal remove_folder(const std::string& path) override { return ask(path, {"RMD " + path}); }
    refusal remove_file(const std::string& path) override { return ask(path, {"DELE " + path}); }

    refusal rename(const std::string& from, const std::string& to) override
    {
        const outcome first = tell(from, {"RNFR " + from, "RNTO " + to});
        const bool named = first.reply(1).code == more_wanted;
        return named && is_done(first.reply()) ? refusal() : said_by(first, named ? 0 : 1);
    }

    refusal set_modification_time(const std::string& path, std::int64_t seconds) override
    {
        return has_mfmt_ ? ask(path, {"MFMT " + utc_digits(seconds) + ' ' + path}, true) : answer{};
    }

    std::optional<std::uint64_t> size(const std::string& path) override
    {
        return number_of(tell(path, {"TYPE I", "SIZE " + path}, true).reply());
    }

    upload_result send(const std::string& path, request how) override
    {
        how.path = path;
        how.afterwards = {"*SIZE " + path};
        const outcome result = run(how);
        if (!result.done()) {
            return {result.said(), {}};
        }
        return {{}, number_of(result.reply())};
    }

    std::string system_type() override
    {
        const outcome result = tell("the system type", {"SYST"}, true);
        return is_done(result.reply()) ? std::string(value_of(result.reply())) : "";
    }

private:
    bool has_feature(std::string_view name) const
    {
        const auto& features = info().features;
        return std::any_of(features.begin(), features.end(), [&](const std::string& feature) {
            return boost::algorithm::iequals(feature.substr(0, feature.find(' ')), name);
        });
    }

    static bool is_unknown_command(const ftp_reply& reply) { return reply.code >= 500 && reply.code <= 504; }

    /// Sends commands that libcurl is told not to judge: for a refused one it would close the connection.
    outcome tell(const std::string& about, std::vector<std::string> commands, bool repeatable = false)
    {
        for (std::string& command : commands) {
            command.insert(0, 1, '*');
        }
        return run({.about = about, .commands = std::move(commands), .repeatable = repeatable});
    }

    refusal ask(const std::string& about, std::vector<std::string> commands, bool repeatable = false)
    {
        const outcome result = tell(about, std::move(commands), repeatable);
        return is_done(result.reply()) ? refusal() : said_by(result, 0);
    }

    static answer said_by(const outcome& result, std::size_t from_last)
    {
        const ftp_reply& reply = result.reply(from_last);
        return {reply.code, result.code, reply.lines.empty() ? "no reply" : reply.lines.back()};
    }

    static std::optional<entry> mlst_entry(const ftp_reply& reply, const std::string& path)
    {
        std::optional<entry> found;
        if (!is_done(reply) || reply.lines.size() < 3) {
            return found;
        }
        // The facts stand behind a blank, the name behind them may be a whole path.
        const std::string& line = reply.lines[1];
        const std::size_t facts = std::min(line.find_first_not_of(' '), line.size());
        const std::size_t end = std::min(line.find(' ', facts), line.size());
        std::string facts_only = line.substr(facts, end - facts);
        for (const char* const self : {"type=cdir", "type=pdir"}) {
            boost::algorithm::ireplace_first(facts_only, self, "type=dir");
        }
        listing_parser parser(listing_format::mlsd, [&](entry&& read) { found = std::move(read); });
        parser.feed(facts_only + " x\n");
        if (found) {
            found->name = names::last(path);
        }
        return found;
    }

    std::optional<entry> ask_mlst(const std::string& path)
    {
        if (!has_mlst_) {
            return {};
        }
        const outcome result = tell(path, {"MLST " + path}, true);
        auto found = mlst_entry(result.reply(), path);
        has_mlst_ = found || !is_unknown_command(result.reply());
        return found;
    }

    /// ProFTPD answers for a link with the kind of what it leads to, and the size and the mode of the link.
    static constexpr unsigned mode_of_links = 0777;
    std::optional<entry> find_link(const std::string& path, const entry& told)
    {
        auto found = find_in_parent(path);
        return found ? found : told;
    }

    std::optional<entry> find_without_mlst(const std::string& path)
    {
        if (!enter(path)) {
            return entry{.name = names::last(path), .kind = entry_kind::folder};
        }
        if (const auto bytes = size(path)) {
            return entry{.name = names::last(path), .size = bytes, .modified = modification_time(path)};
        }
        return find_in_parent(path);
    }

    bool has_mlst_;
    bool has_mfmt_;
};

} // namespace

std::unique_ptr<remote> make_ftp_remote(std::unique_ptr<engine> opened)
{
    return std::make_unique<ftp_remote>(std::move(opened));
}

} // namespace qrftp
