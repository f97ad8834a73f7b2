#pragma once

#include "../protocol.hpp"

#include <qrftp/checksum.hpp>
#include <qrftp/transfer.hpp>
#include <zorbel/io/common/file/Folder.hpp>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace qrftp {

/// A name in an open local folder.
struct local_place {
    std::shared_ptr<zorbel::io::common::file::Folder> folder;
    std::string name;
    std::filesystem::path shown; ///< as errors name it
    bool is_stream = false;      ///< a link to a pipe or a device, or a descriptor: used as it is

    /// How the name is to be opened.
    [[nodiscard]] zorbel::io::common::file::Folder::Links links() const
    {
        using enum zorbel::io::common::file::Folder::Links;
        return is_stream ? follow : refuse;
    }
};

/// Where the local `path` is. A symbolic link there stands for what it leads to, whether that exists or not,
/// unless it is not to be followed.
local_place find_local_place(const std::filesystem::path& path, bool follow = true);

/// A local file that a download writes.
///
/// It collects what arrives under a temporary name beside the target and gives it the target's name in the end;
/// if that never comes, it is removed with the object, but not with `resume`. With `in_place` it writes to the
/// target itself, as it does where the target is a device or a pipe, or to be completed, which one in a tree
/// never is. Nothing is made or changed before `open`. Throws `LocalFileError`, `AlreadyExists`, `UnsafeName`.
class local_target {
public:
    local_target(local_place place, transfer_options options, bool is_in_tree = false);
    local_target(const local_target&) = delete;
    local_target& operator=(const local_target&) = delete;
    ~local_target();

    /// The target as errors name it.
    [[nodiscard]] std::string shown() const { return place_.shown.string(); }
    /// With `resume`: looks for what an earlier transfer from `source`, of this size and time, has left, and
    /// returns how much that is.
    std::uint64_t find_part(const std::string& source, const file_facts& facts);
    /// Whether bytes may be written in any order.
    [[nodiscard]] bool has_places() const { return has_places_; }

    /// Opens it, keeping `kept` bytes of what is there. A second call does nothing. False where it is a pipe
    /// that nobody reads yet: to be tried again.
    [[nodiscard]] bool open(std::uint64_t kept);
    /// Returns how much was written: less than all, or nothing, to a pipe whose reader is slow.
    std::size_t write(std::uint64_t position, std::string_view bytes);
    /// How long it is now; nothing where that has no meaning.
    [[nodiscard]] std::optional<std::uint64_t> size() const;
    /// Forgets what was written; false where it went to a device or a pipe, or follows what was found there.
    bool restart();
    /// It is not what it should be: nothing of it is kept.
    void discard() { keeps_part_ = false; }
    /// The checksum of what is there now; nothing where it went to a device or a pipe.
    [[nodiscard]] std::optional<checksum> content(hash_algorithm algorithm) const;
    /// Closes it; it then has the target's name, and what `source` and the options give it.
    void commit(const file_facts& source);

private:
    using status = zorbel::io::common::file::Status;

    [[nodiscard]] std::filesystem::perms final_mode(const file_facts& source) const;
    void refuse_existing() const;
    bool open_target();
    void open_part();
    void lock();
    [[nodiscard]] std::unique_ptr<zorbel::io::common::file::LocalFile> open_written() const;

    local_place place_;
    transfer_options options_;
    std::optional<status> existing_;
    bool completes_;      ///< a target that is there
    bool direct_ = false; ///< written to under its own name
    bool has_places_ = true;
    std::uint64_t kept_ = 0;
    std::string temporary_;
    std::optional<status> part_; ///< what an earlier transfer left
    bool keeps_part_ = false;
    std::unique_ptr<zorbel::io::common::file::LocalFile> file_;
};

} // namespace qrftp
