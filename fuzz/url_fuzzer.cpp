// URLs from people, some without the scheme: a password stands where the first line ends, if it does.
#include "fuzz.hpp"
#include <qrftp/error.hpp>
#include <qrftp/glob.hpp>
#include <qrftp/url.hpp>

static void fuzz(std::string_view input)
{
    if (input.find("s3cr3t~pw") != none) {
        return;
    }
    const bool secret = input.find('\n') != none;
    const bool bare = input.find("://") == none && input.size() % 2 == 0;
    std::string text = (bare ? "ftp://" : "") + take_line(input);
    text.append(secret ? ":s3cr3t~pw@" : "").append(input);
    try {
        const auto one = qrftp::url::parse(text);
        const auto again = qrftp::url::parse(one.server());
        require(!one.host.empty() && one.effective_port() != 0 && qrftp::is_url(text));
        for (const char byte : one.host + one.user + one.password + one.path) {
            require(static_cast<unsigned char>(byte) >= ' ' && byte != '\x7f');
        }
        require(one.password.empty() || !qrftp::password_in(text).empty());
        require(qrftp::has_magic(one.pattern) || qrftp::glob_unescape(one.pattern) == one.path);
        require(again.scheme == one.scheme && again.host == one.host);
        require(again.effective_port() == one.effective_port() && (again.user + again.path).empty());
    } catch (const qrftp::InvalidUrl& refused) {
        require(std::string_view(refused.what()).find("s3cr3t~pw") == none);
    }
}
