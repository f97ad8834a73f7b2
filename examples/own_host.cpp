// own_host HOST PORT USER REMOTE-FILE CA-FILE: a program that gives the core services, files, log and warnings
// of its own, fetches a file into memory and prints it. The password is in QRFTP_PASSWORD.
#include <fl/i18n/ustring_to_utf8.hpp>
#include <foundation/httpproxy/ProxySelector.hpp>
#include <foundation/log/sink.hpp>
#include <foundation/services/bundle_context.hpp>
#include <zorbel/io/common/file/MemoryFileSystem.hpp>
#include <zorbel/io/ftp/core.hpp>
#include <zx/warning.hpp>

#include <cppmicroservices/Framework.h>
#include <cppmicroservices/FrameworkFactory.h>
#include <cstdlib>
#include <iostream>

namespace core = zorbel::io::ftp::core;
using foundation::httpclient_core::libcurlinitializer::LibCurlInitializer;
using namespace foundation::httpproxy;

struct libcurl final : LibCurlInitializer { // a program that uses libcurl elsewhere has its own
    libcurl() { curl_global_init(CURL_GLOBAL_DEFAULT); }
    ~libcurl() override { curl_global_cleanup(); }
};

struct no_proxy final : ProxySelector {
    ProxyList select(const std::string& url) override
    {
        std::cerr << "no proxy for " << url << '\n';
        return {};
    }
};

int main(int argc, char** argv)
try {
    if (argc < 6) {
        std::cerr << "own_host HOST PORT USER REMOTE-FILE CA-FILE\n";
        return 2;
    }
    auto framework = cppmicroservices::FrameworkFactory().NewFramework();
    framework.Start();
    framework.GetBundleContext().RegisterService<LibCurlInitializer>(std::make_shared<libcurl>());
    framework.GetBundleContext().RegisterService<ProxySelector>(std::make_shared<no_proxy>());
    foundation::services::exchange_bundle_context(framework.GetBundleContext());

    const auto files = std::make_shared<zorbel::io::common::file::MemoryFileSystem>();
    zorbel::io::common::file::exchange_file_system(files);
    foundation::log::set_entry_handler([](const auto& record) { std::cerr << record.text << '\n'; });
    zxSetWarningHandler([](const auto& warning) { std::cerr << warning.key << '\n'; });
    core::getLogger().enable_levels(core::level::message);

    core::curl_ptr connection;
    const char* const password = std::getenv("QRFTP_PASSWORD");
    core::connect(connection, std::string("ftp://") + argv[1], argv[3], password ? password : "",
                  std::stol(argv[2]), "passive", "strict", true, argv[5], true, true, 1, 60);
    core::receive_file(connection, fl::i18n::utf8_to_ustring(argv[4]), u"in memory", false);
    std::cout << files->get("in memory");
} catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
}
