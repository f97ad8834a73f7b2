#pragma once

#include "../protocol.hpp"
#include "copy_job.hpp"
#include "owner_names.hpp"
#include "pipeline.hpp"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace qrftp::sftp {

/// What the client asks of a server, over SFTP. A connection that is lost is opened again at the next request;
/// one that only asks is then repeated, and of one that changes something the server is asked whether it was
/// carried out.
class sftp_protocol final : public protocol {
public:
    /// Opens a connection, logs in and starts the subsystem; fills in what it learns of the server.
    using connect_function = std::function<std::unique_ptr<transport>(const session_options&, server_info&)>;

    /// `server` is the subject of errors that concern no file.
    sftp_protocol(connect_function connect, std::string server, session_options options);

    [[nodiscard]] const server_info& info() const override { return info_; }
    std::string login_folder() override;
    void check_name(std::string_view path) const override;
    void ping() override;
    void enter(const std::string& path) override;
    bool is_folder(const std::string& path) override;
    std::optional<entry> find(const std::string& path) override;
    std::optional<entry> stat(const std::string& path) override;
    std::optional<entry> follow(const std::string& path) override;
    void name_owners(std::span<entry> entries) override;
    std::optional<std::uint64_t> size(const std::string& path) override;
    std::optional<timestamp> modification_time(const std::string& path) override;
    std::optional<checksum_method> find_checksum_method() override;
    checksum ask_checksum(const std::string& path) override;

    void list(const std::string& path, const listing_sink& sink) override;
    void list(folder_queue& folders) override;

    void make_folder(const std::string& path) override;
    void remove_folder(const std::string& path) override;
    void remove_file(const std::string& path) override;
    void change(std::span<const path_change> changes,
                const std::function<void(std::size_t, std::exception_ptr)>& on_done) override;
    void rename(const std::string& from, const std::string& to) override;
    void set_facts(const std::string& path, const file_facts& facts) override;
    void require_facts(const std::string& path, const file_facts& facts) override;

    void make_link(const std::string& target, const std::string& path) override;
    void make_hard_link(const std::string& existing, const std::string& path) override;
    std::optional<std::string> read_link(const std::string& path) override;
    disk_space space(const std::string& path) override;
    bool copy_on_server(const std::string& from, const std::string& to, const file_facts& initial,
                        const std::function<void(std::uint64_t)>& on_copied) override;

    void fetch(download_batch& files) override;
    void send(upload_batch& files) override;
    std::unique_ptr<random_reader> open_reader(const std::string& path) override;
    [[nodiscard]] unsigned best_connections() const override { return 1; }
    [[nodiscard]] bool carries_parts() const override { return true; }
    [[nodiscard]] unsigned best_streams() const override;
    [[nodiscard]] opener further_streams() override;

    std::string system_type() override { return {}; }

private:
    pipeline& connected();
    void connect();
    void limit_time();

    template <class Work>
    auto perform(const std::string& subject, const Work& work);
    template <class Work>
    auto ask(const std::string& subject, const Work& work);
    template <class Work, class IsDone>
    void modify(const std::string& subject, const Work& work, const IsDone& is_done);
    template <class Work>
    void carry_out(Work& work);

    static std::optional<disk_space> ask_space(pipeline& server, const std::string& path);
    void make_name(const request& what, const std::string& target, const std::string& path);
    /// Two files that are open on the server.
    struct open_pair {
        const file_handle& from;
        const file_handle& to;
        const std::string& subject; ///< of errors
    };
    void copy_data(pipeline& server, const open_pair& files,
                   const std::function<void(std::uint64_t)>& on_copied);
    std::optional<attributes> attributes_of(packet_type request, const std::string& path);
    void change_one(const path_change& change);
    void change_one(const path_change& change, const std::function<bool()>& is_done);
    bool is_carried_out(const path_change& change);
    [[nodiscard]] std::exception_ptr explain_change(const path_change& change, const std::exception_ptr& why);
    [[nodiscard]] std::exception_ptr explain_copy(const std::string& path, bool is_upload,
                                                  const std::exception_ptr& why);
    [[nodiscard]] bool is_disk_full(const std::string& path);
    [[nodiscard]] copy_hooks hooks();
    void replace(const std::string& from, const std::string& to);

    connect_function connect_;
    std::string server_;
    session_options options_;
    server_info info_{};
    std::shared_ptr<pipeline> pipeline_{};
    owner_names owner_names_{};
    bool is_carrying_ = false; ///< a batch is under way
    std::optional<bool> checks_files_{};
    std::shared_ptr<sftp_protocol*> self_ =
        std::make_shared<sftp_protocol*>(this); ///< open files may outlive it
};

} // namespace qrftp::sftp
