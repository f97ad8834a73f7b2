#pragma once

#include "copy_job.hpp"

#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <string>

namespace qrftp::sftp {

/// One file from the server: OPEN, FSTAT, READs, CLOSE. It comes as long as FSTAT found it, should it grow
/// meanwhile. Where a listing told the size, FSTAT is left out, and the READs ask for one byte more than there
/// should be: if the file has changed since then, it is read once more, as long as FSTAT finds it.
class download_job final : public copy_job {
public:
    using batch_type = download_batch;
    /// A short file is not over-asked.
    static constexpr std::uint64_t first_window = std::uint64_t{1} << 20;
    static constexpr std::uint64_t lead = std::numeric_limits<std::uint64_t>::max();

    explicit download_job(const download_batch::part& what) : file_(*what.file), part_(what.range) {}

    void tick() override
    {
        guarded([this] { file_.tick(); });
    }
    void settle(const copy_hooks& hooks) override;
    void remove_temporary() override {}

private:
    enum step : std::uint32_t { open, fstat, read, read_again, checksum };
    static constexpr std::uint64_t unknown = std::numeric_limits<std::uint64_t>::max();

    void send_first() override;
    bool send_more() override;
    void handle_reply(const request_tag& tag, const reply& answer) override;
    bool reset() override;

    void on_opened();
    void on_fstat(const reply& answer);
    void begin();
    void begin_first_time();
    void begin_again();
    [[nodiscard]] bool is_unchanged() const;
    void start_reading();

    void on_read(const request_tag& tag, const reply& answer);
    void on_data(const request_tag& tag, std::string_view bytes);
    void write(std::uint64_t offset, std::string_view bytes);
    void write_early();
    void forget_early(std::uint64_t end);
    void ask_for(step reason, std::uint64_t offset, std::uint32_t length);
    void advance_or_finish();
    void on_all_read();
    void on_checksum(const reply& answer);
    void finish();

    /// Up to where READs ask.
    [[nodiscard]] std::uint64_t limit() const;
    /// Where the file ends, or the part of it that is wanted.
    [[nodiscard]] std::uint64_t expected_end() const;
    [[nodiscard]] file_facts facts() const;

    download& file_;
    byte_range part_;
    std::optional<attributes> source_{};  ///< what FSTAT told
    std::optional<attributes> earlier_{}; ///< the same, before the connection was lost
    std::optional<std::uint64_t> size_{}; ///< none where only the end tells
    std::optional<qrftp::checksum> content_{};
    bool is_listed_ = false; ///< the size is that of a listing
    bool is_longer_ = false; ///< than the listing told
    bool has_begun_ = false;
    bool is_reading_ = false;
    byte_range range_{};
    std::uint64_t position_ = 0;                   ///< everything before it has been written
    std::uint64_t next_ = 0;                       ///< everything before it has been asked for
    std::uint64_t ahead_ = 0;                      ///< what was asked for with FSTAT goes up to here
    std::uint64_t end_ = unknown;                  ///< where the server said that the file ends
    std::map<std::uint64_t, std::string> early_{}; ///< what arrived before bytes that precede it
};

} // namespace qrftp::sftp
