// URLs from people, some without the scheme: a password stands where the first line ends, if it does.
#include "fuzz.hpp"
#include <qrftp/errors.hpp>
#include <qrftp/url.hpp>
static void fuzz(std::string_view input)
try {
    if (input.find("s3cr3t~pw") != none) return;
    const bool secret = input.find('\n') != none, bare = input.find("://") == none && input.size() % 2 == 0;
    std::string text = (bare ? "ftp://" : "") + take_line(input);
    text.append(secret ? ":s3cr3t~pw@" : "").append(input);
    const auto one = qrftp::url::parse(text), again = qrftp::url::parse(one.server());
    require(!one.host.empty() && one.port != 0);
    for (const char c : one.host + one.user + one.password + one.path) require(static_cast<unsigned char>(c) >= ' ');
    require(again.sftp == one.sftp && again.host == one.host && again.port == one.port && (again.user + again.path).empty());
} catch (const foundation::core::except::Exception<qrftp::error::InvalidUrl>& refused) {
    require(std::string_view(refused.what()).find("s3cr3t~pw") == none);
}
