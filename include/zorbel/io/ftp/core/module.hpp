#pragma once

#include <qrftpcore_export.hpp>
#include <zcos/COSClassInfo.hpp>
#include <zorbel/io/ftp/core/connection.hpp>

class zxArray;

/// How a host program that loads the library as a module meets it: the host class
/// "zorbel.io.internal.Connection", each object of which owns one connection, and the way from a host value
/// back to that connection.
namespace zorbel::io::ftp::core {

/// Describes the class `Connection` to the host. It is a handle class: all values that refer to one object
/// share that object's one connection.
///
/// The host's namespace owns the descriptor. It is called from the thread that makes or destroys an object.
class QRFTPCORE_EXPORT connection_class_info final : public zcos::COSClassInfo {
public:
    connection_class_info();
    ~connection_class_info() override;

    /// The host's release function, `utFree`: the memory is `calloc`'s.
    // NOLINTNEXTLINE(cert-dcl54-cpp,misc-new-delete-overloads): the memory is the module's, from calloc
    static void operator delete(void* memory) noexcept;

    const char* getName() const override;

    /// Does nothing.
    void initializeClass(zcos::COSClass* the_class, zcos::COSClient* client) override;

    /// Makes the connection of a new object, the same as `curl_ptr()`, whose errors reach whoever wanted the
    /// object. Sends nothing.
    void* allocateInstance(zcos::COSObject* object) override;

    /// Closes and frees the connection `data`; null is ignored.
    void deallocateInstance(zcos::COSObject* object, void* data) override;

    /// Always true.
    bool isOkToDestroy(zcos::COSClient* client, zcos::COSObject* object) override;

    /// True.
    bool isHandleClass() const override;
};

/// The connection of the `Connection` object that the first element of `array` refers to; further elements are
/// not looked at. Owned by the object, which must outlive its use. A moved-from connection is given too. Sends
/// nothing; incomplete dimensions of the array are completed.
///
/// Throws `CurlHandleUnwrapFailed` when the array is null or empty, its first element refers to no object or to
/// one of another class, the class is not registered, or the object has no connection.
QRFTPCORE_EXPORT curl_ptr& get_curl_ptr(const zxArray* array);

} // namespace zorbel::io::ftp::core

extern "C" {

/// To be called when the host has loaded the module: registers the class `Connection` in the namespace
/// "zorbel.io.internal". Where the host's classes live in its service registry that happens at every call, else
/// at the first one of the process only. Safe to call from several threads.
///
/// Throws `zcos::OutOfMemoryException`, `std::system_error` when the process cannot keep to one registration,
/// and what the registration throws; a call that threw may be repeated.
QRFTPCORE_EXPORT void ZBInitialize_FTPCoreModule();

/// To be called before the host lets go of the module. Does nothing: the class lives as long as its namespace,
/// and the library stays loaded with it.
QRFTPCORE_EXPORT void ZBTerminate_FTPCoreModule();
}
