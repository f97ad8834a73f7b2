#pragma once

#include <foundation/httpclient_core/libcurlinitializer/LibCurlInitializer.hpp>
#include <qrftpcore_export.hpp>

#include <curl/curl.h>

#include <memory>
#include <string>

namespace zorbel::io::ftp::core {

/// A connection: one libcurl easy handle, owned exclusively, and a shared hold on libcurl's initialisation.
///
/// The connection's current folder is the URL last set on the handle. Options that are set on the handle stay
/// until they are set again. Used by one thread at a time. A moved-from connection has no handle: it converts
/// to false, and every use of it but destruction and assignment throws `InvalidCurlHandle`; it keeps its hold
/// on libcurl's initialisation until it is destroyed. One that is moved into itself is closed.
class QRFTPCORE_EXPORT curl_ptr {
public:
    /// The same as `curl_ptr(true)`.
    curl_ptr();

    /// Makes a handle whose protocol trace goes to the library's logger. Sends nothing.
    ///
    /// With `initialize_library` the process-wide initialiser of libcurl is looked up in the host's service
    /// registry first and held; without, the registry is not touched and libcurl must be initialised already.
    ///
    /// Throws `LibraryInitializationFailure` (no initialiser is offered), `CurlHandleInitializationFailure`
    /// (libcurl gave no handle), and what the service registry throws when its context is invalid.
    explicit curl_ptr(bool initialize_library);

    curl_ptr(curl_ptr&& other) noexcept;
    curl_ptr& operator=(curl_ptr&& other) noexcept;
    ~curl_ptr();

    explicit operator bool() const noexcept { return handle_ != nullptr; }

    /// The raw handle, null when moved from. What is set on it directly is the caller's to restore.
    CURL* get() const noexcept { return handle_.get(); }

    /// Throws `InvalidCurlHandle` if there is no handle.
    void throw_if_null() const;

    /// Runs the request that the handle is set up for and returns libcurl's result code unchanged: a failed
    /// transfer is not an error here. Throws `InvalidCurlHandle`.
    CURLcode perform();

private:
    struct cleanup {
        void operator()(CURL* handle) const noexcept { curl_easy_cleanup(handle); }
    };

    std::shared_ptr<foundation::httpclient_core::libcurlinitializer::LibCurlInitializer> initializer_;
    std::unique_ptr<CURL, cleanup> handle_;
};

/// The URL that the connection last used or was last given: its current folder. Sends nothing. Empty when none
/// was set yet. Throws `InvalidCurlHandle`.
QRFTPCORE_EXPORT std::string current_remote_url(curl_ptr& connection);

/// The reply code of the last request that the server answered, 0 when there is none. Sends nothing. Throws
/// `InvalidCurlHandle`.
QRFTPCORE_EXPORT long last_response_code(curl_ptr& connection);

} // namespace zorbel::io::ftp::core
