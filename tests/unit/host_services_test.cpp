#include <cppmicroservices/Framework.h>
#include <cppmicroservices/FrameworkEvent.h>
#include <cppmicroservices/FrameworkFactory.h>
#include <cppmicroservices/LDAPFilter.h>
#include <foundation/httpclient_core/libcurlinitializer/LibCurlInitializer.hpp>
#include <foundation/httpproxy/ProxySelector.hpp>
#include <foundation/services/bundle_context.hpp>
#include <gtest/gtest.h>
#include <sstream>

// In the place of libcurl's own, for the whole test program.
extern "C" [[gnu::visibility("default"), gnu::used]] int curl_global_init(long)
{
    return std::getenv("REFUSE_LIBCURL") != nullptr;
}

using namespace foundation;
using httpclient_core::libcurlinitializer::LibCurlInitializer;

template <class Interface>
static auto find(cppmicroservices::BundleContext context)
{
    return context.GetServiceReferences<Interface>(cppmicroservices::LDAPFilter{}.ToString());
}

TEST(ServicesDeathTest, OfferAnInitialiserOnlyWhereLibcurlCanBeInitialised)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto leave = [] { std::exit(find<LibCurlInitializer>(services::bundle_context()).empty()); };
    EXPECT_EXIT(leave(), testing::ExitedWithCode(0), "");
    EXPECT_EXIT((::setenv("REFUSE_LIBCURL", "", 1), leave()), testing::ExitedWithCode(1), "");
}

TEST(Services, AreFoundInOrderUntilTakenBackOrStopped)
{
    auto framework = cppmicroservices::FrameworkFactory().NewFramework();
    framework.Start();
    auto context = framework.GetBundleContext();
    auto registration = context.RegisterService<int>(std::make_shared<int>(1));
    (void)context.RegisterService<int>(std::make_shared<int>(2));
    const auto found = find<int>(context);
    EXPECT_TRUE(*context.GetService(found.at(0)) == 1 && *context.GetService(found.at(1)) == 2);
    registration.Unregister();
    EXPECT_TRUE(find<int>(context).size() == 1 && find<long>(context).empty());
    EXPECT_THROW(registration.Unregister(), std::logic_error);
    EXPECT_THROW(context.GetService(found[0]), std::invalid_argument);
    framework.Stop();
    framework.WaitForStop(std::chrono::milliseconds::zero());
    EXPECT_THROW(find<int>(context), std::runtime_error);
    const auto host = services::exchange_bundle_context({});
    EXPECT_THROW(find<int>(services::exchange_bundle_context(host)), std::runtime_error);
}

TEST(EnvironmentProxy, FollowsTheEnvironment)
{
    auto context = services::bundle_context();
    const auto selector = context.GetService(find<httpproxy::ProxySelector>(context).at(0));
    std::istringstream rows(
        "https_proxy socks5h://u@[::1]:1080 - HTTPS://h socks5h://[::1]:1080u| http_proxy p:1 * http:// - "
        "http_proxy http://p:3128/ - http:// p:3128| http_proxy p a.org,b.org http://ab.org/x p:0| "
        "HTTP_PROXY p:1 - http:// - HTTPS_PROXY u%40:p%3Aw@p:1 a.org https:// p:1u@|p:w "
        "all_proxy socks5://p:1 - http:// socks5://p:1| ALL_PROXY p:1 - https:// p:1| "
        "http_proxy p:1 a.org,.B.org http://x.b.org:80/ - http_proxy p:1 ::1 http://[::1]/ - "
        "http_proxy p:99999 - http:// - http_proxy gopher://p - http:// - http_proxy u:%0d%0a@p - http:// -");
    for (std::string name, value, direct, url, expected; rows >> name >> value >> direct >> url >> expected;) {
        ::setenv(name.c_str(), value.c_str(), 1);
        ::setenv("no_proxy", direct.c_str(), 1);
        std::string got = "-";
        for (const auto& proxy : selector->select(url)) {
            const auto [u, p] = proxy.hasCredentials() ? proxy.getCredentials() : httpproxy::Credentials{};
            got = proxy.getHost() + ":" + std::to_string(proxy.getPort()) + u + "|" + p;
        }
        EXPECT_EQ(got, expected) << name << '=' << value << " no_proxy=" << direct << ' ' << url;
        ::unsetenv(name.c_str());
    }
}
