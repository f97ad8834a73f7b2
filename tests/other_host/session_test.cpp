// The unchanged core with a host that is not the stand-alone one: a session against the scripted server,
// through the module's own objects.

#include "scripted_peer.hpp"

#include <curl/curl.h>
#include <foundation/httpproxy/ProxySelector.hpp>
#include <foundation/services/bundle_context.hpp>
#include <gmock/gmock.h>
#include <zorbel/io/common/file.hpp>
#include <zorbel/io/ftp/core.hpp>
#include <zx/array.hpp>
#include <zx/warning.hpp>

namespace core = zorbel::io::ftp::core;
using foundation::core::except::Exception;
using foundation::core::except::Message;
using foundation::httpclient_core::libcurlinitializer::LibCurlInitializer;
using foundation::services::service;
using support::answer;
using support::scripted_peer;
using zorbel::io::common::file::files;

namespace {

/// What the host makes of the library's module: one object of its class, with the connection in it.
class OtherHost : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        curl_global_init(CURL_GLOBAL_DEFAULT);
        service(typeid(LibCurlInitializer)) = std::make_shared<LibCurlInitializer>();
        ZBInitialize_FTPCoreModule();
    }

    std::string log_in(bool use_proxy = false)
    {
        return core::connect(connection(), std::string(scripted_peer::host_url) + "/missing", "u", "p",
                             peer_.port(), "passive", "none", use_proxy, "", true, true, 1, 60);
    }

    core::curl_ptr& connection() { return core::get_curl_ptr(&array_); }

    scripted_peer peer_;
    zcos::COSObject object_{*omFindClass("zorbel.io.internal.Connection")};
    zxArray array_{&object_};
};

/// The message of the error that `call` throws as `Exception<Error>`.
template <class Error>
Message message_of(const std::function<void()>& call)
{
    try {
        call();
    } catch (const Exception<Error>& error) {
        return error.message();
    }
    ADD_FAILURE() << "nothing was thrown";
    return {};
}

} // namespace

TEST_F(OtherHost, ServesASession)
{
    using namespace ZORBEL::io;
    peer_.file("f", "remote");
    peer_.on("CWD denied", answer::reply("550 no"));
    core::getLogger().enabled = core::level::entry | core::level::message;
    EXPECT_EQ(log_in(), "/home/u/missing");
    core::receive_file(connection(), u"f", u"copy", false);
    EXPECT_EQ(*files()[u"copy"], "remote");
    core::send_file(connection(), u"copy", u"\u00e4", false);
    EXPECT_EQ(peer_.uploads()["\u00e4"], "remote");
    core::create_folder(connection(), "d");
    core::rename_remote_file(connection(), u"a", u"b");
    EXPECT_FALSE(core::is_folder(connection(), "denied"));
    EXPECT_THAT(peer_.commands(),
                testing::IsSupersetOf({"RETR f", "STOR \u00e4", "MKD d", "RNFR a", "RNTO b"}));

    const auto denied = message_of<common::file::PermissionDenied>(
        [&] { core::send_file(connection(), u"secret", u"x", false); });
    EXPECT_EQ(std::get<fl::ustring>(denied.arguments.at(0)), u"secret")
        << "what was asked for, in the core's own error";
    message_of<ftp::ftp::NotFound>([&] { core::send_file(connection(), u"none", u"x", false); });
    peer_.on("RETR", answer::reply("550 no"));
    message_of<ftp::ftp::FileUnavailable>([&] { core::receive_file(connection(), u"g", u"copy", false); });
    const zxArray nothing(nullptr);
    message_of<ftp::curl::CurlHandleUnwrapFailed>([&] { core::get_curl_ptr(&nothing); });

    core::getLogger().enabled = 0;
    const auto& records = core::getLogger().records;
    EXPECT_THAT(records,
                testing::Contains(testing::HasSubstr("src/file.cpp void zorbel::io::ftp::core::send_file(")));
    EXPECT_THAT(records, testing::Contains(testing::EndsWith("PWD parsed as: /home/u/missing")));
}

TEST_F(OtherHost, MayRefuseProxiesAndIsWarned)
{
    service(typeid(foundation::httpproxy::ProxySelector)) =
        std::make_shared<foundation::httpproxy::ProxySelector>();
    EXPECT_THROW(log_in(true), std::runtime_error);
    EXPECT_EQ(peer_.commands().size(), 0U);
    peer_.on("CWD missing", answer::reply("550 no"));
    message_of<ZORBEL::io::ftp::ftp::NoSuchDirectory>([&] { log_in(); });
    EXPECT_THAT(warnings(), testing::ElementsAre("ZORBEL:io:ftp:ftp:CouldNotLoginToRemoteFolder"));
}
