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
    MemoryStream(fl::ustring path, std::shared_ptr<std::string> content, bool for_reading)
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
            raise<errors::FileError>(path_, content_ ? "it was opened for something else" : "it is closed");
        }
    }

    fl::ustring path_;
    std::shared_ptr<std::string> content_;
    bool for_reading_;
    std::size_t position_ = 0;
};

} // namespace

std::shared_ptr<Stream> MemoryFileSystem::open_for_reading(const fl::ustring& path)
{
    return std::make_shared<MemoryStream>(path, find(path), true);
}

std::shared_ptr<Stream> MemoryFileSystem::open_for_writing(const fl::ustring& path)
{
    put(path, {});
    return std::make_shared<MemoryStream>(path, find(path), false);
}

std::uint64_t MemoryFileSystem::size(const fl::ustring& path)
{
    return find(path)->size();
}

void MemoryFileSystem::put(const fl::ustring& path, std::string content)
{
    const std::lock_guard lock(mutex_);
    files_[path] = std::make_shared<std::string>(std::move(content));
}

std::string MemoryFileSystem::get(const fl::ustring& path) const
{
    return *find(path);
}

std::shared_ptr<std::string> MemoryFileSystem::find(const fl::ustring& path) const
{
    const std::lock_guard lock(mutex_);
    const auto found = files_.find(path);
    if (found == files_.end()) {
        raise<errors::NoSuchFile>(path);
    }
    return found->second;
}

} // namespace zorbel::io::common::file
