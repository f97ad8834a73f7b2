#include "bindings.hpp"
#include "options.hpp"
#include "text.hpp"

#include <qrftp/copy.hpp>

#include <pybind11/stl/filesystem.h>

#include <algorithm>
#include <filesystem>
#include <span>
#include <string_view>

namespace qrftp::python {

namespace {

namespace fs = std::filesystem;

/// Gives what arrives to `write`, which takes bytes.
void fetch_to(native_session& self, const remote_name& remote, py::object write, const py::dict& given)
{
    const transfer_options options = to_transfer_options(given, self.failure());
    const callback sink(std::move(write), self.failure());
    self.call([&](session& server) {
        server.fetch(
            remote.bytes,
            [&](std::string_view data) {
                return sink(false, [&](const py::object& f) {
                    f(py::bytes(data.data(), data.size()));
                    return true;
                });
            },
            options);
    });
}

/// Sends what `read` returns, which is asked for at most so many bytes.
void send_from(native_session& self, py::object read, const remote_name& remote, const py::dict& given)
{
    const transfer_options options = to_transfer_options(given, self.failure());
    const callback source(std::move(read), self.failure());
    self.call([&](session& server) {
        server.send(
            [&](std::span<char> buffer) {
                const auto count = source(std::optional<std::size_t>(), [&](const py::object& f) {
                    const auto data = f(buffer.size()).cast<py::bytes>();
                    const std::string_view view = data;
                    if (view.size() > buffer.size()) {
                        throw py::value_error("read() returned more than was asked for");
                    }
                    return std::optional(view.copy(buffer.data(), view.size()));
                });
                if (!count) {
                    throw Cancelled(remote.bytes);
                }
                return *count;
            },
            remote.bytes, options);
    });
}

} // namespace

void bind_transfers(session_class& session)
{
    session.def("fetch", [](native_session& self, const remote_name& remote, const fs::path& local,
                            const py::dict& given) {
        const transfer_options options = to_transfer_options(given, self.failure());
        self.call([&](qrftp::session& server) { server.fetch(remote.bytes, local, options); });
    });
    session.def("fetch_to", &fetch_to);
    session.def("fetch_bytes", [](native_session& self, const remote_name& remote, const py::dict& given) {
        const transfer_options options = to_transfer_options(given, self.failure());
        return py::bytes(
            self.call([&](qrftp::session& server) { return server.fetch_string(remote.bytes, options); }));
    });
    session.def("send", [](native_session& self, const fs::path& local, const remote_name& remote,
                           const py::dict& given) {
        const transfer_options options = to_transfer_options(given, self.failure());
        self.call([&](qrftp::session& server) { server.send(local, remote.bytes, options); });
    });
    session.def("send_from", &send_from);
    session.def("send_bytes", [](native_session& self, const py::buffer& content, const remote_name& remote,
                                 const py::dict& given) {
        const transfer_options options = to_transfer_options(given, self.failure());
        const py::buffer_info bytes = content.request();
        const std::string_view view(static_cast<const char*>(bytes.ptr),
                                    static_cast<std::size_t>(bytes.size * bytes.itemsize));
        self.call([&](qrftp::session& server) { server.send_string(view, remote.bytes, options); });
    });
    session.def("copy", [](native_session& self, const remote_name& source, native_session& to,
                           const remote_name& target, const py::dict& given) {
        const transfer_options options = to_transfer_options(given, self.failure());
        self.call_with(to, [&](qrftp::session& from, qrftp::session& into) {
            copy(from, source.bytes, into, target.bytes, options);
        });
    });
}

} // namespace qrftp::python
