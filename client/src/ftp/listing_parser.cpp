#include <qrftp/listing.hpp>

#include "listing_text.hpp"

#include <utility>

namespace qrftp {

namespace {

using namespace ftp;

constexpr std::size_t longest_line = 65536;
constexpr std::size_t longest_sample = 1024;

bool is_total(std::string_view line)
{
    scanner in(line);
    if (!equals(in.word(), "total") || !in.blanks()) {
        return false;
    }
    const std::string_view count = in.word();
    in.blanks();
    return !count.empty() && is_digit(count.front()) && in.rest().empty();
}

line_content read_line(listing_format format, std::string_view line, std::chrono::sys_seconds now, entry& found)
{
    if (format == listing_format::mlsd) {
        return read_mlsd_line(line, found);
    }
    if (is_digit(line.front())) {
        return read_windows_line(line, found);
    }
    if (is_total(line)) {
        return line_content::nothing;
    }
    return read_unix_line(line, now, found);
}

line_content judge_name(std::string_view name)
{
    constexpr std::string_view forbidden("/\0", 2);
    if (name == "." || name == "..") {
        return line_content::nothing;
    }
    return name.empty() || name.find_first_of(forbidden) != std::string_view::npos ? line_content::unreadable
                                                                                   : line_content::entry;
}

} // namespace

class listing_parser::state {
public:
    state(listing_format format, entry_sink on_entry, line_sink on_skipped, std::chrono::sys_seconds now)
        : format_(format), on_entry_(std::move(on_entry)), on_skipped_(std::move(on_skipped)), now_(now)
    {
    }

    void feed(std::string_view bytes);
    void restart();
    void finish() { take_part({}, true); }

private:
    void take_part(std::string_view part, bool ended);
    void take_line(std::string_view line);
    void skip(std::string_view line);

    listing_format format_;
    entry_sink on_entry_;
    line_sink on_skipped_;
    std::chrono::sys_seconds now_;
    std::string rest_; ///< of a line that has not ended
    bool passing_over_ = false;
};

listing_parser::listing_parser(listing_format format, entry_sink on_entry, line_sink on_skipped,
                               std::chrono::system_clock::time_point now)
    : state_(std::make_unique<state>(format, std::move(on_entry), std::move(on_skipped),
                                     std::chrono::floor<std::chrono::seconds>(now)))
{
}

listing_parser::listing_parser(listing_parser&& other) noexcept = default;
listing_parser& listing_parser::operator=(listing_parser&& other) noexcept = default;
listing_parser::~listing_parser() = default;

void listing_parser::feed(std::string_view bytes)
{
    state_->feed(bytes);
}

void listing_parser::restart()
{
    state_->restart();
}

void listing_parser::finish()
{
    state_->finish();
}

void listing_parser::state::feed(std::string_view bytes)
{
    while (!bytes.empty()) {
        const std::size_t end = bytes.find('\n');
        const bool ended = end != std::string_view::npos;
        const std::string_view part = bytes.substr(0, end);
        bytes.remove_prefix(part.size() + (ended ? 1 : 0));
        take_part(part, ended);
    }
}

void listing_parser::state::restart()
{
    rest_.clear();
    passing_over_ = false;
}

void listing_parser::state::take_part(std::string_view part, bool ended)
{
    if (passing_over_) {
        passing_over_ = !ended;
    } else if (part.size() > longest_line - rest_.size()) {
        passing_over_ = !ended;
        std::string sample = std::exchange(rest_, {});
        sample.append(part.substr(0, longest_sample)).resize(longest_sample);
        skip(sample);
    } else if (!ended) {
        rest_ += part;
    } else if (rest_.empty()) {
        take_line(part);
    } else {
        // Out of rest_ already, should a sink throw.
        std::string line = std::exchange(rest_, {});
        take_line(line += part);
        line.clear();
        rest_ = std::move(line);
    }
}

void listing_parser::state::take_line(std::string_view line)
{
    line.remove_suffix(line.ends_with('\r') ? 1 : 0);
    if (line.find_first_not_of(" \t\r") == std::string_view::npos) {
        return;
    }
    entry found;
    line_content content = read_line(format_, line, now_, found);
    if (content == line_content::entry) {
        content = judge_name(found.name);
    }
    if (content == line_content::entry) {
        on_entry_(std::move(found));
    } else if (content == line_content::unreadable) {
        skip(line);
    }
}

void listing_parser::state::skip(std::string_view line)
{
    if (on_skipped_) {
        on_skipped_(line);
    }
}

} // namespace qrftp
