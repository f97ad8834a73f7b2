#include "bindings.hpp"
#include "options.hpp"
#include "text.hpp"
#include "tree.hpp"

#include <qrftp/copy.hpp>

#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include <chrono>
#include <filesystem>
#include <utility>
#include <vector>

namespace qrftp::python {

namespace {

namespace fs = std::filesystem;
using named_pairs = std::vector<std::pair<remote_name, fs::path>>;

std::vector<file_pair> to_pairs(const named_pairs& named)
{
    std::vector<file_pair> pairs;
    for (const auto& [remote, local] : named) {
        pairs.push_back({remote.bytes, local});
    }
    return pairs;
}

/// `work`, which is given the session and the options, with its result in terms of Python.
template <class Work>
py::tuple run_tree(native_session& self, const py::dict& given, const Work& work)
{
    const sync_options options = to_sync_options(given, self.failure());
    return to_python(self.call([&](session& server) { return work(server, options); }));
}

} // namespace

void bind_trees(session_class& session)
{
    session.def("fetch_tree", [](native_session& self, const remote_name& remote, const fs::path& local,
                                 const py::dict& given) {
        return run_tree(self, given, [&](qrftp::session& server, const tree_options& options) {
            return fetch_tree(server, remote.bytes, local, options);
        });
    });
    session.def("send_tree", [](native_session& self, const fs::path& local, const remote_name& remote,
                                const py::dict& given) {
        return run_tree(self, given, [&](qrftp::session& server, const tree_options& options) {
            return send_tree(server, local, remote.bytes, options);
        });
    });
    session.def("sync", [](native_session& self, const fs::path& local, const remote_name& remote, bool sends,
                           const py::dict& given) {
        return run_tree(self, given, [&](qrftp::session& server, const sync_options& options) {
            return synchronise(server, local, remote.bytes, sends ? direction::send : direction::fetch,
                               options);
        });
    });
    session.def("fetch_files", [](native_session& self, const named_pairs& files, const py::dict& given) {
        return run_tree(self, given, [&](qrftp::session& server, const tree_options& options) {
            return fetch_files(server, to_pairs(files), options);
        });
    });
    session.def("send_files", [](native_session& self, const named_pairs& files, const py::dict& given) {
        return run_tree(self, given, [&](qrftp::session& server, const tree_options& options) {
            return send_files(server, to_pairs(files), options);
        });
    });
    session.def("copy_tree", [](native_session& self, const remote_name& source, native_session& to,
                                const remote_name& target, const py::dict& given) {
        const sync_options options = to_sync_options(given, self.failure());
        tree_result result;
        self.call_with(to, [&](qrftp::session& from, qrftp::session& into) {
            result = copy_tree(from, source.bytes, into, target.bytes, options);
        });
        return to_python(result);
    });
    session.def("clean_up", [](native_session& self, const remote_name& folder, double age) {
        const std::chrono::seconds oldest(static_cast<long long>(age));
        py::list removed;
        for (const std::string& path :
             self.call([&](qrftp::session& server) { return clean_up(server, folder.bytes, oldest); })) {
            removed.append(to_text(path));
        }
        return removed;
    });
}

} // namespace qrftp::python
