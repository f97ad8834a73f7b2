#include "bindings.hpp"
#include "error.hpp"
#include "text.hpp"

#include <qrftp/client.hpp>

#include <pybind11/pybind11.h>

namespace {

void set_trace(const std::string& level)
{
    using qrftp::trace_level;
    if (level != "off" && level != "dialogue" && level != "debug") {
        throw qrftp::InvalidOption("level", "it cannot be \"" + level + "\"");
    }
    qrftp::set_trace(level == "off"        ? trace_level::off
                     : level == "dialogue" ? trace_level::dialogue
                                           : trace_level::debug);
}

} // namespace

PYBIND11_MODULE(_native, module)
{
    using namespace qrftp::python;

    register_errors();
    module.def("versions", &qrftp::versions);
    module.def("set_trace", &set_trace);
    module.def("without_password", &qrftp::without_password);
    module.def("split_url", [](const std::string& text) {
        const qrftp::url parts = qrftp::url::parse(text);
        return py::make_tuple(parts.server(), to_text(parts.user), to_text(parts.password),
                              to_text(parts.path));
    });

    session_class session(module, "Session");
    bind_operations(session);
    bind_transfers(session);
    bind_trees(session);
    bind_files(module, session);
}
