#pragma once

#include "callback.hpp"

#include <qrftp/error.hpp>

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include <chrono>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace qrftp::python {

/// The keyword arguments of a call in Python. None stands for what was not given.
class keywords {
public:
    keywords(const py::dict& given, std::shared_ptr<callback_failure> failure)
        : given_(given), failure_(std::move(failure))
    {
    }

    /// Sets `target` where the keyword was given.
    template <class T>
    void take(const char* name, T& target) const
    {
        if (const py::object value = find(name)) {
            try {
                target = value.cast<T>();
            } catch (const py::cast_error&) {
                throw py::type_error(std::string(name) + " has the wrong type");
            }
        }
    }

    /// The same for seconds.
    void take(const char* name, std::chrono::milliseconds& target) const
    {
        std::optional<double> seconds;
        take(name, seconds);
        if (seconds) {
            target = std::chrono::milliseconds(static_cast<long long>(*seconds * 1000));
        }
    }

    /// The same for one of several words.
    template <class T>
    void take(const char* name, T& target, std::initializer_list<std::pair<std::string_view, T>> words) const
    {
        std::optional<std::string> wanted;
        take(name, wanted);
        if (!wanted) {
            return;
        }
        for (const auto& [word, value] : words) {
            if (word == *wanted) {
                target = value;
                return;
            }
        }
        throw InvalidOption(name, "it cannot be \"" + *wanted + "\"");
    }

    /// The callable of that name, or nothing.
    [[nodiscard]] std::optional<callback> function(const char* name) const
    {
        const py::object value = find(name);
        return value ? std::optional(callback(value, failure_)) : std::nullopt;
    }

private:
    /// Null where the keyword was not given.
    [[nodiscard]] py::object find(const char* name) const
    {
        return given_.contains(name) && !given_[name].is_none() ? py::object(given_[name]) : py::object();
    }

    const py::dict& given_;
    std::shared_ptr<callback_failure> failure_;
};

} // namespace qrftp::python
