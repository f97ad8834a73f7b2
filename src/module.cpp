#include "trace.hpp"

#include <zcos/registry.hpp>
#include <zorbel/io/ftp/core/errors.hpp>
#include <zorbel/io/ftp/core/module.hpp>
#include <zx/array.hpp>

#include <cstdlib>
#include <memory>
#include <mutex>

namespace zorbel::io::ftp::core {

connection_class_info::connection_class_info() = default;
connection_class_info::~connection_class_info() = default;

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

void require(bool holds)
{
    if (!holds) {
        foundation::core::except::raise<ZORBEL::io::ftp::curl::CurlHandleUnwrapFailed>();
    }
}

void register_connection_class()
{
    auto* const internal = omGetInnerNamespace(omGetInnerNamespace(omGetNamespace("zorbel"), "io"), "internal");
    void* const memory = std::calloc(1, sizeof(connection_class_info)); // the host frees it with utFree
    if (memory == nullptr) {
        throw zcos::OutOfMemoryException();
    }
    internal->registerClass(new (memory) connection_class_info, 0, 2);
}

} // namespace

curl_ptr& get_curl_ptr(const zxArray* array)
{
    const scope_trace trace;
    require(array != nullptr);
    array->completeDimensions();
    require(array->getNumberOfElements() != 0);
    const zcos::COSObject* const object = omGetArrayElement(array, 0);
    require(object != nullptr);
    const auto connection_class = omFindClass(makeInterned("zorbel.io.internal.Connection"));
    require(connection_class != nullptr);
    require(omIsSameClass(object->getClass(), connection_class.get()));
    void* const data = object->getInstanceData(connection_class.get());
    require(data != nullptr);
    return *static_cast<curl_ptr*>(data);
}

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
