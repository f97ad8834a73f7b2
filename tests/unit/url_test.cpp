#include <gmock/gmock.h>
#include <qrftp/error.hpp>
#include <qrftp/url.hpp>
#include <sstream>

using namespace qrftp;
using namespace std::literals;
using namespace testing;

namespace {

/// "SCHEME HOST PORT USER|PASSWORD|PATH|PATTERN = SERVER", or the error's sentence.
std::string parsed(std::string_view text)
try {
    const url u = url::parse(text);
    const char* const names[] = {"ftp ", "ftps ", "sftp "};
    return names[static_cast<int>(u.scheme)] + u.host + ' ' + std::to_string(u.port) + ' ' + u.user + '|' +
           u.password + '|' + u.path + '|' + u.pattern + " = " + u.server();
} catch (const InvalidUrl& refused) {
    return "refused: "s + refused.what();
}

} // namespace

TEST(Url, IsTakenApartAsPeopleWriteIt)
{
    const std::pair<std::string_view, std::string_view> rows[] = {
        {"FTP://h/", "ftp h 0 ||| = ftp://h"},
        {"ftp://h", "ftp h 0 ||| = ftp://h"},
        {"ftp://h/a/b", "ftp h 0 ||a/b|a/b = ftp://h"},
        {"ftp://h//a", "ftp h 0 ||/a|/a = ftp://h"},
        {"ftp://u:p%40%3a@h:2121/%41/", "ftp h 2121 u|p@:|A/|A/ = ftp://h:2121"},
        {"ftp://u@x:p:q@h/a@b:c", "ftp h 0 u@x|p:q|a@b:c|a@b:c = ftp://h"},
        {"ftps://h:990//a", "ftps h 990 ||/a|/a = ftps://h"},
        {"ftps://h:21/a", "ftps h 21 ||a|a = ftps://h:21"},
        {"sftp://u@h:22/a", "sftp h 22 u||/a|/a = sftp://h"},
        {"ftp://h:22/", "ftp h 22 ||| = ftp://h:22"},
        {"sftp://h:/~", "sftp h 0 ||| = sftp://h"},
        {"sftp://h/~/a b", "sftp h 0 ||a b|a b = sftp://h"},
        {"sftp://h/~a", "sftp h 0 ||/~a|/~a = sftp://h"},
        {"ftp://[::1]:2121/a", "ftp [::1] 2121 ||a|a = ftp://[::1]:2121"},
        {"ftp://127.0.0.1/a", "ftp 127.0.0.1 0 ||a|a = ftp://127.0.0.1"},
        {"ftp://%68%c3%b6/100%", "ftp h\xc3\xb6 0 ||100%|100% = ftp://h\xc3\xb6"},
        {"h:2121/a",
         R"(refused: "h:2121/a" is not the URL of an FTP or SFTP server: write ftp://h:2121/ or sftp://h:2121/.)"},
        {"me@h:a",
         R"(refused: "me@h:a" is not the URL of an FTP or SFTP server: write ftp://me@h/ or sftp://me@h/.)"},
        {"sftp:/h/a", R"(refused: "sftp:/h/a" is not the URL of an FTP or SFTP server: write sftp://h/.)"},
        {"ftp://h/a?[b]*#c;type=a/../%ff",
         "ftp h 0 ||a?[b]*#c;type=a/../\xff|a?[b]*#c;type=a/../\xff = ftp://h"},
        {R"(ftp://h/%2a%5B[%5d-%2D]\*)", R"(ftp h 0 ||*[[]--]\*|\*\[[\]-\-]\\* = ftp://h)"},
    };
    for (const auto& [text, want] : rows) {
        EXPECT_EQ(parsed(text), want) << text;
    }
}

TEST(Url, IsRefusedWithoutShowingItsPassword)
{
    const auto expect_refused = [](std::string_view text) {
        EXPECT_THAT(parsed(text), AllOf(StartsWith("refused: "), Not(HasSubstr("secret")))) << text;
    };
    for (const auto text : {""sv, "sftp://h/a\n"sv, "ftp://h/a\0b"sv, "ftp://ho st/"sv}) {
        expect_refused(text);
    }
    std::istringstream words(
        "u:secret@h http://h/ ftpx://u:secret@h/ file:///a ftp:// ftp:///a ftp://u:secret@/a "
        "ftp://h:0x/ ftp://h:99999/ ftp://h:0/ ftp://u:secret%0d@h/ ftp://u%0a@h/ "
        "ftp://h/%00 ftp://h/%7f ftp://u:sec/secret@h/ ftp://-oProxyCommand/ "
        "ftp://2130706433/ ftp://0x7f.1/ ftp://127.1./ ftp://127.0.0.256/ ftp://0177.0.0.1/ "
        "ftp://%31/ ftp://[::1/ ftp://[::g]/ ftp://[::1]x/");
    for (std::string text; words >> text;) {
        expect_refused(text);
    }
}

TEST(Url, IsToldFromAPathAndItsPasswordIsFound)
{
    EXPECT_TRUE(is_url("ftp://h") && is_url("x+y-1.2://"));
    EXPECT_FALSE(is_url("") || is_url("://h") || is_url("a/b://c") || is_url("1ftp://h") || is_url("ftp:/h"));
    const std::pair<std::string_view, std::string_view> rows[] = {
        {"ftp://u:p%20w@h/a@b", "p%20w"}, {"ftp://u:p/w@h/", "p/w"}, {"u:p@h", "p"}, {"ftp://u@h:21/", ""}};
    for (const auto& [text, want] : rows) {
        EXPECT_EQ(password_in(text), want) << text;
    }
}
