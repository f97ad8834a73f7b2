#include "fetch.hpp"

#include "verify.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace qrftp {

namespace {

/// A longer file is not worth being fetched twice to save one round trip.
constexpr std::uint64_t small_file = std::uint64_t{1} << 20;

} // namespace

void throw_size_mismatch(const std::string& path, std::uint64_t got, std::uint64_t of)
{
    throw SizeMismatch(path, fmt::format("{} of {} bytes", got, of));
}

std::uint64_t resume_point(const std::string& target, std::uint64_t there, std::uint64_t whole)
{
    if (there > whole) {
        throw CannotResume(target, fmt::format("it has {} bytes already, and the file only {}", there, whole));
    }
    return there;
}

file_download::file_download(std::string server, std::string path, local_place place,
                             const transfer_options& options, meter& progress, file_facts known, unsigned parts,
                             bool is_in_tree)
    : download(std::move(path)), server_(std::move(server)), options_(options), meter_(progress),
      target_(std::move(place), options, is_in_tree), known_(std::move(known)), parts_left_(parts)
{
}

std::optional<std::uint64_t> file_download::listed_size() const
{
    const bool temporary = !options_.in_place && !options_.resume;
    return temporary && options_.listed_size <= small_file ? options_.listed_size : std::nullopt;
}

void file_download::learn(const file_facts& source)
{
    if (source.size) {
        if (size_ && *size_ != *source.size) {
            throw SizeMismatch(path(), "it changes while it is fetched");
        }
        size_ = source.size;
    }
    if (modified_ && source.modified && *modified_ != *source.modified) {
        throw SizeMismatch(path(), "it changes while it is fetched");
    }
    modified_ = source.modified ? source.modified : modified_;
    known_.modified = known_.modified ? known_.modified : source.modified;
    known_.mode = source.mode ? source.mode : known_.mode;
}

byte_range file_download::begin(const file_facts& source)
{
    const std::lock_guard lock(mutex_);
    learn(source);
    byte_range wanted;
    found_ = target_.find_part(server_ + path(), {.size = source.size, .modified = known_.modified});
    if (found_ > 0) {
        if (!source.size) {
            throw CannotResume(target_.shown(),
                               fmt::format("the server does not tell the size of \"{}\"", path()));
        }
        wanted.begin = resume_point(target_.shown(), found_, *source.size);
    }
    meter_.start(source.size.value_or(options_.listed_size.value_or(0)), wanted.begin);
    while (!target_.open(wanted.begin)) {
        meter_.pause();
    }
    return wanted;
}

void file_download::write(std::uint64_t offset, std::string_view bytes)
{
    while (!bytes.empty()) {
        const std::size_t written = target_.write(offset, bytes);
        bytes.remove_prefix(written);
        offset += written;
        written > 0 ? meter_.add(written) : meter_.tick();
    }
}

bool file_download::restart()
{
    const std::lock_guard lock(mutex_);
    size_.reset();
    modified_.reset();
    known_.modified.reset();
    meter_.restart();
    return target_.restart();
}

void file_download::finish(const file_facts& source)
{
    const std::lock_guard lock(mutex_);
    learn(source);
    if (--parts_left_ > 0) {
        return;
    }
    const std::uint64_t got = target_.size().value_or(found_ + meter_.moved());
    if (size_ && got != *size_) {
        target_.discard();
        throw_size_mismatch(path(), got, *size_);
    }
    if (source.content) {
        if (const auto here = target_.content(source.content->algorithm); here && *here != *source.content) {
            target_.discard();
            check_same(path(), *here, *source.content);
        }
    }
    target_.commit(known_);
    meter_.finish();
}

data_download::data_download(std::string path, const std::function<bool(std::string_view)>& on_data,
                             const transfer_options& options, meter& progress,
                             const std::optional<checksum_method>& verify)
    : download(std::move(path)), on_data_(on_data), retries_(options.retries), meter_(progress)
{
    if (verify) {
        content_.emplace(verify->algorithm);
    }
    range_.begin = options.offset;
    if (options.length && *options.length < byte_range::to_the_end - options.offset) {
        range_.end = options.offset + *options.length;
    }
}

byte_range data_download::begin(const file_facts& source)
{
    if (source.size) {
        const std::uint64_t end = std::min(range_.end, *source.size);
        expected_ = end > range_.begin ? end - range_.begin : 0;
    }
    meter_.start(expected_.value_or(0), 0);
    return range_;
}

void data_download::write(std::uint64_t /*offset*/, std::string_view bytes)
{
    meter_.add(bytes.size());
    if (content_) {
        content_->add(bytes);
    }
    if (!on_data_(bytes)) {
        throw Cancelled(path());
    }
}

void data_download::finish(const file_facts& source)
{
    if (expected_ && meter_.moved() != *expected_) {
        throw_size_mismatch(path(), meter_.moved(), *expected_);
    }
    if (content_ && source.content) {
        check_same(path(), content_->finish(), *source.content);
    }
    meter_.finish();
}

} // namespace qrftp
