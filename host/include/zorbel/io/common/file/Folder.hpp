#pragma once

#include <zorbelhost_export.hpp>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zorbel::io::common::file {

/// What there is under a local name.
struct Status {
    std::filesystem::file_type type = std::filesystem::file_type::none;
    std::uint64_t size = 0;
    std::chrono::sys_seconds modified{}; ///< rounded down
    std::filesystem::perms mode{};
    std::uint64_t device = 0; ///< with `inode`, tells one file from all others
    std::uint64_t inode = 0;
    std::uint64_t owner = 0; ///< the user's number
    std::uint64_t names = 0; ///< how many it has (hard links)
};

/// An open local file, read and written at any place. Closed with the object; `close` reports what that meets.
/// Throws `std::filesystem::filesystem_error`. Calls for different places may run side by side.
class ZORBELHOST_EXPORT LocalFile {
public:
    virtual ~LocalFile();

    [[nodiscard]] virtual Status status() const = 0;
    /// How many bytes were read; 0 at the end. Of a file without places (a pipe), the next ones whatever
    /// `position`.
    virtual std::size_t read(std::uint64_t position, std::span<char> buffer) = 0;
    /// Writes all of `bytes`. To a file without places they are appended.
    virtual void write(std::uint64_t position, std::string_view bytes) = 0;
    /// For files without places: writes the beginning of `bytes`, as much as is taken within `longest`, and
    /// returns how much that was, 0 when none.
    virtual std::size_t write_some(std::string_view bytes, std::chrono::milliseconds longest) = 0;
    virtual void truncate(std::uint64_t size) = 0;
    virtual void set_mode(std::filesystem::perms mode) = 0;
    virtual void set_modification_time(std::chrono::sys_seconds time) = 0;
    /// Returns when the storage has the content.
    virtual void sync() = 0;
    /// Whether nobody else holds the lock on the file, which this object then has until it is closed.
    virtual bool lock() = 0;
    virtual void close() = 0;
};

/// An open local folder. What is reached through it is below it, whatever becomes of its path meanwhile: names
/// are single segments, and a symbolic link is followed only where `follow` says so. Throws
/// `std::filesystem::filesystem_error`. Calls may run side by side.
class ZORBELHOST_EXPORT Folder {
public:
    enum class Links { refuse, follow };
    enum class Open {
        read,
        create, ///< must not be there yet; made for this user alone
        update, ///< made when missing, as the umask allows; keeps what is in it. A pipe that nobody reads is
                ///< `std::errc::no_such_device_or_address`.
        append, ///< the same; everything goes to the end
    };

    virtual ~Folder();

    /// The names in the folder but "." and "..", in no order.
    [[nodiscard]] virtual std::vector<std::string> names() const = 0;
    /// Nothing where there is nothing of that name.
    [[nodiscard]] virtual std::optional<Status> status(const std::string& name,
                                                       Links links = Links::refuse) const = 0;
    [[nodiscard]] virtual std::shared_ptr<Folder> open_folder(const std::string& name,
                                                              Links links = Links::refuse) const = 0;
    [[nodiscard]] virtual std::unique_ptr<LocalFile> open_file(const std::string& name, Open how,
                                                               Links links = Links::refuse) const = 0;
    virtual void make_folder(const std::string& name) = 0;
    /// Removes a file, or a link itself.
    virtual void remove_file(const std::string& name) = 0;
    virtual void remove_folder(const std::string& name) = 0;
    /// Makes a symbolic link that says `target`; what is there is an error.
    virtual void make_link(const std::string& name, const std::string& target) = 0;
    /// What a symbolic link says.
    [[nodiscard]] virtual std::string link_target(const std::string& name) const = 0;
    /// Gives `from` the name `to`. Without `replace`, something that has it is an error
    /// (`std::errc::file_exists`).
    virtual void rename(const std::string& from, const std::string& to, bool replace) = 0;
    /// Returns when the storage has the names.
    virtual void sync() = 0;
};

/// Opens the folder `path`, through the file system in place.
[[nodiscard]] ZORBELHOST_EXPORT std::shared_ptr<Folder> open_folder(const std::filesystem::path& path);

/// The mode that a new file gets when nothing else is asked for: 0666 less the umask.
[[nodiscard]] ZORBELHOST_EXPORT std::filesystem::perms default_file_mode();

} // namespace zorbel::io::common::file
