#include "sftp_peer.hpp"

#include "follow_links.hpp"

#include <poll.h>

#include <algorithm>

using namespace qrftp::sftp;

namespace {

constexpr std::uint32_t type_bits = 0170000;
constexpr std::uint32_t link_type = 0120000;

template <class... Fields>
std::string encode(packet_type type, const Fields&... fields)
{
    byte_queue out;
    packet_writer packet(out, type);
    (packet.put(fields), ...);
    packet.finish();
    return std::string(out.bytes());
}

attributes attributes_of(const sftp_peer::node& node)
{
    return {.size = node.content.size(),
            .owner = attributes::identifiers{1000, 1000},
            .permissions = node.mode,
            .time = attributes::times{node.modified, node.modified}};
}

std::string parent(const std::string& path)
{
    const auto slash = path.rfind('/');
    return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

bool is_folder(const sftp_peer::node& node)
{
    return (node.mode & type_bits) == 0040000;
}

} // namespace

std::string status_packet(std::uint32_t id, status_code code, std::string_view message)
{
    return encode(packet_type::status, id, static_cast<std::uint32_t>(code), message, "en");
}

std::string handle_packet(std::uint32_t id, std::string_view handle)
{
    return encode(packet_type::handle, id, handle);
}

std::string data_packet(std::uint32_t id, std::string_view data)
{
    return encode(packet_type::data, id, data);
}

std::string attrs_packet(std::uint32_t id, const attributes& values)
{
    byte_queue out;
    packet_writer packet(out, packet_type::attrs);
    packet.put(id);
    put(packet, values);
    packet.finish();
    return std::string(out.bytes());
}

std::string name_packet(std::uint32_t id, const std::vector<std::pair<std::string, attributes>>& names,
                        std::string_view long_name)
{
    byte_queue out;
    packet_writer packet(out, packet_type::name);
    packet.put(id);
    packet.put(static_cast<std::uint32_t>(names.size()));
    for (const auto& [name, values] : names) {
        packet.put(name);
        packet.put(long_name);
        put(packet, values);
    }
    packet.finish();
    return std::string(out.bytes());
}

sftp_peer::sftp_peer() = default;

void sftp_peer::reconnect()
{
    input_.truncate(0);
    output.clear();
    handles_.clear();
    has_init_ = false;
    is_cut_ = false;
}

void sftp_peer::cut_at(packet_type type, std::size_t count, bool carried_out)
{
    cut_after_requests(count, carried_out);
    cut_type_ = type;
}

void sftp_peer::cut_after_requests(std::size_t count, bool carried_out)
{
    cut_type_.reset();
    requests_to_cut_ = count;
    cut_is_carried_out_ = carried_out;
}

bool sftp_peer::counts_for_cut(packet_type type)
{
    return requests_to_cut_ > 0 && (!cut_type_ || *cut_type_ == type) && --requests_to_cut_ == 0;
}

std::size_t sftp_peer::count(packet_type type) const
{
    const auto found = counts_.find(type);
    return found == counts_.end() ? 0 : found->second;
}

void sftp_peer::receive(std::string_view bytes)
{
    input_.append(bytes);
    while (input_.size() >= 4 && !is_cut()) {
        const std::size_t length = packet_reader(input_.bytes()).read_u32();
        if (input_.size() - 4 < length) {
            break;
        }
        handle(input_.bytes().substr(4, length));
        input_.consume(4 + length);
    }
    if (reorder) {
        reorder(answers_);
    }
    for (const auto& answer : answers_) {
        output += answer;
    }
    answers_.clear();
}

void sftp_peer::handle(std::string_view packet)
{
    packet_reader fields(packet);
    const auto type = static_cast<packet_type>(fields.read_u8());
    if (!has_init_) {
        has_init_ = true;
        byte_queue out;
        packet_writer version(out, packet_type::version);
        version.put(std::uint32_t{3});
        for (const auto& [name, data] : extensions) {
            version.put(name);
            version.put(data);
        }
        version.finish();
        answers_.emplace_back(out.bytes());
        return;
    }
    const std::uint32_t id = fields.read_u32();
    const request asked{type, id, fields};
    ++counts_[type];
    is_cut_ = counts_for_cut(type);
    if (is_cut_) {
        if (cut_is_carried_out_) {
            carry_out(asked);
        }
        return;
    }
    std::optional<std::string> scripted = intercept ? intercept(asked) : std::nullopt;
    answers_.push_back(scripted ? std::move(*scripted) : carry_out(asked));
}

std::string sftp_peer::carry_out(request asked)
{
    const auto next_path = [&asked] { return std::string(asked.fields.read_string()); };
    const auto own_path = [&] { return read_own_path(asked.fields); };
    switch (asked.type) {
    case packet_type::open:
        return open(asked);
    case packet_type::close:
        return status_packet(asked.id,
                             handles_.erase(next_path()) > 0 ? status_code::ok : status_code::failure);
    case packet_type::read:
        return read(asked);
    case packet_type::write:
        return write(asked);
    case packet_type::lstat:
        return stat(asked, own_path());
    case packet_type::stat:
        return stat(asked, resolve(next_path()));
    case packet_type::fstat:
    case packet_type::fsetstat: {
        const open_file* file = find_handle(asked);
        if (file == nullptr) {
            return status_packet(asked.id, status_code::failure);
        }
        return asked.type == packet_type::fstat ? stat(asked, file->path) : set_stat(asked, file->path);
    }
    case packet_type::setstat: {
        const std::string path = resolve(next_path());
        return set_stat(asked, path);
    }
    case packet_type::opendir:
        return open_folder(asked);
    case packet_type::readdir:
        return read_folder(asked);
    case packet_type::remove:
    case packet_type::rmdir:
        return remove(asked, own_path());
    case packet_type::mkdir: {
        const std::string path = own_path();
        const bool made = nodes.contains(parent(path)) && nodes.emplace(path, node{{}, 0040755}).second;
        return status_packet(asked.id, made ? status_code::ok : status_code::failure);
    }
    case packet_type::realpath:
        return name_packet(asked.id, {{resolve(next_path()), {}}});
    case packet_type::rename:
        return rename(asked, false);
    case packet_type::readlink:
        return answer_readlink(asked.id, own_path());
    case packet_type::extended:
        return extended(asked);
    default:
        return status_packet(asked.id, status_code::op_unsupported);
    }
}

std::string sftp_peer::answer_readlink(std::uint32_t id, const std::string& path)
{
    const auto found = nodes.find(path);
    const bool is_link = found != nodes.end() && (found->second.mode & type_bits) == link_type;
    return is_link ? name_packet(id, {{found->second.content, {}}}) : status_packet(id, status_code::failure);
}

std::string sftp_peer::resolve(const std::string& path) const
{
    if (path == "." || path.empty()) {
        return home;
    }
    return support::follow_links(path, [this](const std::string& at) -> std::optional<std::string> {
        const auto found = nodes.find(at);
        const bool is_link = found != nodes.end() && (found->second.mode & type_bits) == link_type;
        return is_link ? std::optional(found->second.content) : std::nullopt;
    });
}

std::string sftp_peer::read_own_path(packet_reader& fields) const
{
    const std::string path(fields.read_string());
    const std::string above = resolve(parent(path));
    return path == "/" ? path : (above == "/" ? "" : above) + path.substr(path.rfind('/'));
}

std::string sftp_peer::open(request asked)
{
    const std::string path = resolve(std::string(asked.fields.read_string()));
    const std::uint32_t flags = asked.fields.read_u32();
    const attributes initial = read_attributes(asked.fields);
    const auto found = nodes.find(path);
    if (found != nodes.end() && (flags & open_flag::exclusive) != 0) {
        return status_packet(asked.id, status_code::failure, "File exists");
    }
    if (found == nodes.end() && ((flags & open_flag::create) == 0 || !nodes.contains(parent(path)))) {
        return status_packet(asked.id, status_code::no_such_file, "No such file");
    }
    if (handles_.size() >= max_handles) {
        return status_packet(asked.id, status_code::failure, "Too many open files");
    }
    node& file = nodes[path];
    if (found == nodes.end() && initial.permissions) {
        file.mode = 0100000 | *initial.permissions;
    }
    if ((flags & open_flag::truncate) != 0) {
        file.content.clear();
    }
    return add_handle(asked.id, {path, {}});
}

std::string sftp_peer::open_folder(request asked)
{
    const std::string path = resolve(std::string(asked.fields.read_string()));
    const auto found = nodes.find(path);
    if (found == nodes.end()) {
        return status_packet(asked.id, status_code::no_such_file, "No such file");
    }
    if (!is_folder(found->second) || handles_.size() >= max_handles) {
        return status_packet(asked.id, status_code::failure, "Failure");
    }
    return add_handle(asked.id, {path, nodes.begin()});
}

std::string sftp_peer::add_handle(std::uint32_t id, open_file file)
{
    const std::string handle = "h" + std::to_string(next_handle_++);
    handles_.emplace(handle, std::move(file));
    most_handles_ = std::max(most_handles_, handles_.size());
    return handle_packet(id, handle);
}

sftp_peer::open_file* sftp_peer::find_handle(request& asked)
{
    const auto found = handles_.find(std::string(asked.fields.read_string()));
    return found == handles_.end() ? nullptr : &found->second;
}

std::string sftp_peer::read(request asked)
{
    const open_file* file = find_handle(asked);
    if (file == nullptr || is_folder(nodes[file->path])) {
        return status_packet(asked.id, status_code::failure, "Failure");
    }
    const std::string& content = nodes[file->path].content;
    const std::uint64_t offset = asked.fields.read_u64();
    const std::size_t length = std::min<std::size_t>(asked.fields.read_u32(), max_read);
    if (offset >= content.size()) {
        return status_packet(asked.id, status_code::eof, "End of file");
    }
    return data_packet(asked.id, std::string_view(content).substr(offset, length));
}

std::string sftp_peer::write(request asked)
{
    const open_file* file = find_handle(asked);
    const std::uint64_t offset = asked.fields.read_u64();
    const std::string_view data = asked.fields.read_string();
    if (file == nullptr || offset + data.size() > max_file) {
        return status_packet(asked.id, status_code::failure, "Failure");
    }
    std::string& content = nodes[file->path].content;
    content.resize(std::max<std::size_t>(content.size(), offset + data.size()));
    std::copy(data.begin(), data.end(), content.begin() + static_cast<std::ptrdiff_t>(offset));
    return status_packet(asked.id, status_code::ok);
}

std::string sftp_peer::read_folder(request asked)
{
    open_file* file = find_handle(asked);
    if (file == nullptr) {
        return status_packet(asked.id, status_code::failure);
    }
    std::vector<std::pair<std::string, attributes>> names;
    if (!file->listed_dots) {
        names = {{".", attributes_of(nodes["/"])}, {"..", attributes_of(nodes["/"])}};
        file->listed_dots = true;
    }
    for (; file->next != nodes.end() && names.size() < names_at_once; ++file->next) {
        const auto& [path, what] = *file->next;
        if (path != "/" && parent(path) == file->path) {
            names.emplace_back(path.substr(path.rfind('/') + 1), attributes_of(what));
        }
    }
    return names.empty() ? status_packet(asked.id, status_code::eof, "End of file")
                         : name_packet(asked.id, names);
}

std::string sftp_peer::stat(const request& asked, const std::string& path)
{
    const auto found = nodes.find(path);
    return found == nodes.end() ? status_packet(asked.id, status_code::no_such_file, "No such file")
                                : attrs_packet(asked.id, attributes_of(found->second));
}

std::string sftp_peer::set_stat(request asked, const std::string& path)
{
    const attributes values = read_attributes(asked.fields);
    node& changed = nodes[path];
    if (values.permissions) {
        changed.mode = (changed.mode & 0170000) | (*values.permissions & 07777);
    }
    if (values.time) {
        changed.modified = values.time->modified;
    }
    return status_packet(asked.id, status_code::ok);
}

std::string sftp_peer::remove(const request& asked, const std::string& path)
{
    const auto found = nodes.find(path);
    if (found == nodes.end()) {
        return status_packet(asked.id, status_code::no_such_file, "No such file");
    }
    const auto below = nodes.lower_bound(path + '/');
    const bool is_empty = below == nodes.end() || !below->first.starts_with(path + '/');
    if (is_folder(found->second) != (asked.type == packet_type::rmdir) || !is_empty) {
        return status_packet(asked.id, status_code::failure, "Failure");
    }
    nodes.erase(found);
    return status_packet(asked.id, status_code::ok);
}

std::string sftp_peer::rename(request asked, bool replace)
{
    const std::string from = read_own_path(asked.fields);
    const std::string to = read_own_path(asked.fields);
    const auto found = nodes.find(from);
    if (found == nodes.end()) {
        return status_packet(asked.id, status_code::no_such_file, "No such file");
    }
    const auto there = nodes.find(to);
    if (there != nodes.end() && (!replace || is_folder(there->second))) {
        return status_packet(asked.id, status_code::failure, "Failure");
    }
    nodes[to] = found->second;
    nodes.erase(from);
    return status_packet(asked.id, status_code::ok);
}

std::string sftp_peer::extended(request asked)
{
    const std::string_view name = asked.fields.read_string();
    if (name == "posix-rename@openssh.com") {
        return rename(asked, true);
    }
    if (name == "limits@openssh.com") {
        return encode(packet_type::extended_reply, asked.id, std::uint64_t{262144}, std::uint64_t{max_read},
                      std::uint64_t{max_data}, std::uint64_t{max_handles});
    }
    return status_packet(asked.id, status_code::op_unsupported, "Operation unsupported");
}

std::size_t peer_transport::read(std::span<char> buffer)
{
    if (peer_.output.empty() && peer_.is_cut()) {
        throw qrftp::ConnectionLost("peer");
    }
    const std::size_t size = std::min(buffer.size(), peer_.output.size());
    std::copy_n(peer_.output.begin(), size, buffer.begin());
    peer_.output.erase(0, size);
    return size;
}

std::size_t peer_transport::write(std::string_view bytes)
{
    if (peer_.is_cut()) {
        throw qrftp::ConnectionLost("peer");
    }
    peer_.receive(bytes);
    return bytes.size();
}

void peer_transport::wait(bool, std::chrono::milliseconds longest)
{
    if (peer_.output.empty()) {
        ::poll(nullptr, 0, static_cast<int>(longest.count()));
    }
}
