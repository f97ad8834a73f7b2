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

TEST(OtherHost, ServesASession)
{
    using namespace ZORBEL::io;
    curl_global_init(CURL_GLOBAL_DEFAULT);
    service(typeid(LibCurlInitializer)) = std::make_shared<LibCurlInitializer>();
    ZBInitialize_FTPCoreModule();
    scripted_peer peer;
    peer.file("f", "remote");
    // What the host makes of the library's module: one object of its class, with the connection in it.
    zcos::COSObject object(*omFindClass("zorbel.io.internal.Connection"));
    zcos::COSObject other_object(*object.getClass());
    const zxArray array(&object);
    const zxArray other_array(&other_object);
    auto& connection = core::get_curl_ptr(&array);
    const auto log_in = [&](core::curl_ptr& with, bool use_proxy) {
        return core::connect(with, std::string(scripted_peer::host_url) + "/missing", "u", "p", peer.port(),
                             "passive", "none", use_proxy, "", true, true, 1, 60);
    };
    core::getLogger().enabled = core::level::entry | core::level::message;
    EXPECT_EQ(log_in(connection, false), "/home/u/missing");
    core::receive_file(connection, u"f", u"copy", false);
    EXPECT_EQ(*files()[u"copy"], "remote");
    core::send_file(connection, u"copy", u"\u00e4", false);
    EXPECT_EQ(peer.uploads()["\u00e4"], "remote");
    core::getLogger().enabled = 0;
    const auto& records = core::getLogger().records;
    EXPECT_THAT(records,
                testing::Contains(testing::HasSubstr("src/file.cpp void zorbel::io::ftp::core::send_file(")));
    EXPECT_THAT(records, testing::Contains(testing::EndsWith("PWD parsed as: /home/u/missing")));

    // The core's own errors, in this host's form of exceptions.
    const auto send = [&](const char16_t* name) { core::send_file(connection, name, u"x", false); };
    const auto denied = message_of<common::file::PermissionDenied>([&] { send(u"secret"); });
    EXPECT_EQ(std::get<fl::ustring>(denied.arguments.at(0)), u"secret");
    message_of<ftp::ftp::NotFound>([&] { send(u"none"); });
    peer.on("RETR", answer::reply("550 no"));
    message_of<ftp::ftp::FileUnavailable>([&] { core::receive_file(connection, u"g", u"copy", false); });
    const zxArray nothing(nullptr);
    message_of<ftp::curl::CurlHandleUnwrapFailed>([&] { core::get_curl_ptr(&nothing); });

    // It may refuse proxies, and is warned.
    service(typeid(foundation::httpproxy::ProxySelector)) =
        std::make_shared<foundation::httpproxy::ProxySelector>();
    auto& fresh = core::get_curl_ptr(&other_array);
    EXPECT_THROW(log_in(fresh, true), std::runtime_error);
    peer.on("CWD missing", answer::reply("550 no"));
    message_of<ftp::ftp::NoSuchDirectory>([&] { log_in(fresh, false); });
    EXPECT_THAT(warnings(), testing::ElementsAre("ZORBEL:io:ftp:ftp:CouldNotLoginToRemoteFolder"));
}
