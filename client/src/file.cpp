#include "random_reader.hpp"

#include <qrftp/error.hpp>
#include <qrftp/file.hpp>

#include <utility>

namespace qrftp {

std::vector<std::string> random_reader::read(std::span<const file_range> ranges)
{
    std::vector<std::string> results;
    results.reserve(ranges.size());
    for (const file_range& each : ranges) {
        std::string& bytes = results.emplace_back(each.length, '\0');
        bytes.resize(read(each.offset, bytes));
    }
    return results;
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
