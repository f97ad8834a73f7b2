#pragma once

#include "../protocol.hpp"
#include "meter.hpp"

#include <qrftp/session.hpp>

#include <memory>
#include <string>

namespace qrftp {

/// A file on a server, with what its copy may be given.
struct remote_source {
    std::string path; ///< absolute
    file_facts facts{};
};

/// What there is at `path`, through links. Throws `NotFound`, `IsFolder`.
remote_source find_remote_source(protocol& server, const std::string& path);

/// Whether both sessions are logins of one user on one server: what the one reads the other one can write.
bool is_same_login(const session& one, const session& other);

/// Copies files from one server to another one, over a connection to each. One thread at a time.
class server_copier {
public:
    /// `from` is where files are read, and is not used by anybody else meanwhile; null stands for a connection
    /// of its own, which is opened when it is needed. `is_same`: the server of `to` has the files, too.
    server_copier(const session& source, protocol* from, protocol& to, bool is_same);

    void copy(const remote_source& source, const std::string& target, const transfer_options& options,
              meter& progress);

private:
    class copied_upload;

    bool copy_on_server(const remote_source& source, copied_upload& file);
    protocol& from();

    const session& source_;
    protocol* from_;
    std::unique_ptr<protocol> own_;
    protocol& to_;
    bool is_same_;
};

} // namespace qrftp
