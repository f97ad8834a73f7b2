#include "server_stage.hpp"

#include <boost/algorithm/string/replace.hpp>
#include <sys/stat.h>

namespace support {

namespace fs = std::filesystem;
using qrftp::tls_mode;
using qrftp::url_scheme;

const server_protocol server_protocols[4] = {
    {"ftp", url_scheme::ftp, "FTP_PORT", "USER", tls_mode::none},
    {"ftps", url_scheme::ftp, "FTP_PORT", "USER", tls_mode::strict},
    {"sftp", url_scheme::sftp, "SFTP_PORT", "USER", tls_mode::strict},
    {"openssh", url_scheme::sftp, "SSHD_PORT", "SSHD_USER", tls_mode::strict},
};

void ServerTest::SetUpTestSuite()
{
    servers_ = std::make_unique<servers>("proftpd sshd");
}

void ServerTest::TearDownTestSuite()
{
    servers_.reset();
}

void ServerTest::SetUp()
{
    if (servers_->missing())
        GTEST_SKIP() << "a server is not installed";
    ASSERT_TRUE(servers_->serve());
    mask_ = umask(0); // the servers may be another user
    home_ = (*servers_)["HOME_DIR"];
    there_ = home_ / "w";
    here_ = home_.parent_path().parent_path() / "local";
    fs::create_directory(there_);
    fs::create_directory(here_);
}

void ServerTest::TearDown()
{
    if (there_.empty())
        return;
    for (const auto& root : {there_, here_}) {
        EXPECT_EQ(leftovers_in(root), files());
        fs::remove_all(root);
    }
    umask(mask_);
}

std::string ServerTest::url(long port) const
{
    return (sftp() ? "sftp://127.0.0.1:" : "ftp://127.0.0.1:") + std::to_string(port);
}

qrftp::session_options ServerTest::options() const
{
    qrftp::session_options all;
    all.user = (*servers_)[GetParam().user];
    all.tls = GetParam().tls;
    all.certificate_authorities = (*servers_)["CA_FILE"];
    all.known_hosts_file = (*servers_)["KNOWN_HOSTS"];
    all.host_keys = qrftp::host_key_check::strict;
    all.ssh_config.only = "";
    all.use_agent = false;
    all.stall_timeout = std::chrono::seconds(3);
    if (GetParam().name == "openssh")
        all.private_keys = {(*servers_)["KEY"]};
    else
        all.password = (*servers_)["PASSWORD"];
    return all;
}

qrftp::session ServerTest::open() const
{
    qrftp::session opened(url(port()), options());
    opened.change_folder("w");
    return opened;
}

std::string ServerTest::refusal_of(const std::function<void()>& call) const
{
    std::string subject;
    const auto name = error_of_client([&] {
        try {
            call();
        } catch (const qrftp::error& thrown) {
            subject = " " + thrown.path();
            throw;
        }
    });
    boost::replace_all(subject, here_.string() + "/", "@");
    boost::replace_all(subject, there_.string() + "/", "");
    boost::replace_all(subject, there_.string(), ".");
    boost::replace_all(subject, home_.string(), "~");
    return name + subject;
}

} // namespace support
