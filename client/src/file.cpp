#include "random_reader.hpp"

#include <qrftp/error.hpp>
#include <qrftp/file.hpp>

#include <algorithm>
#include <utility>

namespace qrftp {

std::vector<std::string> random_reader::read(std::span<const file_range> ranges)
{
    std::vector<std::string> results;
    results.reserve(ranges.size());
    for (const file_range& each : ranges) {
        results.push_back(read_on(each.offset, each.length));
    }
    return results;
}

std::string random_reader::read_on(std::uint64_t offset, std::uint64_t length)
{
    std::string bytes;
    for (bool at_end = false; !at_end && bytes.size() < length;) {
        const std::size_t before = bytes.size();
        bytes.resize(before + std::min(length - before, read_step));
        const std::span<char> room = std::span(bytes).subspan(before);
        const std::size_t got = read(offset + before, room);
        at_end = got < room.size();
        bytes.resize(before + got);
    }
    return bytes;
}

remote_file::remote_file(std::unique_ptr<random_reader> reader) : reader_(std::move(reader))
{
}

remote_file::remote_file(remote_file&&) noexcept = default;
remote_file& remote_file::operator=(remote_file&&) noexcept = default;
remote_file::~remote_file() = default;

random_reader& remote_file::opened() const
{
    if (reader_ == nullptr) {
        throw Closed("file");
    }
    return *reader_;
}

std::optional<std::uint64_t> remote_file::size() const
{
    return opened().size();
}

std::size_t remote_file::read(std::uint64_t offset, std::span<char> buffer)
{
    return opened().read(offset, buffer);
}

std::vector<std::string> remote_file::read(std::span<const file_range> ranges)
{
    return opened().read(ranges);
}

void remote_file::close() noexcept
{
    reader_.reset();
}

} // namespace qrftp
