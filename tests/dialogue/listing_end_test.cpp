// Listings and files that begin and do not end as they should: nothing is concluded from them.

#include "client_stage.hpp"
#include "tls_peer.hpp"

#include <gmock/gmock.h>

using namespace support;
using namespace testing;

namespace {

/// A listing of one file, and how it ends.
answer listing(const std::string& end)
{
    return answer::transfer(whole, end + "\r\n");
}

/// Lists, fetches and mirrors the login folder; the local files are to stay.
void expect_failures(const std::vector<rule>& rules, const std::string& error)
{
    client_stage t(rules);
    t.peer.body("MLSD /home/u", "type=file;size=6; f\r\n");
    auto& client = t.open();
    EXPECT_EQ(error_of_client([&] { (void)client.list(); }), error);
    EXPECT_EQ(error_of_client([&] { client.list(".", [](auto&&) {}); }), error);
    const qrftp::sync_options mirror{{.jobs = 1}, true};
    EXPECT_EQ(error_of_client([&] { synchronise(client, t.local, ".", qrftp::direction::fetch, mirror); }),
              error);
    EXPECT_TRUE(files_in(t.local).contains("long"));
}

qrftp::session_options options_for(const tls_peer& server)
{
    qrftp::session_options options;
    options.user = "u";
    options.password = "p";
    options.certificate_authorities = server.authorities();
    return options;
}

} // namespace

TEST(ListingEnd, IsTheServersOwnWordThatAllOfItCame)
{
    for (const auto& [end, error] :
         {std::pair(answer::reply("450 no such folder"), "Refused"),
          {listing("226 Transfer done (but failed to open directory)."), "IncompleteListing"},
          {listing("226 Output truncated to 2 matches"), "IncompleteListing"},
          {listing("426 cut"), "IncompleteListing"},
          {listing("451 cut"), "IncompleteListing"}}) {
        SCOPED_TRACE(*end.bytes);
        expect_failures({{"MLSD", end}}, error);
        expect_failures({{"FEAT", answer::reply("211 none")}, {"LIST", end}, {"LIST -a", end}}, error);
    }
}

TEST(ListingEnd, OfAnEncryptedConnectionIsCloseNotify)
{
    for (const bool cut : {false, true})
        for (const std::string size : {"213 7\r\n", "550 no\r\n"}) {
            SCOPED_TRACE(size + (cut ? "cut" : ""));
            const tls_peer server({.cuts_data = cut, .size = size, .listing = "type=file;size=1; a\r\n"});
            qrftp::session client("ftp://127.0.0.1:" + server.port(), options_for(server));
            EXPECT_EQ(error_of_client([&] { (void)client.list(); }), cut ? "IncompleteListing" : "");
            // A file is whole when it is as long as the server said, or else when close_notify came.
            const bool whole_file = !cut || size.starts_with("213");
            std::string got;
            EXPECT_EQ(error_of_client([&] { got = client.fetch_string("f"); }),
                      whole_file ? "" : "SizeMismatch");
            EXPECT_EQ(got, whole_file ? "content" : "");
        }
}
