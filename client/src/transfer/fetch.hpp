#pragma once

#include "../hasher.hpp"
#include "../protocol.hpp"
#include "local_target.hpp"
#include "meter.hpp"

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace qrftp {

/// A download that becomes a local file. It may come in parts over several connections.
class file_download final : public download {
public:
    /// `server` and `path` are where the file comes from. `known` is what a listing told for certain: a time
    /// that need not be asked for. `is_in_tree`: a file that has the target's name is never completed.
    file_download(std::string server, std::string path, local_place place, const transfer_options& options,
                  meter& progress, file_facts known = {}, unsigned parts = 1, bool is_in_tree = false);

    [[nodiscard]] bool needs_size() const override { return options_.resume; }
    [[nodiscard]] bool wants_time() const override
    {
        return !known_.modified && (options_.retries > 0 || parts_left_ > 1);
    }
    [[nodiscard]] std::optional<std::chrono::sys_seconds> listed_time() const override
    {
        return known_.modified;
    }
    [[nodiscard]] bool needs_time() const override { return options_.keep_time && !known_.modified; }
    [[nodiscard]] bool needs_mode() const override { return options_.keep_mode && !known_.mode; }
    [[nodiscard]] bool needs_checksum() const override { return options_.verify; }
    [[nodiscard]] std::optional<std::uint64_t> listed_size() const override;
    byte_range begin(const file_facts& source) override;
    void write(std::uint64_t offset, std::string_view bytes) override;
    [[nodiscard]] bool takes_any_order() const override { return target_.has_places(); }
    void tick() override { meter_.tick(); }
    bool restart() override;
    void finish(const file_facts& source) override;

private:
    void learn(const file_facts& source);

    std::string server_;
    transfer_options options_;
    meter& meter_;
    std::mutex mutex_; ///< parts come side by side
    local_target target_;
    file_facts known_;
    std::optional<std::uint64_t> size_;                ///< as the server told it
    std::optional<std::chrono::sys_seconds> modified_; ///< the same
    std::uint64_t found_ = 0;                          ///< an earlier transfer had left
    unsigned parts_left_;
};

/// A download that is given to a function piece by piece, in order.
class data_download final : public download {
public:
    /// With `verify`, what was given is compared in the end.
    data_download(std::string path, const std::function<bool(std::string_view)>& on_data,
                  const transfer_options& options, meter& progress,
                  const std::optional<checksum_method>& verify = {});

    /// Only then is it asked where to begin before the server is.
    [[nodiscard]] bool needs_size() const override { return !range_.is_whole(); }
    [[nodiscard]] bool needs_time() const override { return false; }
    [[nodiscard]] bool wants_time() const override { return retries_ > 0; }
    [[nodiscard]] bool needs_checksum() const override { return content_.has_value(); }
    [[nodiscard]] std::optional<std::uint64_t> listed_size() const override { return std::nullopt; }
    byte_range begin(const file_facts& source) override;
    void write(std::uint64_t offset, std::string_view bytes) override;
    [[nodiscard]] bool takes_any_order() const override { return false; }
    void tick() override { meter_.tick(); }
    bool restart() override { return meter_.moved() == 0; }
    void finish(const file_facts& source) override;

private:
    const std::function<bool(std::string_view)>& on_data_;
    byte_range range_;
    unsigned retries_;
    meter& meter_;
    std::optional<std::uint64_t> expected_;
    std::optional<hasher> content_;
};

/// Throws `SizeMismatch` about `path`.
[[noreturn]] void throw_size_mismatch(const std::string& path, std::uint64_t got, std::uint64_t of);

/// How much of a file of `whole` bytes a resumed transfer finds done where the target has `there` bytes. Throws
/// `CannotResume` about `target`.
std::uint64_t resume_point(const std::string& target, std::uint64_t there, std::uint64_t whole);

} // namespace qrftp
