#pragma once

#include "../random_reader.hpp"
#include "pipeline.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace qrftp::sftp {

/// Reads a file at any place by READs of which many are under way. A connection that was lost is opened again
/// by the owner of the pipeline, and the file with it.
class file_reader final : public random_reader {
public:
    /// The connection, opened again where it was lost and that is allowed; else it may be null. Throws `Closed`
    /// when the session has ended.
    using connection_function = std::function<std::shared_ptr<pipeline>(bool may_connect)>;

    file_reader(connection_function connected, std::string path);
    ~file_reader() override;

    [[nodiscard]] std::optional<std::uint64_t> size() const override { return size_; }
    std::size_t read(std::uint64_t offset, std::span<char> buffer) override;
    std::vector<std::string> read(std::span<const file_range> ranges) override;

private:
    class range_reads;

    void open(const std::shared_ptr<pipeline>& server);
    void read_all(range_reads& wanted);

    connection_function connected_;
    std::string path_;
    std::optional<std::uint64_t> size_{};
    file_handle handle_{};
    std::weak_ptr<pipeline> opened_at_{}; ///< the connection that the handle belongs to
};

} // namespace qrftp::sftp
