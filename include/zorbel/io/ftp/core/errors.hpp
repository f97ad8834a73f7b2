#pragma once

/// The errors that the library throws, each as `foundation::core::except::Exception<Error>`: catch them by the
/// names below, by `foundation::core::except::IMsgIDException`, `std::exception` or `boost::exception`. A
/// message's component is that of its namespace, its key the type's own name.
///
/// `ZORBEL::io::common::file::PermissionDenied` belongs to them too; the host's local file layer declares it.

#include <foundation/core/except/Exception.hpp>
#include <qrftpcore_export.hpp>
#include <zorbel/io/common/file/errors.hpp>

#include <string>
#include <utility>

/// Errors of the protocol and of the connection.
namespace ZORBEL::io::ftp::ftp {

using foundation::core::except::Message;

inline constexpr const char* component = "ZORBEL:io:ftp:ftp";

/// Something that should not happen. Arguments: the operation or setting that failed; the detail.
struct QRFTPCORE_EXPORT InternalError {
    InternalError(std::string operation, std::string detail)
        : message{component, "InternalError", {std::move(operation), std::move(detail)}}
    {
    }
    Message message;
};

/// The server refused the login. Argument: the URL or host name that refused it.
struct QRFTPCORE_EXPORT BadLogin {
    explicit BadLogin(std::string where) : message{component, "BadLogin", {std::move(where)}} {}
    Message message;
};

/// No connection came about. Arguments: the URL; the port in decimal.
struct QRFTPCORE_EXPORT NoConnection {
    NoConnection(std::string url, std::string port)
        : message{component, "NoConnection", {std::move(url), std::move(port)}}
    {
    }
    Message message;
};

/// The host of the starting folder could not be found. Arguments: the host name; the port in decimal.
struct QRFTPCORE_EXPORT NoConnectionToStartingFolder {
    NoConnectionToStartingFolder(std::string host, std::string port)
        : message{component, "NoConnectionToStartingFolder", {std::move(host), std::move(port)}}
    {
    }
    Message message;
};

/// The folder could not be entered, for whatever reason. Argument: the folder.
struct QRFTPCORE_EXPORT NoSuchDirectory {
    explicit NoSuchDirectory(std::string folder) : message{component, "NoSuchDirectory", {std::move(folder)}} {}
    Message message;
};

/// The server refused a request. Argument: the reply code, 0 when there was no reply; where an operation says
/// so, libcurl's result code.
struct QRFTPCORE_EXPORT FTPError {
    explicit FTPError(long code) : message{component, "FTPError", {std::int64_t{code}}} {}
    Message message;
};

/// The local file of an upload is missing or cannot be used. Argument: the local path.
struct QRFTPCORE_EXPORT NotFound {
    explicit NotFound(fl::ustring path) : message{component, "NotFound", {std::move(path)}} {}
    Message message;
};

/// The server has no such file, or does not give it. Argument: the remote name.
struct QRFTPCORE_EXPORT FileUnavailable {
    explicit FileUnavailable(fl::ustring name) : message{component, "FileUnavailable", {std::move(name)}} {}
    Message message;
};

/// The remote file was not deleted. Argument: the remote name in UTF-8.
struct QRFTPCORE_EXPORT DeleteFailed {
    explicit DeleteFailed(std::string name) : message{component, "DeleteFailed", {std::move(name)}} {}
    Message message;
};

/// The upload did not complete. Argument: the local path.
struct QRFTPCORE_EXPORT UploadFailed {
    explicit UploadFailed(fl::ustring path) : message{component, "UploadFailed", {std::move(path)}} {}
    Message message;
};

/// The remote folder was not made. Argument: its name.
struct QRFTPCORE_EXPORT CouldNotCreateFolder {
    explicit CouldNotCreateFolder(std::string name)
        : message{component, "CouldNotCreateFolder", {std::move(name)}}
    {
    }
    Message message;
};

/// The remote folder was not removed: the server answered 550, which is read as "still holds entries".
/// Argument: its name.
struct QRFTPCORE_EXPORT FolderNotEmpty {
    explicit FolderNotEmpty(std::string name) : message{component, "FolderNotEmpty", {std::move(name)}} {}
    Message message;
};

/// The remote folder was not removed over SFTP. Argument: its name.
struct QRFTPCORE_EXPORT RemoveFolderFailed {
    explicit RemoveFolderFailed(std::string name) : message{component, "RemoveFolderFailed", {std::move(name)}}
    {
    }
    Message message;
};

} // namespace ZORBEL::io::ftp::ftp

/// Errors of the connection's handle. None has arguments.
namespace ZORBEL::io::ftp::curl {

using foundation::core::except::Message;

inline constexpr const char* component = "ZORBEL:io:ftp:curl";

/// The connection has no handle: it was moved from.
struct QRFTPCORE_EXPORT InvalidCurlHandle {
    Message message{component, "InvalidCurlHandle", {}};
};

/// A host value does not hold a connection.
struct QRFTPCORE_EXPORT CurlHandleUnwrapFailed {
    Message message{component, "CurlHandleUnwrapFailed", {}};
};

/// libcurl is not initialised for the process, and nobody offers to do it.
struct QRFTPCORE_EXPORT LibraryInitializationFailure {
    Message message{component, "LibraryInitializationFailure", {}};
};

/// libcurl gave no handle.
struct QRFTPCORE_EXPORT CurlHandleInitializationFailure {
    Message message{component, "CurlHandleInitializationFailure", {}};
};

} // namespace ZORBEL::io::ftp::curl
