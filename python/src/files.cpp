#include "bindings.hpp"
#include "entry.hpp"
#include "text.hpp"

#include <qrftp/file.hpp>

#include <pybind11/stl.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace qrftp::python {

namespace {

/// A remote file that is open for reading.
class native_file {
public:
    native_file(std::shared_ptr<native_session> owner, std::string path)
        : owner_(std::move(owner)), path_(std::move(path)), id_(owner_->open_file(path_))
    {
    }
    native_file(const native_file&) = delete;
    native_file& operator=(const native_file&) = delete;
    ~native_file() { close(false); }

    void close(bool at_once) noexcept
    {
        if (!std::exchange(closed_, true)) {
            try {
                owner_->close_file(id_, at_once);
            } catch (...) { // NOLINT(bugprone-empty-catch): with its connection lost, the file is closed
            }
        }
    }

    [[nodiscard]] std::optional<std::uint64_t> size()
    {
        return owner_->read_file(id_, path_, [](const remote_file& file) { return file.size(); });
    }

    [[nodiscard]] std::size_t read_into(std::uint64_t offset, const py::buffer& buffer)
    {
        const py::buffer_info target = buffer.request(true);
        const std::span<char> bytes(static_cast<char*>(target.ptr),
                                    static_cast<std::size_t>(target.size * target.itemsize));
        return owner_->read_file(id_, path_, [&](remote_file& file) { return file.read(offset, bytes); });
    }

    [[nodiscard]] py::list read_ranges(const std::vector<std::pair<std::uint64_t, std::uint64_t>>& wanted)
    {
        std::vector<file_range> ranges;
        ranges.reserve(wanted.size());
        for (const auto& [offset, length] : wanted) {
            ranges.push_back({offset, length});
        }
        py::list parts;
        for (const std::string& part :
             owner_->read_file(id_, path_, [&](remote_file& file) { return file.read(ranges); })) {
            parts.append(py::bytes(part));
        }
        return parts;
    }

private:
    std::shared_ptr<native_session> owner_;
    std::string path_;
    native_session::file_id id_;
    bool closed_ = false;
};

} // namespace

void bind_files(py::module_& module, session_class& session)
{
    py::class_<native_file>(module, "File")
        .def("close", &native_file::close)
        .def("size", [](native_file& self) { return or_none(self.size()); })
        .def("read_into", &native_file::read_into)
        .def("read_ranges", &native_file::read_ranges);
    session.def("open", [](const std::shared_ptr<native_session>& self, const remote_name& path) {
        // An absolute name stands for the same file whatever the working folder is later.
        const std::string whole =
            self->call([&](qrftp::session& server) { return server.absolute(path.bytes); });
        return std::make_unique<native_file>(self, whole);
    });
}

} // namespace qrftp::python
