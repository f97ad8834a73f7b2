// Lines of listings, and what they are read as.

#include <qrftp/listing.hpp>

#include <fmt/chrono.h>
#include <gmock/gmock.h>

using namespace qrftp;
using namespace std::literals;
using std::chrono::sys_days;
using std::chrono::sys_seconds;
using testing::ElementsAre;

namespace {

constexpr auto mlsd = listing_format::mlsd;
constexpr auto list = listing_format::list;
constexpr sys_seconds june = sys_days(2024y / 6 / 15);
constexpr sys_seconds eve = sys_days(2023y / 12 / 31) + 23h;

/// As precise as it is, with Z where it is UTC.
std::string text_of(const timestamp& at)
{
    const std::size_t shown[] = {10, 16, 19}; // to the day, the minute, the second
    const auto text = fmt::format("{:%Y-%m-%d %H:%M:%S}", fmt::gmtime(at.time.time_since_epoch().count()));
    return text.substr(0, shown[static_cast<int>(at.precision)]) + (at.utc ? "Z" : "");
}

/// "KIND 'name' size date mode owner:group >'target'" without what is empty.
std::string text_of(const entry& one)
{
    std::string text = fmt::format("{} '{}'", "FDLO"[static_cast<int>(one.kind)], one.name);
    if (one.size)
        text += fmt::format(" {}", *one.size);
    if (one.modified)
        text += ' ' + text_of(*one.modified);
    if (one.mode)
        text += fmt::format(" {:o}", static_cast<unsigned>(*one.mode));
    if (!one.owner.empty() || !one.group.empty())
        text += ' ' + one.owner + ':' + one.group;
    if (!one.link_target.empty())
        text += " >'" + one.link_target + "'";
    return text;
}

/// The entries, and behind "!" what was skipped, of a listing fed in pieces of `step` bytes.
std::vector<std::string> parse(listing_format format, std::string_view text, std::size_t step = 999999,
                               sys_seconds now = june + 12h)
{
    std::vector<std::string> found;
    const auto skipped = [&](std::string_view line) { found.push_back("!" + std::string(line)); };
    listing_parser parser(
        format, [&](entry&& one) { found.push_back(text_of(one)); }, skipped, now);
    for (; !text.empty(); text.remove_prefix(std::min(step, text.size())))
        parser.feed(text.substr(0, step));
    parser.finish();
    return found;
}

using row = std::pair<std::string, std::string>;
// A line and what it is read as; "!" where it is skipped, nothing where it is dropped.
const std::vector<row> mlsd_rows = {
    {"type=file;size=12;modify=20240229235960.5;UNIX.mode=0100644;UNIX.ownername=me;UNIX.owner=0;UNIX.gid=7; "
     "a; b=c ",
     "F 'a; b=c ' 12 2024-03-01 00:00:00Z 644 me:7"},
    {"TYPE=Dir;SIZE=4096;sizd=1;Modify=20230229000000;unix.MODE=999;  x", "D ' x'"},
    {"type=OS.unix=slink:/a b;size=4; l", "L 'l' >'/a b'"},
    {"type=file;size=1x; f", "F 'f'"},
    {"type=file;modify=19011213204552; past", "F 'past' 1901-12-13 20:45:52Z"},
    {"type=file;modify=24660101000000; future", "F 'future' 2466-01-01 00:00:00Z"},
    {"type=file;modify=99991231235959;size=-1; f", "F 'f' 9999-12-31 23:59:59Z"},
    {"type=OS.unix=chr-1/2;size=1;unix.group=g ...", "O '...' :g"},
    {"type=file; ../f", "!"},
    {"type=cdir; /a/b", ""},
    {"type=dir; .", ""}};
const std::vector<row> unix_rows = {
    {"-rwSr-sr-T+  1 me   staff  1234 JAN  5 09:07  a  b ", "F ' a  b ' 1234 2024-01-05 09:07 7654 me:staff"},
    {"Total 12K ", ""},
    {"l--------- 1 a 9 Jan  1 2020  -> x -> y", "L ' -> x' 2020-01-01 0 a: >'y'"},
    {"---------- 1 a  b  c 3 2020-02-28 23:30 +1600 f", "F '+1600 f' 3 2020-02-28 23:30 0"},
    {"drwxrwxrwt@1234 me 5 May 5 12:34 5 May 5 12:34 d", "D '5 May 5 12:34 d' 2024-05-05 12:34 1777 me:"},
    {"-rw-r--r-- 1 John Smith  Domain Users   12 Jan 31 2020 f",
     "F 'f' 12 2020-01-31 644 John Smith:Domain Users"},
    {"-rw-r--r-- 1 may 10 2048 Mar  3 10:00 f", "F 'f' 2048 2024-03-03 10:00 644 may:10"},
    {"p--------- 1 a 3 2020-02-30 12:00 l -> x", "O 'l -> x' 0 a:"},
    {"l--------- 1 a 1 Jan  1 2020 l -> x -> y", "L 'l -> x' 2020-01-01 0 a: >'y'"},
    {"---------- 1 a 18446744073709551616 Jan  1 2020 f", "F 'f' 2020-01-01 0 a:"},
    {"---------- 1 a 3 2020-02-28 23:30:09.12 -0130 f", "F 'f' 3 2020-02-29 01:00:09Z 0 a:"},
    {"---------- 1 a 3 2020-02-28 23:30 +0100 f", "F 'f' 3 2020-02-28 22:30Z 0 a:"},
    {"---------- 1 a 3 Foo  1 2020 f", "!"}};
const std::vector<row> windows_rows = {
    {"2-5-2024  13:05PM  7 f", "F 'f' 7"},
    {"02-25-70  12:05AM       <DIR>            d [x] ", "D '  d [x] ' 1970-02-25 00:05"},
    {"02-25-69  12:05 pm  1.234.567  f", "F ' f' 1234567 2069-02-25 12:05"},
    {"02-05-2024  23:05  <JUNCTION>     a [1] [C:\\b [2]]", "L 'a [1]' 2024-02-05 23:05 >'C:\\b [2]'"},
    {"2-5-20  1:05  1,234.567 f", "!"}};

} // namespace

TEST(Listing, ReadsEveryFormOfLineAndAllTheSameInPieces)
{
    for (const auto& [format, rows] : {std::pair(mlsd, mlsd_rows), {list, unix_rows}, {list, windows_rows}})
        for (const auto& [line, expected] : rows) {
            const std::vector all(expected.empty() ? 0 : 3, expected == "!" ? "!" + line : expected);
            const std::string lines = line + "\r\n" + line + "\n\r\n\n" + line;
            for (const std::size_t step : {999U, 7U, 1U})
                EXPECT_EQ(parse(format, lines, step), all) << line;
        }
}

TEST(Listing, SkipsHostileCutAndOverlongLines)
{
    const std::string start = "-rw-r--r-- 1 a b 3 Jan  1 2020 ", whole = start + "f",
                      read = "F 'f' 3 2020-01-01 644 a:b";
    const std::string longest = start + std::string(65536 - start.size(), 'n'),
                      sample = "!" + longest.substr(0, 1024);
    for (std::size_t i = 1; i < whole.size(); ++i)
        EXPECT_THAT(parse(list, whole.substr(0, i)), ElementsAre("!" + whole.substr(0, i)));
    for (const std::size_t step : {999999U, 1000U, 1U}) {
        const auto found =
            parse(list, whole + '\n' + longest + "n" + whole + '\n' + longest + '\n' + longest + 'n', step);
        EXPECT_THAT(found, ElementsAre(read, sample, testing::StartsWith("F 'nn"), sample));
    }
    std::string kept;
    listing_parser parser(mlsd, [&](entry&& one) { one.name == "x" ? throw 1 : void(kept = one.name); });
    parser.feed("bad\ntype=file; ");
    EXPECT_THROW(parser.feed("x\n"), int);
    parser.feed("type=file; y\n");
    EXPECT_EQ(kept, "y");
}

TEST(Listing, FindsTheLatestYearNotMoreThanADayAhead)
{
    const std::tuple<sys_seconds, std::string, std::string> years[] = {
        {eve, "Jan  1 23:00", " 2024-01-01 23:00"},
        {eve, "Jan  1 23:01", " 2023-01-01 23:01"},
        {eve + 2h, "Dec 31 23:59", " 2023-12-31 23:59"},
        {june - 4800h, "Feb 29 00:00", " 2020-02-29 00:00"},
        {sys_days(1904y / 2 / 1), "Feb 29 00:00", " 1896-02-29 00:00"},
        {june, "Feb 30 00:00", ""}};
    for (const auto& [now, date, found] : years)
        EXPECT_THAT(parse(list, "drwx------ 1 a b 3 " + date + " d", 9, now),
                    ElementsAre("D 'd'" + found + " 700 a:b"));
}
