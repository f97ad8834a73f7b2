#include <zcos/registry.hpp>
#include <zorbel/io/ftp/core/module.hpp>

#include <cstdlib>
#include <memory>
#include <mutex>
#include <new>

namespace zorbel::io::ftp::core {

connection_class_info::connection_class_info() = default;
connection_class_info::~connection_class_info() = default;

// NOLINTNEXTLINE(cert-dcl54-cpp,misc-new-delete-overloads): made by placement new
void connection_class_info::operator delete(void* memory) noexcept
{
    utFree(memory);
}

const char* connection_class_info::getName() const
{
    return "Connection";
}

void connection_class_info::initializeClass(zcos::COSClass* /*the_class*/, zcos::COSClient* /*client*/)
{
}

void* connection_class_info::allocateInstance(zcos::COSObject* /*object*/)
{
    return std::make_unique<curl_ptr>().release();
}

void connection_class_info::deallocateInstance(zcos::COSObject* /*object*/, void* data)
{
    const std::unique_ptr<curl_ptr> owned(static_cast<curl_ptr*>(data));
}

bool connection_class_info::isOkToDestroy(zcos::COSClient* /*client*/, zcos::COSObject* /*object*/)
{
    return true;
}

bool connection_class_info::isHandleClass() const
{
    return true;
}

namespace {

void register_connection_class()
{
    auto* const internal = omGetInnerNamespace(omGetInnerNamespace(omGetNamespace("zorbel"), "io"), "internal");
    void* const memory = std::calloc(1, sizeof(connection_class_info));
    if (memory == nullptr) {
        throw zcos::OutOfMemoryException();
    }
    internal->registerClass(::new (memory) connection_class_info, 0, 2);
}

} // namespace

} // namespace zorbel::io::ftp::core

void ZBInitialize_FTPCoreModule()
{
    using zorbel::io::ftp::core::register_connection_class;
    static std::once_flag registered;
    if (omGetZcosUsingUSM()) {
        register_connection_class();
    } else {
        std::call_once(registered, register_connection_class);
    }
}

void ZBTerminate_FTPCoreModule()
{
}
