#pragma once

#include <foundation/core/except/Message.hpp>
#include <zorbelhost_export.hpp>

#include <string>

namespace foundation::core::except {

/// The part of an exception from which a program renders a message in its user's language.
class ZORBELHOST_EXPORT IMsgIDException {
public:
    virtual ~IMsgIDException();

    /// Component, colon, key: composed once, when the exception was made.
    virtual const std::string& identifier() const noexcept = 0;

    virtual const std::vector<MessageArgument>& arguments() const noexcept = 0;

protected:
    IMsgIDException() = default;
    IMsgIDException(const IMsgIDException&) = default;
    IMsgIDException& operator=(const IMsgIDException&) = default;
};

} // namespace foundation::core::except
