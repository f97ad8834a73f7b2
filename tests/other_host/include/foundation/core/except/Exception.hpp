#pragma once

#include <fl/ustring.hpp>
#include <other_host.hpp>

#include <boost/exception/exception.hpp>

#include <cstdint>
#include <exception>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace foundation::core::except {

struct Message {
    std::string component;
    std::string key;
    std::vector<std::variant<std::int64_t, std::string, fl::ustring>> arguments;
};

class OTHER_HOST IMsgIDException {
public:
    virtual ~IMsgIDException() = default;
    virtual const Message& message() const noexcept = 0;
};

/// Holds its error instead of being one: a handler of the bare error does not catch it. The bases stand in
/// another order than the stand-alone host's.
template <class Error, class Base = std::exception>
class OTHER_HOST Exception : public IMsgIDException, public virtual boost::exception, public Base {
public:
    explicit Exception(Error error) : error_(std::move(error)) {}

    const Message& message() const noexcept override { return error_.message; }
    const char* what() const noexcept override { return error_.message.key.c_str(); }

private:
    Error error_;
};

template <class Error, class... Arguments>
[[noreturn]] void raise(Arguments&&... arguments)
{
    throw Exception<Error>(Error(std::forward<Arguments>(arguments)...));
}

} // namespace foundation::core::except
