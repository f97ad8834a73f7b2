#pragma once

#include "../hasher.hpp"
#include "../protocol.hpp"
#include "meter.hpp"

#include <qrftp/transfer.hpp>
#include <zorbel/io/common/file/Folder.hpp>

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>

namespace qrftp {

/// What is known of a target.
struct target_facts {
    bool is_new = false;     ///< nothing has its name, as far as is known
    bool is_in_tree = false; ///< a file that has its name is an older one, and never completed
};

/// What all uploads share: the names, and what the file is given in the end.
class basic_upload : public upload {
public:
    /// From `identity`, if it is not empty, follows the temporary name of an upload that resumes.
    basic_upload(std::string target, const transfer_options& options, meter& progress,
                 const std::string& identity = {}, target_facts known = {});

    [[nodiscard]] const std::string& path() const override { return path_; }
    void rename_temporary() override;
    [[nodiscard]] bool may_replace() const override { return options_.replace || completes_target(); }
    [[nodiscard]] bool resumes() const override { return options_.resume; }
    [[nodiscard]] bool completes_target() const override
    {
        return options_.resume && !known_.is_in_tree && !is_outdated_;
    }
    bool complete_target(const file_facts& there) override;
    [[nodiscard]] bool keeps_temporary() const override { return keeps_temporary_; }
    [[nodiscard]] bool needs_replaced() const override
    {
        return is_temporary() && !options_.keep_mode && !known_.is_new;
    }
    [[nodiscard]] file_facts facts_to_set(const std::optional<entry>& replaced) const override;
    [[nodiscard]] bool needs_verifying() const override { return options_.verify; }
    void sent(std::uint64_t bytes) override { meter_.add(bytes); }
    void tick() override { meter_.tick(); }
    void finish() override { meter_.finish(); }

protected:
    /// What an earlier upload left is not continued.
    void begin_anew() { options_.resume = false; }
    /// Time and mode of the source, as far as it has them.
    [[nodiscard]] virtual file_facts source_facts() const = 0;
    [[nodiscard]] meter& progress() const { return meter_; }

private:
    transfer_options options_;
    meter& meter_;
    target_facts known_;
    std::string path_;
    bool keeps_temporary_ = false;
    bool is_outdated_ = false; ///< the target was last changed before the source was: it is no beginning of it
};

/// An open local file on its way to the server. It may go in parts over several connections.
class file_upload final : public basic_upload {
public:
    /// `shown` is how errors name the file; one in parts cannot be begun anew.
    file_upload(std::unique_ptr<zorbel::io::common::file::LocalFile> source, std::filesystem::path shown,
                const std::string& target, const transfer_options& options, meter& progress,
                bool is_in_parts = false, target_facts known = {});

    byte_range begin(const std::optional<file_facts>& there) override;
    [[nodiscard]] std::optional<std::uint64_t> size() const override { return status_.size; }
    std::size_t read(std::uint64_t offset, std::span<char> buffer) override;
    [[nodiscard]] bool reads_anywhere() const override { return true; }
    bool is_unchanged() override;
    void verify(const checksum& stored) override;

protected:
    [[nodiscard]] file_facts source_facts() const override;

private:
    std::unique_ptr<zorbel::io::common::file::LocalFile> source_;
    std::filesystem::path shown_;
    zorbel::io::common::file::Status status_;
    std::mutex mutex_; ///< parts go side by side
    bool is_in_parts_;
};

/// Bytes that a function gives, on their way to the server.
class data_upload final : public basic_upload {
public:
    data_upload(const std::function<std::size_t(std::span<char>)>& read, std::string target,
                const transfer_options& options, meter& progress,
                const std::optional<checksum_method>& verify = {});

    byte_range begin(const std::optional<file_facts>& there) override;
    [[nodiscard]] std::optional<std::uint64_t> size() const override { return std::nullopt; }
    std::size_t read(std::uint64_t offset, std::span<char> buffer) override;
    [[nodiscard]] bool reads_anywhere() const override { return false; }
    bool is_unchanged() override { return true; }
    void verify(const checksum& stored) override;

protected:
    [[nodiscard]] file_facts source_facts() const override { return {}; }

private:
    const std::function<std::size_t(std::span<char>)>& read_;
    std::optional<hasher> content_;
};

/// Opens the local file that `path` leads to. Throws `LocalFileError`, also for what is no ordinary file.
std::unique_ptr<zorbel::io::common::file::LocalFile> open_source(const std::filesystem::path& path);

} // namespace qrftp
