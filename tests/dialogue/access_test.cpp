// How a server is reached: through a proxy or not at all. tests/cli/access.sh shows what is said where another
// kind of server answers.

#include "line_server.hpp"

#include <qrftp/client.hpp>

#include <cstdlib>
#include <gmock/gmock.h>

using namespace qrftp;
using support::line_server;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

session_options options()
{
    session_options all;
    all.user = "u";
    all.password = "s3cret";
    all.tls = tls_mode::none;
    all.ssh_config.only = "";
    all.use_agent = false;
    return all;
}

/// "ProxyRefused: The proxy …"
std::string failure(const std::string& url, const session_options& how)
{
    try {
        session(url, how);
        return "none";
    } catch (const error& e) {
        return std::string(e.name()) + ": " + e.what();
    }
}

} // namespace

TEST(Access, GoesThroughTheProxyOrNowhere)
{
    for (const std::string url : {"ftp://127.0.0.1:1", "ftps://127.0.0.1:1", "sftp://127.0.0.1:1"}) {
        SCOPED_TRACE(url);
        session_options how = options();
        if (url.starts_with("ftps")) {
            how.tls = tls_mode::strict;
        }
        for (const char* const scheme : {"", "http://", "http://me:s3cret@"}) {
            const line_server proxy("HTTP/1.1 403 Forbidden\r\n\r\n");
            how.proxy = scheme + ("127.0.0.1:" + std::to_string(proxy.port()));
            EXPECT_EQ(failure(url, how), "ProxyRefused: The proxy refused the connection (403).") << scheme;
        }
        {
            const line_server proxy(std::string("\5\xff", 2));
            how.proxy = "socks5h://127.0.0.1:" + std::to_string(proxy.port());
            EXPECT_THAT(failure(url, how), StartsWith("ProxyRefused: The proxy refused the connection ("));
        }
        for (const char* const bad : {"ftp://127.0.0.1", "http://", "http://127.0.0.1/path"}) {
            how.proxy = bad;
            EXPECT_THAT(failure(url, how), StartsWith("InvalidOption: ")) << bad;
        }
        for (const char* const name : {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"}) {
            ::unsetenv(name);
        }
        how.proxy.clear();
        how.use_proxy = true;
        EXPECT_THAT(failure(url, how), HasSubstr("no proxy is named"));
        const line_server proxy("HTTP/1.1 407 Who?\r\n\r\n");
        ::setenv("all_proxy", ("http://127.0.0.1:" + std::to_string(proxy.port())).c_str(), 1);
        EXPECT_THAT(failure(url, how), HasSubstr("(407)"));
        ::unsetenv("all_proxy");
    }
}
