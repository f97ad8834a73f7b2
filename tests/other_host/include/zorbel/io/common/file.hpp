#pragma once

#include <fl/ustring.hpp>
#include <other_host.hpp>

#include <cstddef>
#include <exception>
#include <map>
#include <memory>
#include <string>
#include <variant>

namespace zorbel::io::common::file {

using content = std::shared_ptr<std::string>;

/// All files of this host are in memory. The one of the name "secret" may not be read.
OTHER_HOST std::map<fl::ustring, content>& files();

/// An open file; its copies read on where the others stopped.
struct File {
    content bytes;
    std::shared_ptr<std::size_t> position = std::make_shared<std::size_t>(0);
};

struct Operation {};

struct vfs_file {
    content bytes;
    const vfs_file& getAttributes() const { return *this; }
    unsigned long getSize() const { return bytes->size(); }
};

OTHER_HOST File make_readable_file(const fl::ustring& path);
OTHER_HOST File make_writeable_file(const fl::ustring& path);
OTHER_HOST vfs_file make_vfs_file(const fl::ustring& path);
OTHER_HOST std::variant<long, std::exception_ptr> read(File file, char* buffer, long count) noexcept;
OTHER_HOST std::variant<long, std::exception_ptr> write(File file, const char* data, long count) noexcept;
OTHER_HOST std::exception_ptr close(File file) noexcept;
OTHER_HOST void handle_exception(std::exception_ptr failure, File file, Operation operation);

} // namespace zorbel::io::common::file
