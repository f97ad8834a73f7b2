#include "format.hpp"

#include "json.hpp"

#include <gtest/gtest.h>

using namespace qrftp;
using namespace qrftp::cli;
using std::chrono::seconds;
using std::chrono::sys_seconds;

TEST(Format, SizesAndDurations)
{
    const std::pair<double, const char*> sizes[] = {
        {0, "0 B"},        {1023, "1023 B"},       {1024, "1.0 KiB"},
        {1536, "1.5 KiB"}, {67108864, "64.0 MiB"}, {5e15, "4.4 PiB"},
    };
    for (const auto& [bytes, text] : sizes) {
        EXPECT_EQ(human_size(bytes), text);
    }
    EXPECT_EQ(clock_time(seconds(59)) + clock_time(seconds(3599)) + clock_time(seconds(3600)),
              "0:5959:591:00:00");
    EXPECT_EQ(add_sizes(1, 2), 3U);
    EXPECT_EQ(add_sizes(UINT64_MAX, 2), UINT64_MAX);
}

TEST(Format, TimesAsFarAsTheyAreKnown)
{
    const timestamp second{sys_seconds(seconds(1672542245)), time_precision::second, true};
    const timestamp minute{second.time, time_precision::minute, false};
    const timestamp day{second.time, time_precision::day, false};
    EXPECT_EQ(time_text(second) + '|' + time_text(second, true), "2023-01-01 03:04|2023-01-01 03:04:05");
    EXPECT_EQ(time_text(minute, true) + '|' + time_text(day, true), "2023-01-01 03:04|2023-01-01");
    EXPECT_EQ(iso_time(second) + '|' + iso_time(minute) + '|' + iso_time(day),
              "2023-01-01T03:04:05Z|2023-01-01T03:04|2023-01-01");
    EXPECT_EQ(time_text({sys_seconds(seconds(-1)), time_precision::second, true}, true), "1969-12-31 23:59:59");
}

TEST(Format, Modes)
{
    const auto shown = [](entry_kind kind, unsigned mode) {
        return mode_text({.name = "a", .kind = kind, .mode = static_cast<std::filesystem::perms>(mode)});
    };
    EXPECT_EQ(shown(entry_kind::file, 0644) + shown(entry_kind::folder, 01777), "-rw-r--r--drwxrwxrwt");
    EXPECT_EQ(shown(entry_kind::file, 06654) + shown(entry_kind::link, 07000), "-rwSr-sr--l--S--S--T");
    EXPECT_EQ(mode_text({.name = "a", .kind = entry_kind::other}), "??????????");
    EXPECT_EQ(octal_mode(static_cast<std::filesystem::perms>(04755)), "4755");
}

TEST(Json, EscapesWhatTerminalsActOn)
{
    json object = json::object();
    add_bytes(object, "a", "\x1b\x7f\xc2\x9b\xc2\xa0\"\\");
    EXPECT_EQ(to_text(object), R"({"a":"\u001b\u007f\u009b)"
                               "\xc2\xa0"
                               R"(\"\\"})");
    json odd = json::object();
    add_bytes(odd, "b", "\xc2\xe4");
    add_bytes(odd, "c", "");
    EXPECT_EQ(to_text(odd), "{\"b\":\"\xef\xbf\xbd\xef\xbf\xbd\",\"b_hex\":\"c2e4\"}");
}
