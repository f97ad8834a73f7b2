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

/// What stands before the real `Inner`. It is made first: what was opened is not to be lost.
template <class Inner, class Owner>
class FaultyFileSystem::Before : public Inner {
public:
    explicit Before(std::shared_ptr<Orders> orders) : orders_(std::move(orders)) {}
    void attach(Owner inner) { inner_ = std::move(inner); }

protected:
    [[nodiscard]] Inner& meets(Call call) const
    {
        orders_->obey(call);
        return *inner_;
    }

    Owner inner_;
    std::shared_ptr<Orders> orders_;
};

class FaultyFileSystem::FaultyStream final : public Before<Stream, std::shared_ptr<Stream>> {
public:
    using Before::Before;

    long read(char* buffer, long count) override { return meets(Call::read).read(buffer, count); }
    long write(const char* data, long count) override
    {
        const bool whole = orders_->obey(Call::write);
        return inner_->write(data, whole ? count : count / 2);
    }
    void close() override { meets(Call::close).close(); }
};

class FaultyFileSystem::FaultyFile final : public Before<LocalFile, std::unique_ptr<LocalFile>> {
public:
    using Before::Before;

    Status status() const override { return meets(Call::size).status(); }
    std::size_t read(std::uint64_t position, std::span<char> buffer) override
    {
        return meets(Call::read).read(position, buffer);
    }
    void write(std::uint64_t position, std::string_view bytes) override
    {
        meets(Call::write).write(position, bytes);
    }
    std::size_t write_some(std::string_view bytes, std::chrono::milliseconds longest) override
    {
        return meets(Call::write).write_some(bytes, longest);
    }
    void truncate(std::uint64_t size) override { meets(Call::write).truncate(size); }
    void set_mode(std::filesystem::perms mode) override { meets(Call::change).set_mode(mode); }
    void set_modification_time(std::chrono::sys_seconds time) override
    {
        meets(Call::change).set_modification_time(time);
    }
    void sync() override { meets(Call::write).sync(); }
    bool lock() override { return inner_->lock(); }
    void close() override { meets(Call::close).close(); }
};

class FaultyFileSystem::FaultyFolder final : public Before<Folder, std::shared_ptr<Folder>> {
public:
    using Before::Before;

    std::vector<std::string> names() const override { return meets(Call::read).names(); }
    std::optional<Status> status(const std::string& name, Links links) const override
    {
        return meets(Call::size).status(name, links);
    }
    std::shared_ptr<Folder> open_folder(const std::string& name, Links links) const override
    {
        auto folder = std::make_shared<FaultyFolder>(orders_);
        folder->attach(meets(Call::open).open_folder(name, links));
        return folder;
    }
    std::unique_ptr<LocalFile> open_file(const std::string& name, Open how, Links links) const override
    {
        auto file = std::make_unique<FaultyFile>(orders_);
        file->attach(meets(Call::open).open_file(name, how, links));
        return file;
    }
    void make_folder(const std::string& name) override { meets(Call::change).make_folder(name); }
    // Never fails, or what is left shows it.
    void remove_file(const std::string& name) override { inner_->remove_file(name); }
    void remove_folder(const std::string& name) override { meets(Call::change).remove_folder(name); }
    void make_link(const std::string& name, const std::string& target) override
    {
        meets(Call::change).make_link(name, target);
    }
    std::string link_target(const std::string& name) const override
    {
        return meets(Call::read).link_target(name);
    }
    void rename(const std::string& from, const std::string& to, bool replace) override
    {
        meets(Call::change).rename(from, to, replace);
    }
    void sync() override { meets(Call::write).sync(); }
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
    auto stream = std::make_shared<FaultyStream>(orders_);
    stream->attach(inner_->open(path, mode));
    return stream;
}

std::uint64_t FaultyFileSystem::size(const std::filesystem::path& path)
{
    orders_->obey(Call::size);
    return inner_->size(path);
}

std::shared_ptr<Folder> FaultyFileSystem::open_folder(const std::filesystem::path& path)
{
    orders_->obey(Call::open);
    auto folder = std::make_shared<FaultyFolder>(orders_);
    folder->attach(inner_->open_folder(path));
    return folder;
}

} // namespace support
