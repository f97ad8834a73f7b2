#pragma once

#include <foundation/core/except/Catalogue.hpp>
#include <foundation/core/except/IMsgIDException.hpp>

#include <boost/exception/exception.hpp>

#include <exception>
#include <string>
#include <utility>

namespace foundation::core::except {

/// The exception that carries the error `Error`, a small type that holds a `Message` named `message`.
///
/// It can be caught as `Error`, as `IMsgIDException`, as `Base` (`std::exception`) and as
/// `boost::exception`, and be cloned and rethrown by Boost.Exception on another thread or across a library
/// boundary. `what()` is the sentence that the message catalogue made of the message when the exception was
/// made, so that a program that prints it prints something a person can act on.
template <class Error, class Base = std::exception>
class ZORBELHOST_EXPORT Exception : public Base,
                                    public Error,
                                    public IMsgIDException,
                                    public boost::exception,
                                    public virtual boost::exception_detail::clone_base {
public:
    explicit Exception(Error error)
        : Error(std::move(error)), identifier_(this->message.identifier()),
          text_(Catalogue::instance().render(this->message))
    {
    }

    /// With Boost's error information of its own: it is counted without regard to threads.
    Exception(const Exception& other)
        : Base(other), Error(other), IMsgIDException(other), boost::exception(), identifier_(other.identifier_),
          text_(other.text_)
    {
        boost::exception_detail::copy_boost_exception(this, &other);
    }
    Exception& operator=(const Exception&) = delete;

    const char* what() const noexcept override { return text_.c_str(); }
    const std::string& identifier() const noexcept override { return identifier_; }
    const std::vector<MessageArgument>& arguments() const noexcept override { return this->message.arguments; }

    const boost::exception_detail::clone_base* clone() const override { return new Exception(*this); }
    void rethrow() const override { throw *this; }

private:
    std::string identifier_;
    std::string text_;
};

/// Throws the error `Error` made from `arguments`.
template <class Error, class... Arguments>
[[noreturn]] void raise(Arguments&&... arguments)
{
    throw Exception<Error>(Error(std::forward<Arguments>(arguments)...));
}

} // namespace foundation::core::except
