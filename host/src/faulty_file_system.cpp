#include <zorbel/io/common/file/FaultyFileSystem.hpp>

#include <algorithm>
#include <limits>
#include <map>
#include <utility>

namespace zorbel::io::common::file {

struct FaultyFileSystem::Orders {
    struct Order {
        unsigned calls_left;
        std::exception_ptr failure;
    };

    void obey(Call call)
    {
        const auto order = by_call.find(call);
        if (order != by_call.end() && order->second.calls_left > 0 && --order->second.calls_left == 0) {
            std::rethrow_exception(order->second.failure);
        }
    }

    std::map<Call, Order> by_call;
    long most_written = std::numeric_limits<long>::max();
};

class FaultyFileSystem::FaultyStream final : public Stream {
public:
    FaultyStream(std::shared_ptr<Stream> inner, std::shared_ptr<Orders> orders)
        : inner_(std::move(inner)), orders_(std::move(orders))
    {
    }

    long read(char* buffer, long count) override
    {
        orders_->obey(Call::read);
        return inner_->read(buffer, count);
    }

    long write(const char* data, long count) override
    {
        orders_->obey(Call::write);
        return inner_->write(data, std::min(count, orders_->most_written));
    }

    void seek(std::uint64_t position) override { inner_->seek(position); }

    void close() override
    {
        orders_->obey(Call::close);
        inner_->close();
    }

private:
    std::shared_ptr<Stream> inner_;
    std::shared_ptr<Orders> orders_;
};

FaultyFileSystem::FaultyFileSystem(std::shared_ptr<FileSystem> inner)
    : inner_(std::move(inner)), orders_(std::make_shared<Orders>())
{
}

void FaultyFileSystem::fail(Call call, unsigned number, std::exception_ptr failure)
{
    orders_->by_call[call] = {.calls_left = number, .failure = std::move(failure)};
}

void FaultyFileSystem::shorten_writes(long most)
{
    orders_->most_written = most;
}

std::shared_ptr<Stream> FaultyFileSystem::open(const std::filesystem::path& path, OpenMode mode)
{
    orders_->obey(Call::open);
    return std::make_shared<FaultyStream>(inner_->open(path, mode), orders_);
}

std::uint64_t FaultyFileSystem::size(const std::filesystem::path& path)
{
    orders_->obey(Call::size);
    return inner_->size(path);
}

} // namespace zorbel::io::common::file
