#include "bindings.hpp"
#include "entry.hpp"
#include "text.hpp"

#include <qrftp/glob.hpp>

#include <chrono>
#include <filesystem>

namespace qrftp::python {

namespace {

void bind_connection(session_class& session)
{
    session.def(py::init([](const std::string& server, const py::dict& options, const remote_name& folder) {
        return std::make_shared<native_session>(server, options, folder.bytes);
    }));
    session.def("connect", [](native_session& self) { self.call([](qrftp::session&) {}); });
    session.def("close", &native_session::close);
    session.def("is_closed", &native_session::is_closed);
    session.def("folder", [](const native_session& self) { return remote_name{self.folder()}; });
    session.def("server_info", [](native_session& self) {
        return to_python(self.call([](qrftp::session& server) { return server.server_info(); }));
    });
    session.def("system_type", [](native_session& self) {
        return to_text(self.call([](qrftp::session& server) { return server.system_type(); }));
    });
}

void bind_lookups(session_class& session)
{
    session.def("working_folder", [](native_session& self) {
        return to_text(self.call([](const qrftp::session& server) { return server.working_folder(); }));
    });
    session.def("absolute", [](native_session& self, const remote_name& path) {
        return to_text(self.call([&](qrftp::session& server) { return server.absolute(path.bytes); }));
    });
    session.def("change_folder", [](native_session& self, const remote_name& path) {
        self.change_folder(path.bytes);
        return remote_name{self.folder()};
    });
    session.def("stat", [](native_session& self, const remote_name& path) {
        return to_python(self.call([&](qrftp::session& server) { return server.stat(path.bytes); }));
    });
    session.def("exists", [](native_session& self, const remote_name& path) {
        return self.call([&](qrftp::session& server) { return server.exists(path.bytes); });
    });
    session.def("is_folder", [](native_session& self, const remote_name& path) {
        return self.call([&](qrftp::session& server) { return server.is_folder(path.bytes); });
    });
    session.def("is_file", [](native_session& self, const remote_name& path) {
        return self.call([&](qrftp::session& server) { return server.is_file(path.bytes); });
    });
    session.def("file_size", [](native_session& self, const remote_name& path) {
        return or_none(self.call([&](qrftp::session& server) { return server.file_size(path.bytes); }));
    });
    session.def("modification_time", [](native_session& self, const remote_name& path) {
        return to_python(
            self.call([&](qrftp::session& server) { return server.modification_time(path.bytes); }));
    });
    session.def("list", [](native_session& self, const remote_name& path) {
        return to_python(self.call([&](qrftp::session& server) { return server.list(path.bytes); }));
    });
    session.def("glob", [](native_session& self, const remote_name& pattern) {
        return to_python(self.call([&](qrftp::session& server) { return glob(server, pattern.bytes); }));
    });
}

void bind_changes(session_class& session)
{
    session.def("make_folder", [](native_session& self, const remote_name& path, bool parents) {
        self.call([&](qrftp::session& server) { server.make_folder(path.bytes, parents); });
    });
    session.def("remove_folder", [](native_session& self, const remote_name& path, bool recursive) {
        self.call([&](qrftp::session& server) { server.remove_folder(path.bytes, recursive); });
    });
    session.def("remove", [](native_session& self, const remote_name& path) {
        self.call([&](qrftp::session& server) { server.remove_file(path.bytes); });
    });
    session.def("rename",
                [](native_session& self, const remote_name& from, const remote_name& to, bool replace) {
                    self.call([&](qrftp::session& server) { server.rename(from.bytes, to.bytes, replace); });
                });
}

void bind_attributes(session_class& session)
{
    session.def("set_permissions", [](native_session& self, const remote_name& path, unsigned mode) {
        const auto bits = static_cast<std::filesystem::perms>(mode);
        self.call([&](qrftp::session& server) { server.set_permissions(path.bytes, bits); });
    });
    session.def("set_modification_time", [](native_session& self, const remote_name& path, long long seconds) {
        const std::chrono::sys_seconds time{std::chrono::seconds(seconds)};
        self.call([&](qrftp::session& server) { server.set_modification_time(path.bytes, time); });
    });
    session.def("space", [](native_session& self, const remote_name& path) {
        const disk_space room = self.call([&](qrftp::session& server) { return server.space(path.bytes); });
        return py::make_tuple(or_none(room.total), or_none(room.free), room.available);
    });
    session.def("checksum_support", [](native_session& self) {
        const auto method = self.call([](qrftp::session& server) { return server.checksum_support(); });
        return py::make_tuple(method.command, name_of(method.algorithm));
    });
    session.def("checksum", [](native_session& self, const remote_name& path) {
        const auto told = self.call([&](qrftp::session& server) { return server.checksum(path.bytes); });
        return py::make_tuple(name_of(told.algorithm), told.digits);
    });
}

void bind_links(session_class& session)
{
    session.def("make_link", [](native_session& self, const remote_name& target, const remote_name& path) {
        self.call([&](qrftp::session& server) { server.make_link(target.bytes, path.bytes); });
    });
    session.def(
        "make_hard_link", [](native_session& self, const remote_name& existing, const remote_name& path) {
            self.call([&](qrftp::session& server) { server.make_hard_link(existing.bytes, path.bytes); });
        });
    session.def("read_link", [](native_session& self, const remote_name& path) {
        return to_text(self.call([&](qrftp::session& server) { return server.read_link(path.bytes); }));
    });
}

} // namespace

void bind_operations(session_class& session)
{
    bind_connection(session);
    bind_lookups(session);
    bind_changes(session);
    bind_attributes(session);
    bind_links(session);
}

} // namespace qrftp::python
