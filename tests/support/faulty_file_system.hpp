#pragma once

#include <zorbel/io/common/file/FileSystem.hpp>

#include <exception>

namespace support {

using zorbel::io::common::file::FileSystem;
using zorbel::io::common::file::Folder;
using zorbel::io::common::file::LocalFile;
using zorbel::io::common::file::OpenMode;
using zorbel::io::common::file::Status;
using zorbel::io::common::file::Stream;

/// Injects the failures that a test asked for into another file system. Files that it opened keep failing as
/// asked after it is gone. One thread at a time.
class FaultyFileSystem final : public FileSystem {
public:
    enum class Call {
        open, ///< a file or a folder
        size, ///< or anything else that is told of a name
        read,
        write,
        close,
        change, ///< of a name or of what belongs to it: rename, remove, mode, time
        any,
    };

    explicit FaultyFileSystem(std::shared_ptr<FileSystem> inner);

    /// The `number`th call of this kind from now, counted from 1, throws `failure` instead of being made;
    /// without a failure, a write takes half of its bytes and returns the shorter count. A later request for
    /// the same kind replaces the earlier one; number 0 takes it back.
    void fail(Call call, unsigned number, std::exception_ptr failure);

    /// Whether the failure that was asked for is still to come.
    bool pending(Call call) const;

    std::shared_ptr<Stream> open(const std::filesystem::path& path, OpenMode mode) override;
    std::uint64_t size(const std::filesystem::path& path) override;
    std::shared_ptr<Folder> open_folder(const std::filesystem::path& path) override;

private:
    template <class Inner, class Owner>
    class Before;
    class FaultyStream;
    class FaultyFile;
    class FaultyFolder;
    struct Orders;

    std::shared_ptr<FileSystem> inner_;
    std::shared_ptr<Orders> orders_;
};

} // namespace support
