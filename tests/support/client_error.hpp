#pragma once

#include <gmock/gmock.h>
#include <qrftp/error.hpp>

#include <string>

namespace support {

/// The name of the class of the client's error that `call` throws, "NotFound"; empty when it throws nothing.
std::string error_of_client(const auto& call)
{
    try {
        call();
        return "";
    } catch (const qrftp::error& thrown) {
        EXPECT_THAT(thrown.what(), testing::HasSubstr(" ")) << "no sentence";
        EXPECT_EQ(thrown.name(), qrftp::name_of(thrown.cause()));
        return std::string(thrown.name());
    }
}

} // namespace support
