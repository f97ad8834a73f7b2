#include "faulty_file_system.hpp"

#include <map>
#include <utility>

namespace support {

struct FaultyFileSystem::Orders {
    struct Order {
        unsigned calls_left;
        std::exception_ptr failure;
    };

    /// Whether the call is to be made in full.
    bool obey(Call call)
    {
        bool whole = true;
        for (const Call kind : {call, Call::any}) {
            const auto order = by_call.find(kind);
            if (order == by_call.end() || order->second.calls_left == 0 || --order->second.calls_left > 0) {
                continue;
            }
            if (order->second.failure) {
                std::rethrow_exception(order->second.failure);
            }
            whole = false;
        }
        return whole;
    }

    std::map<Call, Order> by_call;
};

class FaultyFileSystem::FaultyStream final : public Stream {
public:
    explicit FaultyStream(std::shared_ptr<Orders> orders) : orders_(std::move(orders)) {}

    void attach(std::shared_ptr<Stream> inner) { inner_ = std::move(inner); }

    long read(char* buffer, long count) override
    {
        orders_->obey(Call::read);
        return inner_->read(buffer, count);
    }

    long write(const char* data, long count) override
    {
        const bool whole = orders_->obey(Call::write);
        return inner_->write(data, whole ? count : count / 2);
    }

    void seek(std::uint64_t position) override
    {
        orders_->obey(Call::seek);
        inner_->seek(position);
    }

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

bool FaultyFileSystem::pending(Call call) const
{
    const auto order = orders_->by_call.find(call);
    return order != orders_->by_call.end() && order->second.calls_left > 0;
}

std::shared_ptr<Stream> FaultyFileSystem::open(const std::filesystem::path& path, OpenMode mode)
{
    orders_->obey(Call::open);
    auto stream = std::make_shared<FaultyStream>(orders_); // first: a file that was made is not to be lost
    stream->attach(inner_->open(path, mode));
    return stream;
}

std::uint64_t FaultyFileSystem::size(const std::filesystem::path& path)
{
    orders_->obey(Call::size);
    return inner_->size(path);
}

} // namespace support
