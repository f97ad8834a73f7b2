#include "ledger.hpp"
#include "scripted_peer.hpp"
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/FrameworkFactory.h>
#include <dlfcn.h>
#include <foundation/services/bundle_context.hpp>
#include <gmock/gmock.h>
#include <zorbel/io/ftp/core.hpp>
#include <zx/array.hpp>

namespace core = zorbel::io::ftp::core;
using namespace ZORBEL::io::ftp::curl;
using core::curl_ptr, foundation::core::except::Exception, support::ledger;

void* const module = dlopen(QRFTP_MODULE, RTLD_NOW | RTLD_LOCAL);
#define EXPORTED(name, ...) reinterpret_cast<std::add_pointer_t<__VA_ARGS__>>(dlsym(module, name))
const auto initialize = EXPORTED("ZBInitialize_FTPCoreModule", void());
const auto unwrap = EXPORTED("_ZN6zorbel2io3ftp4core12get_curl_ptrEPK7zxArray", decltype(core::get_curl_ptr));
const auto assign = EXPORTED("_ZN6zorbel2io3ftp4core8curl_ptraSEOS3_", auto(curl_ptr&, curl_ptr&)->curl_ptr&);
const auto pwd = EXPORTED("_ZN6zorbel2io3ftp4core3pwdB5cxx11ERNS2_8curl_ptrE", decltype(core::pwd));
const auto find_class = [] { return omFindClass(makeInterned("zorbel.io.internal.Connection")); };
const auto make = [] { return initialize(), omCreateObject(find_class()); };
const bool once = [] { // without the service registry; with it the tests then register again and again
    const bool found = (initialize(), !!find_class()), again = (omReset(), initialize(), !!find_class());
    omSetZcosUsingUSM(true);
    return found && !again && dlclose(module) == 0; // the code stays, as the class does
}();

TEST(Module, RegistersItsClassOnceOrAtEveryCallWithTheServiceRegistry)
{
    const auto object = make();
    EXPECT_TRUE(once && object->getClass() == make()->getClass());
    object->getClass()->getInfo().deallocateInstance(nullptr, nullptr);
}

TEST(Module, GivesAnObjectOneConnectionThatGoesWithItsLastValue)
{
    support::scripted_peer peer;
    auto object = make();
    zxArray row({1, 2}, {object, nullptr}), grown, other(make());
    grown.append(std::move(object));
    auto& connection = unwrap(&grown);
    curl_easy_setopt(connection.get(), CURLOPT_URL, peer.url().c_str());
    EXPECT_EQ(pwd(unwrap(&row)), "/home/u");
    ledger::start();
    CURL* const handles[] = {unwrap(&other).get(), connection.get()};
    assign(unwrap(&other), connection);
    row = zxArray();
    EXPECT_THROW(pwd(unwrap(&grown)), Exception<InvalidCurlHandle>);
    grown = other = zxArray();
    EXPECT_THAT(ledger::lines(), testing::ElementsAre("cleanup", "cleanup"));
    EXPECT_TRUE(ledger::events()[0].handle == handles[0] && ledger::events()[1].handle == handles[1]);
}

// In the place of the host's, for the whole test program.
static int freed = 0;
[[gnu::visibility("default"), gnu::used]] void utFree(void* memory) noexcept
{
    ++freed;
    std::free(memory);
}

TEST(Module, ReleasesItsDescriptorAsTheHostDoes)
{
    initialize();
    freed = 0;
    omReset();
    EXPECT_EQ(freed, 1);
}

TEST(Module, RefusesToUnwrapAnythingElse)
{
    struct hollow final : zcos::COSClassInfo {
        const char* getName() const override { return "Connection"; }
        void* allocateInstance(zcos::COSObject*) override { return nullptr; }
        void deallocateInstance(zcos::COSObject*, void*) override {}
    };
    const zxArray empty, flat({SIZE_MAX, 2, 0}, {}), nothing(nullptr), orphan(make());
    const auto refuse = [](const zxArray* a) { EXPECT_THROW(unwrap(a), Exception<CurlHandleUnwrapFailed>); };
    refuse(nullptr), refuse(&empty), refuse(&flat), refuse(&nothing);
    omReset();
    refuse(&orphan); // the class is unknown
    omGetNamespace("zorbel.io.internal")->registerClass(new hollow, 0, 2);
    const zxArray bare(make());
    refuse(&bare), refuse(&orphan); // without data; of another class
    omReset();
}

TEST(Module, KeepsNothingOfAnObjectThatGotNoConnection)
{
    auto framework = cppmicroservices::FrameworkFactory().NewFramework();
    framework.Start();
    const auto real = foundation::services::exchange_bundle_context(framework.GetBundleContext());
    EXPECT_THROW(make(), Exception<LibraryInitializationFailure>);
    EXPECT_EQ(find_class().use_count(), 2); // the registry's and this one
    foundation::services::exchange_bundle_context(real);
}
