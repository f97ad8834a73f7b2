#pragma once

#include "../protocol.hpp"
#include "../refusal.hpp"
#include "checksum_commands.hpp"
#include "connection.hpp"
#include "fact_setter.hpp"

#include <qrftp/listing.hpp>

#include <string>
#include <vector>

namespace qrftp::ftp {

/// FTP and FTPS.
class ftp final : public protocol {
public:
    ftp(const url& server, const session_options& options);

    [[nodiscard]] const server_info& info() const override { return connection_.info(); }
    void check_name(std::string_view path) const override;

    void ping() override;
    void enter(const std::string& path) override;
    bool is_folder(const std::string& path) override;
    std::optional<entry> find(const std::string& path) override;
    std::optional<entry> lstat(const std::string& path) override;
    std::optional<entry> stat(const std::string& path) override;
    std::optional<std::uint64_t> size(const std::string& path) override;
    std::optional<timestamp> modification_time(const std::string& path) override;
    std::optional<checksum_method> find_checksum_method() override { return checksums_.method(); }
    checksum ask_checksum(const std::string& path) override;

    using protocol::list;
    void list(const std::string& path, const listing_sink& sink) override;

    void make_folder(const std::string& path) override;
    void remove_folder(const std::string& path) override;
    void remove_file(const std::string& path) override;
    void rename(const std::string& from, const std::string& to) override;
    void set_facts(const std::string& path, const file_facts& facts) override;
    void require_facts(const std::string& path, const file_facts& facts) override;

    void make_link(const std::string& target, const std::string& path) override;
    [[nodiscard]] bool keeps_link_targets() const override { return false; }
    std::optional<std::string> read_link(const std::string& path) override;
    disk_space space(const std::string& path) override;

    void fetch(download_batch& files) override;
    void send(upload_batch& files) override;
    [[nodiscard]] unsigned best_connections() const override { return 4; }
    [[nodiscard]] bool carries_parts() const override { return false; }

    std::string system_type() override;

    /// What an upload to `path` will replace. Without a listing where nothing is there: that costs too much for
    /// each of many new files.
    std::optional<entry> find_replaced(const std::string& path);

    /// Runs a request; one that cleans up is not cancelled.
    request_result run(request request);
    /// Sends commands. What the server answers is for the caller to see; `repeatable` as in `request`.
    request_result send_unchecked(const std::string& subject, std::vector<std::string> commands,
                                  bool repeatable = false);

private:
    /// Sends a command about `path`; where it is refused, throws the error that says why.
    void send_checked(const std::string& path, const std::string& command, expected what);

    request_result try_enter(const std::string& path);
    std::optional<entry> ask_mlst(const std::string& path);
    std::optional<entry> find_in_parent(const std::string& path);
    std::optional<entry> find_without_mlst(const std::string& path);
    void refuse_unreadable_parent(const std::string& path);

    std::string list_link_target(const std::string& path);

    request_result try_list(const std::string& path, const listing_sink& sink);
    request_result list_by(const char* command, const std::string& path, const listing_sink& sink);
    request_result probe_hidden(const std::string& path, const listing_sink& sink);

    enum class support { unknown, yes, no };

    connection connection_;
    fact_setter fact_setter_;
    checksum_commands checksums_;
    bool has_mlst_;
    support lists_hidden_ = support::unknown; ///< `LIST -a`
    std::optional<response> parent_refusal_;  ///< of the last `find_in_parent`
};

} // namespace qrftp::ftp
