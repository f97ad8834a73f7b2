#pragma once

#include "copy_job.hpp"

#include <cstdint>
#include <optional>
#include <string>

namespace qrftp::sftp {

/// One file to the server: OPEN, WRITEs, FSETSTAT, CLOSE, STAT without waiting in between; when all of these
/// have been confirmed, and the size is right, the rename that gives it its name. If it fails, its temporary
/// name is removed. Of a file in parts, the last one, which is empty, does what comes after CLOSE.
class upload_job final : public copy_job {
public:
    using batch_type = upload_batch;
    static constexpr std::uint64_t first_window = std::uint64_t{4} << 20;
    /// What most servers let come in a round trip: the rest is left to other connections.
    static constexpr std::uint64_t lead = std::uint64_t{2} << 20;

    explicit upload_job(const upload_batch::part& what) : file_(*what.file), part_(what.range) {}

    void tick() override
    {
        guarded([this] { file_.tick(); });
    }
    [[nodiscard]] std::optional<byte_range> left_of(const byte_range& part) const override
    {
        return part.is_last() ? std::nullopt
                              : std::optional(byte_range{std::max(part.begin, confirmed_), part.end});
    }
    void settle(const copy_hooks& hooks) override;
    void remove_temporary() override;

private:
    enum step : std::uint32_t {
        look,
        look_in_place,
        look_at_target,
        open,
        look_for_more,
        cut,
        write,
        set_facts,
        close,
        check_size,
        checksum,
        rename,
        find_temporary,
        find_target
    };

    void send_first() override;
    bool send_more() override;
    void handle_reply(const request_tag& tag, const reply& answer) override;
    bool reset() override;

    void begin(const std::optional<file_facts>& there);
    void open_target();
    [[nodiscard]] std::uint32_t open_flags() const;
    void on_open(const reply& answer);
    void take_up();
    void on_look(const reply& answer);
    void on_look_in_place(const reply& answer);
    void on_look_at_target(const reply& answer);
    void on_written(const request_tag& tag, const reply& answer);
    void on_closed(const reply& answer);
    void finish_writing();
    void send_facts();
    void on_stored();
    void on_look_for_more(const reply& answer);
    void on_cut(const reply& answer);
    void on_size(const reply& answer);
    void on_checksum(const reply& answer);
    void send_rename();
    void on_renamed(const reply& answer);
    void ask_whether_renamed();
    void on_found_target(const reply& answer);
    void finish();

    [[nodiscard]] std::uint64_t last() const;

    upload& file_;
    byte_range part_;
    bool has_begun_ = false;
    bool knows_target_ = false; ///< or need not
    std::optional<entry> replaced_{};
    byte_range range_{};
    std::uint64_t next_ = 0;      ///< everything before it has been sent
    std::uint64_t confirmed_ = 0; ///< everything before it is on the server
    bool may_exist_ = false;      ///< what is written to
    bool is_sent_ = false;
    bool is_closed_ = false;
    bool is_verified_ = false;
    bool is_longer_ = false; ///< what is there than what was sent
    bool is_renaming_ = false;
    bool needs_replace_ = false; ///< RENAME does not replace: to be done in steps
    bool has_temporary_ = false; ///< something may be there under the temporary name
    bool temporary_is_there_ = false;
};

} // namespace qrftp::sftp
