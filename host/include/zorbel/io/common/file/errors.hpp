#pragma once

#include <foundation/core/except/Message.hpp>
#include <zorbelhost_export.hpp>

#include <string>
#include <utility>

// The namespace is written in capitals, the folder is not: the two would be one folder where file names do not
// tell case apart.
namespace ZORBEL::io::common::file {

using foundation::core::except::Message;

inline constexpr const char* component = "ZORBEL:io:common:file";

/// The local file may not be opened, read or written by this user. Argument: the local path.
struct ZORBELHOST_EXPORT PermissionDenied {
    explicit PermissionDenied(::fl::ustring path) : message{component, "PermissionDenied", {std::move(path)}} {}
    Message message;
};

/// There is no such local file or folder. Argument: the local path.
struct ZORBELHOST_EXPORT NoSuchFile {
    explicit NoSuchFile(::fl::ustring path) : message{component, "NoSuchFile", {std::move(path)}} {}
    Message message;
};

/// The local disk, or the user's share of it, is full. Argument: the local path.
struct ZORBELHOST_EXPORT DiskFull {
    explicit DiskFull(::fl::ustring path) : message{component, "DiskFull", {std::move(path)}} {}
    Message message;
};

/// Any other failure of the local file. Arguments: the local path, the system's reason.
struct ZORBELHOST_EXPORT FileError {
    FileError(::fl::ustring path, std::string reason)
        : message{component, "FileError", {std::move(path), std::move(reason)}}
    {
    }
    Message message;
};

} // namespace ZORBEL::io::common::file
