#include <foundation/core/except/Exception.hpp>
#include <qrftp/errors.hpp>
#include <qrftp/url.hpp>

#include <boost/algorithm/string/replace.hpp>
#include <curl/curl.h>

#include <charconv>
#include <memory>
#include <new>

namespace qrftp {

using foundation::core::except::raise;

namespace {

using handle = std::unique_ptr<CURLU, decltype(&curl_url_cleanup)>;
using text = std::unique_ptr<char, decltype(&curl_free)>;

/// The password of a URL that is shown in an error is nobody's to read, even where the text is no URL.
std::string without_password(const std::string& whole)
{
    std::size_t colon = whole.find(':');
    if (whole.find("://") == colon && colon != std::string::npos) {
        colon = whole.find(':', colon + 3);
    }
    const std::size_t at = whole.rfind('@');
    if (at == std::string::npos || colon == std::string::npos || colon > at) {
        return whole;
    }
    return whole.substr(0, colon) + ":****" + whole.substr(at);
}

/// A part that libcurl had no memory for is not one that is not there.
void check_memory(CURLUcode code)
{
    if (code == CURLUE_OUT_OF_MEMORY) {
        throw std::bad_alloc();
    }
}

std::string part(const handle& parsed, CURLUPart which, unsigned flags, const std::string& whole)
{
    char* found = nullptr;
    const CURLUcode code = curl_url_get(parsed.get(), which, &found, flags);
    if (code == CURLUE_URLDECODE) {
        raise<error::InvalidUrl>(without_password(whole), "it holds a control character");
    }
    check_memory(code);
    const text owner(found, &curl_free);
    return code == CURLUE_OK ? owner.get() : "";
}

/// The path as the client takes it: what relative means differs between the two protocols.
std::string client_path(bool sftp, const std::string& path)
{
    if (!sftp) {
        return path.substr(1); // The slash behind the host only separates.
    }
    if (path == "/" || path == "/~") {
        return {};
    }
    return path.starts_with("/~/") ? path.substr(3) : path;
}

} // namespace

url url::parse(const std::string& whole)
{
    const handle parsed(curl_url(), &curl_url_cleanup);
    if (parsed == nullptr) {
        throw std::bad_alloc();
    }
    const auto refuse = [&](const std::string& reason) {
        raise<error::InvalidUrl>(without_password(whole), reason);
    };
    if (whole.find('\0') != std::string::npos) {
        refuse("it holds a control character");
    }
    // Neither scheme has queries or fragments: what looks like one is part of a name, or of a glob. People
    // write blanks in names, too.
    std::string plain = boost::algorithm::replace_all_copy(whole, "?", "%3F");
    boost::algorithm::replace_all(plain, "#", "%23");
    boost::algorithm::replace_all(plain, " ", "%20");
    const CURLUcode code =
        curl_url_set(parsed.get(), CURLUPART_URL, plain.c_str(), CURLU_NON_SUPPORT_SCHEME | CURLU_PATH_AS_IS);
    check_memory(code);
    if (code == CURLUE_BAD_SCHEME || code == CURLUE_UNSUPPORTED_SCHEME) {
        refuse("it begins with neither ftp:// nor sftp://");
    }
    if (code != CURLUE_OK) {
        refuse(curl_url_strerror(code));
    }
    if (whole.find(":///") != std::string::npos) {
        refuse("it names no host"); // libcurl would take the first folder for one.
    }
    const std::string scheme = part(parsed, CURLUPART_SCHEME, 0, whole);
    if (scheme == "ftps") {
        refuse("write ftp:// for FTP with TLS too, which is switched on unless you say otherwise");
    }
    if (scheme != "ftp" && scheme != "sftp") {
        refuse("it begins with neither ftp:// nor sftp://");
    }
    url result;
    result.sftp = scheme == "sftp";
    result.host = part(parsed, CURLUPART_HOST, 0, whole);
    if (result.host.empty()) {
        refuse("it names no host");
    }
    const std::string port = part(parsed, CURLUPART_PORT, CURLU_DEFAULT_PORT, whole);
    std::from_chars(port.data(), port.data() + port.size(), result.port);
    if (result.port == 0) {
        refuse("it names port 0"); // libcurl would take it for none.
    }
    result.user = part(parsed, CURLUPART_USER, CURLU_URLDECODE, whole);
    result.password = part(parsed, CURLUPART_PASSWORD, CURLU_URLDECODE, whole);
    result.path = client_path(result.sftp, part(parsed, CURLUPART_PATH, CURLU_URLDECODE, whole));
    // libcurl 7.88 looks for numeric addresses before it decodes the host: asked for this one, it would take
    // another.
    const CURLUcode again = curl_url_set(parsed.get(), CURLUPART_URL, result.server().c_str(), 0);
    check_memory(again);
    if (again != CURLUE_OK || part(parsed, CURLUPART_HOST, 0, whole) != result.host) {
        refuse("its host is an address in disguise");
    }
    return result;
}

std::string url::server() const
{
    const std::uint16_t usual = sftp ? 22 : 21;
    return (sftp ? "sftp://" : "ftp://") + host + (port == usual ? "" : ':' + std::to_string(port));
}

} // namespace qrftp
