#include <zorbel/io/common/file/MemoryFileSystem.hpp>

#include <foundation/core/except/Exception.hpp>
#include <zorbel/io/common/file/errors.hpp>

#include <algorithm>
#include <cstddef>
#include <utility>

namespace zorbel::io::common::file {

namespace {

using foundation::core::except::raise;
namespace errors = ZORBEL::io::common::file;

class MemoryStream final : public Stream {
public:
    MemoryStream(std::filesystem::path path, std::shared_ptr<std::string> content, bool for_reading)
        : path_(std::move(path)), content_(std::move(content)), for_reading_(for_reading)
    {
    }

    long read(char* buffer, long count) override
    {
        check(for_reading_);
        const std::size_t place = std::min(position_, content_->size());
        const std::size_t got = content_->copy(buffer, static_cast<std::size_t>(std::max(count, 0L)), place);
        position_ = place + got;
        return static_cast<long>(got);
    }

    long write(const char* data, long count) override
    {
        check(!for_reading_);
        content_->append(data, static_cast<std::size_t>(std::max(count, 0L)));
        return std::max(count, 0L);
    }

    void close() override { content_.reset(); }

private:
    void check(bool suits) const
    {
        if (!content_ || !suits) {
            raise<errors::FileError>(display_path(path_),
                                     content_ ? "it was opened for something else" : "it is closed");
        }
    }

    std::filesystem::path path_;
    std::shared_ptr<std::string> content_;
    bool for_reading_;
    std::size_t position_ = 0;
};

} // namespace

std::shared_ptr<Stream> MemoryFileSystem::open(const std::filesystem::path& path, OpenMode mode)
{
    if (mode != OpenMode::read) {
        const std::lock_guard lock(mutex_);
        files_[path] = std::make_shared<std::string>();
    }
    return std::make_shared<MemoryStream>(path, find(path), mode == OpenMode::read);
}

std::uint64_t MemoryFileSystem::size(const std::filesystem::path& path)
{
    return find(path)->size();
}

void MemoryFileSystem::put(const std::filesystem::path& path, std::string content)
{
    const std::lock_guard lock(mutex_);
    files_[path] = std::make_shared<std::string>(std::move(content));
}

std::string MemoryFileSystem::get(const std::filesystem::path& path) const
{
    return *find(path);
}

std::shared_ptr<std::string> MemoryFileSystem::find(const std::filesystem::path& path) const
{
    const std::lock_guard lock(mutex_);
    const auto found = files_.find(path);
    if (found == files_.end()) {
        raise<errors::NoSuchFile>(display_path(path));
    }
    return found->second;
}

} // namespace zorbel::io::common::file
