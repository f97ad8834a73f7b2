#include "file_reader.hpp"

#include "attributes.hpp"

#include <algorithm>
#include <limits>
#include <utility>

namespace qrftp::sftp {

namespace {

/// How many bytes may be asked for without having been answered.
constexpr std::uint64_t max_bytes_asked = std::uint64_t{4} << 20;
constexpr std::size_t max_reads = 4096; ///< however small the ranges are

} // namespace

/// Parts of a file that are being read, each into a buffer of its own.
class file_reader::range_reads final : public reply_handler {
public:
    struct range {
        std::uint64_t offset;
        std::span<char> buffer;
        std::size_t end; ///< how far the file goes, as far as is known
    };

    range_reads(std::vector<range> ranges, const std::string& path) : ranges_(std::move(ranges)), path_(path) {}

    void run(pipeline& server, const file_handle& file)
    {
        server_ = &server;
        file_ = &file;
        in_flight_ = 0;
        try {
            for (std::uint32_t index = 0; index < ranges_.size(); ++index) {
                send_range(index);
            }
            while (in_flight_ > 0) {
                server.pump();
            }
        } catch (...) {
            server.abandon(*this);
            throw;
        }
    }

    [[nodiscard]] std::size_t length(std::size_t index) const { return ranges_[index].end; }

    void on_reply(const request_tag& tag, const reply& answer) override
    {
        in_flight_ -= tag.length;
        range& target = ranges_[tag.step];
        const auto place = static_cast<std::size_t>(tag.offset - target.offset);
        if (answer.is_status(status_code::eof)) {
            target.end = std::min(target.end, place);
            return;
        }
        answer.check(path_);
        const std::string_view bytes = answer.data();
        if (bytes.size() > tag.length || bytes.empty()) {
            throw ProtocolError(path_, "READ was answered with another number of bytes");
        }
        bytes.copy(target.buffer.data() + place, bytes.size());
        if (bytes.size() < tag.length) { // The rest is asked for once more: only EOF tells the end.
            ask(tag.step, tag.offset + bytes.size(), tag.length - static_cast<std::uint32_t>(bytes.size()));
        }
    }

private:
    void send_range(std::uint32_t index)
    {
        const range& wanted = ranges_[index];
        for (std::size_t place = 0; place < wanted.end;) {
            const auto length =
                static_cast<std::uint32_t>(std::min<std::size_t>(server_->limits().read, wanted.end - place));
            ask(index, wanted.offset + place, length);
            place += length;
            while (in_flight_ >= max_bytes_asked || server_->outstanding() >= max_reads) {
                server_->pump();
            }
        }
    }

    void ask(std::uint32_t index, std::uint64_t offset, std::uint32_t length)
    {
        server_->send(packet_type::read, {this, index, length, offset}, *file_, offset, length);
        in_flight_ += length;
    }

    std::vector<range> ranges_;
    const std::string& path_;
    pipeline* server_ = nullptr;
    const file_handle* file_ = nullptr;
    std::uint64_t in_flight_ = 0;
};

file_reader::file_reader(connection_function connected, std::string path)
    : connected_(std::move(connected)), path_(std::move(path))
{
    open(connected_(true));
}

file_reader::~file_reader()
{
    try {
        const auto server = connected_(false);
        if (server && server == opened_at_.lock()) {
            server->call(packet_type::close, handle_);
        }
    } catch (...) { // NOLINT(bugprone-empty-catch): the server closes what a connection had open
    }
}

void file_reader::open(const std::shared_ptr<pipeline>& server)
{
    const reply opened = server->call(packet_type::open, path_, open_flag::read, attributes());
    opened.check(path_);
    handle_ = opened.handle();
    opened_at_ = server;
    const reply status = server->call(packet_type::fstat, handle_);
    if (status.is_status()) {
        return; // A server may tell nothing about open files.
    }
    const attributes told = status.attrs();
    if (kind_of(told) == entry_kind::folder) {
        opened_at_.reset();
        server->call(packet_type::close, handle_);
        throw IsFolder(path_);
    }
    size_ = told.size;
}

std::size_t file_reader::read(std::uint64_t offset, std::span<char> buffer)
{
    if (buffer.empty() || offset > std::numeric_limits<std::uint64_t>::max() - buffer.size()) {
        return 0;
    }
    range_reads wanted({{offset, buffer, buffer.size()}}, path_);
    read_all(wanted);
    return wanted.length(0);
}

std::vector<std::string> file_reader::read(std::span<const file_range> ranges)
{
    std::vector<std::string> results;
    std::vector<range_reads::range> parts;
    results.reserve(ranges.size());
    for (const file_range& each : ranges) {
        const std::uint64_t known = std::max(size_.value_or(0), each.offset) - each.offset;
        const std::uint64_t countable = std::numeric_limits<std::uint64_t>::max() - each.offset;
        std::string& bytes = results.emplace_back(
            std::min({each.length, std::max(known, read_step), countable, most_at_once}), '\0');
        parts.push_back({each.offset, bytes, bytes.size()});
    }
    range_reads wanted(std::move(parts), path_);
    read_all(wanted);
    for (std::size_t i = 0; i < results.size(); ++i) {
        const std::uint64_t room = results[i].size();
        results[i].resize(wanted.length(i));
        if (results[i].size() == room && room < ranges[i].length) {
            results[i] += read_on(ranges[i].offset + room, ranges[i].length - room);
        }
    }
    return results;
}

void file_reader::read_all(range_reads& wanted)
{
    for (bool again = false;; again = true) {
        const auto server = connected_(true);
        try {
            if (server != opened_at_.lock()) {
                open(server);
            }
            wanted.run(*server, handle_);
            return;
        } catch (const ConnectionLost&) {
            if (again) {
                throw;
            }
        }
    }
}

} // namespace qrftp::sftp
