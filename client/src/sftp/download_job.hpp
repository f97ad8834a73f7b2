#pragma once

#include "copy_job.hpp"

#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <string>

namespace qrftp::sftp {

/// One file from the server: OPEN, READs, CLOSE, with STAT before them where no listing told the size. The
/// READs ask for one byte more than there should be: a file that is longer than was told is read until its end,
/// and the end of one that is shorter is confirmed by FSTAT.
class download_job final : public copy_job {
public:
    using batch_type = download_batch;

    explicit download_job(const download_batch::part& what) : file_(*what.file), part_(what.range) {}

    void settle(const copy_hooks& hooks) override;
    void remove_temporary() override {}

private:
    enum step : std::uint32_t { stat, open, read, read_again, check_size };
    /// What arrived before bytes that precede it; the text stays empty where it was written all the same.
    struct early_part {
        std::uint64_t length = 0;
        std::string bytes{};
    };

    void send_first() override;
    bool send_more() override;
    void handle_reply(const request_tag& tag, const reply& answer) override;
    bool reset() override;

    void on_stat(const reply& answer);
    void begin();
    void begin_first_time();
    bool is_unchanged() const;
    void on_read(const request_tag& tag, const reply& answer);
    void on_data(const request_tag& tag, std::string_view bytes);
    void write(std::uint64_t offset, std::string_view bytes);
    void write_early();
    void ask_for(step reason, std::uint64_t offset, std::uint32_t length);
    void advance_or_finish();
    void on_all_read();
    void on_size(const reply& answer);
    void finish();

    [[nodiscard]] std::uint64_t limit() const;

    static constexpr std::uint64_t unknown = std::numeric_limits<std::uint64_t>::max();

    download& file_;
    byte_range part_;
    std::optional<attributes> source_{};  ///< what STAT told
    std::optional<attributes> earlier_{}; ///< the same, before the connection was lost
    std::optional<std::uint64_t> expected_{};
    bool has_facts_ = false;
    bool has_begun_ = false;
    byte_range range_{};
    std::uint64_t position_ = 0;  ///< everything before it has been written
    std::uint64_t next_ = 0;      ///< everything before it has been asked for
    std::uint64_t end_ = unknown; ///< where the server said that the file ends
    std::map<std::uint64_t, early_part> early_{};
};

} // namespace qrftp::sftp
