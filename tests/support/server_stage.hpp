#pragma once

#include "client_error.hpp"
#include "servers.hpp"

#include <gtest/gtest.h>
#include <qrftp/client.hpp>

#include <memory>
#include <string>

namespace support {

/// One of the ways to reach a real server.
struct server_protocol {
    std::string name;
    qrftp::url_scheme scheme;
    std::string port; ///< its name in what servers.sh tells
    std::string user;
    qrftp::tls_mode tls;
    friend void PrintTo(const server_protocol& of, std::ostream* out) { *out << of.name; }
};
extern const server_protocol server_protocols[4];

/// A session with each of them in turn. Each test has an empty remote folder, in which its sessions stand, and
/// an empty local one; at the end neither may hold a temporary name.
class ServerTest : public testing::TestWithParam<server_protocol> {
protected:
    static void SetUpTestSuite();
    static void TearDownTestSuite();
    void SetUp() override;
    void TearDown() override;

    [[nodiscard]] bool sftp() const { return GetParam().scheme == qrftp::url_scheme::sftp; }
    [[nodiscard]] long port() const { return servers_->port(GetParam().port); }
    [[nodiscard]] std::string url(long port) const;
    [[nodiscard]] qrftp::session_options options() const;
    [[nodiscard]] qrftp::session open() const;

    /// The error that `call` throws and what it is about: "NotFound d/f". Remote names are as seen from the
    /// remote folder, local ones follow an "@".
    [[nodiscard]] std::string refusal_of(const std::function<void()>& call) const;

    static inline std::unique_ptr<servers> servers_;
    std::filesystem::path home_, there_, here_;

private:
    mode_t mask_ = 0;
};

#define INSTANTIATE_SERVER_TEST(suite)                                                                         \
    INSTANTIATE_TEST_SUITE_P(Servers, suite, testing::ValuesIn(support::server_protocols),                     \
                             [](const auto& of) { return of.param.name; })
#define EXPECT_REFUSED(error_and_subject, ...)                                                                 \
    EXPECT_EQ(refusal_of([&] { (void)(__VA_ARGS__); }), error_and_subject) << #__VA_ARGS__

} // namespace support
