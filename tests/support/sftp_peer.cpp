#include "sftp_peer.hpp"

#include "follow_links.hpp"
#include "sftp_packets.hpp"

#include <poll.h>

#include <algorithm>
#include <utility>

using namespace qrftp::sftp;

namespace {

constexpr std::uint32_t type_bits = 0170000;
constexpr std::uint32_t folder_type = 0040000;
constexpr std::uint32_t link_type = 0120000;

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

bool is_of_type(const sftp_peer::node& node, std::uint32_t type)
{
    return (node.mode & type_bits) == type;
}

std::string status(const sftp_peer::request& asked, status_code code)
{
    return status_packet(asked.id, code,
                         code == status_code::eof            ? "End of file"
                         : code == status_code::no_such_file ? "No such file"
                         : code == status_code::failure      ? "Failure"
                                                             : "");
}

std::string done_if(const sftp_peer::request& asked, bool done)
{
    return status(asked, done ? status_code::ok : status_code::failure);
}

} // namespace

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
    if (!std::exchange(has_init_, true)) {
        answers_.push_back(make_packet(packet_type::version, [this](packet_writer& version) {
            version.put(std::uint32_t{3});
            for (const auto& [name, data] : extensions) {
                version.put(name);
                version.put(data);
            }
        }));
        return;
    }
    const std::uint32_t id = fields.read_u32();
    const request asked{type, id, fields};
    ++counts_[type];
    is_cut_ = requests_to_cut_ > 0 && (!cut_type_ || *cut_type_ == type) && --requests_to_cut_ == 0;
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
    switch (asked.type) {
    case packet_type::fstat:
    case packet_type::fsetstat:
    case packet_type::read:
    case packet_type::write:
    case packet_type::readdir:
        return use_handle(asked);
    case packet_type::rename:
        return rename(asked, false);
    case packet_type::extended:
        return extended(asked);
    default:
        break;
    }
    const std::string given(asked.fields.read_string());
    const std::string path = resolve(given);
    const std::string own = own_path(given);
    switch (asked.type) {
    case packet_type::open:
    case packet_type::opendir:
        return open(asked, path);
    case packet_type::close:
        return done_if(asked, handles_.erase(given) > 0);
    case packet_type::lstat:
        return stat(asked, own);
    case packet_type::stat:
        return stat(asked, path);
    case packet_type::setstat:
        return set_stat(asked, path);
    case packet_type::remove:
    case packet_type::rmdir:
        return remove(asked, own);
    case packet_type::mkdir:
        return done_if(asked, nodes.contains(parent(own)) && nodes.emplace(own, node{{}, 0040755}).second);
    case packet_type::readlink:
        return nodes.contains(own) && is_of_type(nodes[own], link_type)
                   ? name_packet(asked.id, {{nodes[own].content, {}}})
                   : done_if(asked, false);
    case packet_type::realpath:
        return name_packet(asked.id, {{path, {}}});
    default:
        return status(asked, status_code::op_unsupported);
    }
}

std::string sftp_peer::resolve(const std::string& path) const
{
    if (path == "." || path.empty()) {
        return home;
    }
    return support::follow_links(path, [this](const std::string& at) -> std::optional<std::string> {
        const auto found = nodes.find(at);
        const bool is_link = found != nodes.end() && is_of_type(found->second, link_type);
        return is_link ? std::optional(found->second.content) : std::nullopt;
    });
}

std::string sftp_peer::own_path(const std::string& path) const
{
    if (path == "/" || path.find('/') == std::string::npos) {
        return path;
    }
    const std::string above = resolve(parent(path));
    return (above == "/" ? "" : above) + path.substr(path.rfind('/'));
}

std::string sftp_peer::use_handle(request asked)
{
    const auto found = handles_.find(std::string(asked.fields.read_string()));
    if (found == handles_.end()) {
        return done_if(asked, false);
    }
    open_file& file = found->second;
    switch (asked.type) {
    case packet_type::fstat:
        return stat(asked, file.path);
    case packet_type::fsetstat:
        return set_stat(asked, file.path);
    case packet_type::read:
        return read(asked, nodes[file.path]);
    case packet_type::write:
        return write(asked, nodes[file.path]);
    default:
        return read_folder(asked, file);
    }
}

std::string sftp_peer::open(request asked, const std::string& path)
{
    const bool of_folder = asked.type == packet_type::opendir;
    const std::uint32_t flags = of_folder ? 0 : asked.fields.read_u32();
    const attributes initial = of_folder ? attributes() : read_attributes(asked.fields);
    const bool exists = nodes.contains(path);
    if (!exists && ((flags & open_flag::create) == 0 || !nodes.contains(parent(path)))) {
        return status(asked, status_code::no_such_file);
    }
    if ((exists && (flags & open_flag::exclusive) != 0) || handles_.size() >= max_handles ||
        (of_folder && !is_of_type(nodes[path], folder_type))) {
        return done_if(asked, false);
    }
    node& file = nodes[path];
    if (!exists && initial.permissions) {
        file.mode = 0100000 | *initial.permissions;
    }
    if ((flags & open_flag::truncate) != 0) {
        file.content.clear();
    }
    const std::string handle = "h" + std::to_string(next_handle_++);
    handles_.emplace(handle, open_file{path, nodes.begin()});
    most_handles_ = std::max(most_handles_, handles_.size());
    return handle_packet(asked.id, handle);
}

std::string sftp_peer::read(request asked, const node& file)
{
    const std::uint64_t offset = asked.fields.read_u64();
    const std::size_t length = std::min<std::size_t>(asked.fields.read_u32(), max_read);
    if (is_of_type(file, folder_type)) {
        return done_if(asked, false);
    }
    return offset >= file.content.size()
               ? status(asked, status_code::eof)
               : data_packet(asked.id, std::string_view(file.content).substr(offset, length));
}

std::string sftp_peer::write(request asked, node& file)
{
    const std::uint64_t offset = asked.fields.read_u64();
    const std::string_view data = asked.fields.read_string();
    if (offset + data.size() > max_file) {
        return done_if(asked, false);
    }
    file.content.resize(std::max<std::size_t>(file.content.size(), offset + data.size()));
    std::copy(data.begin(), data.end(), file.content.begin() + static_cast<std::ptrdiff_t>(offset));
    return done_if(asked, true);
}

std::string sftp_peer::read_folder(const request& asked, open_file& folder)
{
    std::vector<std::pair<std::string, attributes>> names;
    if (!std::exchange(folder.listed_dots, true)) {
        names = {{".", attributes_of(nodes["/"])}, {"..", attributes_of(nodes["/"])}};
    }
    for (; folder.next != nodes.end() && names.size() < names_at_once; ++folder.next) {
        const auto& [path, what] = *folder.next;
        if (path != "/" && parent(path) == folder.path) {
            names.emplace_back(path.substr(path.rfind('/') + 1), attributes_of(what));
        }
    }
    return names.empty() ? status(asked, status_code::eof) : name_packet(asked.id, names);
}

std::string sftp_peer::stat(const request& asked, const std::string& path)
{
    const auto found = nodes.find(path);
    return found == nodes.end() ? status(asked, status_code::no_such_file)
                                : attrs_packet(asked.id, attributes_of(found->second));
}

std::string sftp_peer::set_stat(request asked, const std::string& path)
{
    const attributes values = read_attributes(asked.fields);
    node& changed = nodes[path];
    if (values.permissions) {
        changed.mode = (changed.mode & type_bits) | (*values.permissions & 07777);
    }
    if (values.time) {
        changed.modified = values.time->modified;
    }
    return done_if(asked, true);
}

std::string sftp_peer::remove(const request& asked, const std::string& path)
{
    const auto found = nodes.find(path);
    if (found == nodes.end()) {
        return status(asked, status_code::no_such_file);
    }
    const auto below = nodes.lower_bound(path + '/');
    const bool is_empty = below == nodes.end() || !below->first.starts_with(path + '/');
    const bool is_folder = is_of_type(found->second, folder_type);
    const bool removes = is_empty && is_folder == (asked.type == packet_type::rmdir);
    if (removes) {
        nodes.erase(found);
    }
    return done_if(asked, removes);
}

std::string sftp_peer::rename(request asked, bool replace)
{
    const std::string from = own_path(std::string(asked.fields.read_string()));
    const std::string to = own_path(std::string(asked.fields.read_string()));
    if (!nodes.contains(from)) {
        return status(asked, status_code::no_such_file);
    }
    const auto there = nodes.find(to);
    if (there != nodes.end() && (!replace || is_of_type(there->second, folder_type))) {
        return done_if(asked, false);
    }
    nodes[to] = nodes[from];
    nodes.erase(from);
    return done_if(asked, true);
}

std::string sftp_peer::extended(request asked)
{
    const std::string_view name = asked.fields.read_string();
    if (name == "posix-rename@openssh.com") {
        return rename(asked, true);
    }
    if (name == "limits@openssh.com") {
        return make_packet(packet_type::extended_reply, [&](packet_writer& packet) {
            packet.put(asked.id);
            for (const std::size_t limit : {std::size_t{262144}, max_read, max_data, max_handles}) {
                packet.put(std::uint64_t{limit});
            }
        });
    }
    return status(asked, status_code::op_unsupported);
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
