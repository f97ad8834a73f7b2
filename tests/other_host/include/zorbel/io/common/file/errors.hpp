#pragma once

#include <foundation/core/except/Exception.hpp>

namespace ZORBEL::io::common::file {

struct OTHER_HOST PermissionDenied {
    explicit PermissionDenied(fl::ustring path)
        : message{"ZORBEL:io:common:file", "PermissionDenied", {std::move(path)}}
    {
    }
    foundation::core::except::Message message;
};

} // namespace ZORBEL::io::common::file
