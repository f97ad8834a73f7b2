// Listings of the format FORMAT, fed in pieces as long as the first byte says, and line by line: each line
// becomes one entry, or is skipped as it is, or is one of those that are dropped.
#include "fuzz.hpp"
#include <qrftp/listing.hpp>
using namespace qrftp;
static constexpr auto format = listing_format::FORMAT;
struct reader {
    std::vector<std::pair<entry, std::string>> found{}; // the entry, or the line that was skipped
    listing_parser parser{format, [this](entry&& one) { found.emplace_back(std::move(one), ""); },
                          [this](std::string_view line) { found.emplace_back(entry{}, line); },
                          std::chrono::sys_days(std::chrono::days(19889))};
};
/// Lines of which the library says that they are dropped, and the few that look like them.
static bool may_be_dropped(std::string line)
{
    const auto holds = [&](auto... texts) { return ((line.find(texts) != none) || ...); };
    if (line.find_first_not_of(" \t\r") == none || line.ends_with(" .") || line.ends_with(" .."))
        return true;
    for (char& c : line)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    if (format == listing_format::mlsd)
        return holds("type=cdir", "type=pdir");
    return holds(" . -> ", " .. -> ", " . [", " .. [") || line.starts_with("total ");
}
static void fuzz(std::string_view input)
{
    reader pieces, lines;
    std::string_view text = input.substr(!input.empty());
    const std::size_t step = input.empty() ? 1 : 1 + static_cast<unsigned char>(input[0]) % 64;
    for (std::size_t at = 0; at < text.size(); at += step)
        pieces.parser.feed(text.substr(at, step));
    while (!text.empty()) {
        const std::size_t before = lines.found.size();
        std::string line = take_line(text);
        lines.parser.feed(line + '\n');
        if (line.ends_with('\r'))
            line.pop_back();
        require(lines.found.size() == before + 1 || (lines.found.size() == before && may_be_dropped(line)));
        require(lines.found.size() == before || lines.found[before].second.empty() ||
                lines.found[before].second == line);
    }
    pieces.parser.finish(), lines.parser.finish();
    require(pieces.found == lines.found);
    for (const auto& [one, skipped] : lines.found) {
        if (!skipped.empty())
            continue;
        require(!one.name.empty() && one.name != "." && one.name != ".." &&
                one.name.find_first_of(std::string_view("/\n\0", 3)) == none);
        require((!one.size || one.kind == entry_kind::file) &&
                (one.link_target.empty() || one.kind == entry_kind::link));
        require(static_cast<unsigned>(one.mode.value_or(std::filesystem::perms::none)) <= 07777);
        // to the year 9999
        require(std::chrono::abs(one.modified.value_or(timestamp{}).time.time_since_epoch()) <
                std::chrono::seconds(253402387200));
    }
}
