#include "entry.hpp"

#include "text.hpp"

#include <string_view>

namespace qrftp::python {

namespace {

std::string_view name_of_kind(entry_kind kind)
{
    switch (kind) {
    case entry_kind::file:
        return "file";
    case entry_kind::folder:
        return "folder";
    case entry_kind::link:
        return "link";
    case entry_kind::other:
        break;
    }
    return "other";
}

py::object mode_of(const entry& what)
{
    return what.mode ? py::object(py::int_(static_cast<unsigned>(*what.mode))) : py::none();
}

py::list texts(const std::vector<std::string>& lines)
{
    py::list all;
    for (const std::string& line : lines) {
        all.append(to_text(line));
    }
    return all;
}

} // namespace

py::object to_python(const std::optional<timestamp>& time)
{
    if (!time) {
        return py::none();
    }
    return py::make_tuple(time->time.time_since_epoch().count(), time->is_exact());
}

py::tuple to_python(const entry& what)
{
    return py::make_tuple(to_text(what.name), name_of_kind(what.kind), or_none(what.size),
                          to_python(what.modified), mode_of(what), to_text(what.owner), to_text(what.group),
                          to_text(what.link_target));
}

py::tuple to_python(const listing& folder)
{
    py::list entries;
    for (const entry& each : folder.entries) {
        entries.append(to_python(each));
    }
    return py::make_tuple(entries, texts(folder.skipped));
}

py::list to_python(const std::vector<remote_entry>& found)
{
    py::list all;
    for (const remote_entry& each : found) {
        all.append(py::make_tuple(to_text(each.path), to_python(each.what)));
    }
    return all;
}

py::tuple to_python(const server_info& server)
{
    return py::make_tuple(to_text(server.greeting), to_text(server.encryption),
                          server.key ? py::object(to_text(server.key->fingerprint())) : py::none(),
                          texts(server.features), to_text(server.login_folder), server.round_trip.count());
}

} // namespace qrftp::python
