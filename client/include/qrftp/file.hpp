#pragma once

#include <qrftp/entry.hpp>
#include <qrftpclient_export.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace qrftp {

class random_reader;

/// A part of a file: `length` bytes from `offset` on.
struct file_range {
    std::uint64_t offset = 0;
    std::uint64_t length = 0;
};

/// A remote file that is open to be read at any place (`session::open`).
///
/// SFTP: READs over the connection of the session, of which many may be under way. FTP: a login of its own,
/// which fetches ahead of what is read and begins anew (REST) where another place is asked for. One thread at a
/// time, the one that uses the session. A file that was closed or moved from throws `Closed`, and so does one
/// over SFTP whose session was closed.
class QRFTPCLIENT_EXPORT remote_file {
public:
    remote_file(remote_file&& other) noexcept;
    remote_file& operator=(remote_file&& other) noexcept;
    remote_file(const remote_file&) = delete;
    remote_file& operator=(const remote_file&) = delete;
    ~remote_file();

    /// How long the file was when it was opened; nothing where the server does not tell.
    [[nodiscard]] std::optional<std::uint64_t> size() const;
    /// Fills `buffer` from `offset` on, as far as the file goes; returns how much that was. Throws
    /// `ConnectionLost`, `Timeout`, `Cancelled`, `Refused`.
    [[nodiscard]] std::size_t read(std::uint64_t offset, std::span<char> buffer);
    /// Several parts, each as far as the file goes, in the order in which they were asked for. Only what there
    /// is takes memory, however long a part is said to be.
    [[nodiscard]] std::vector<std::string> read(std::span<const file_range> ranges);
    void close() noexcept;

private:
    friend class session;

    explicit remote_file(std::unique_ptr<random_reader> reader);
    [[nodiscard]] random_reader& opened() const;

    std::unique_ptr<random_reader> reader_;
};

} // namespace qrftp
