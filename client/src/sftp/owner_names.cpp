#include "owner_names.hpp"

#include <charconv>
#include <cstdint>

namespace qrftp::sftp {

namespace {

const request users_groups_by_id("users-groups-by-id@openssh.com", packet_type::extended_reply);
/// How many numbers one request asks for at most.
constexpr std::size_t max_numbers = 1000;

std::optional<std::uint32_t> to_number(const std::string& text)
{
    std::uint32_t number = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool is_number = !text.empty() && failure == std::errc() && end == text.data() + text.size();
    return is_number ? std::optional(number) : std::nullopt;
}

std::string encode(const std::set<std::string>& numbers)
{
    std::string bytes;
    for (const std::string& text : numbers) {
        const std::uint32_t number = *to_number(text);
        for (const unsigned shift : {24U, 16U, 8U, 0U}) {
            bytes += static_cast<char>(number >> shift);
        }
    }
    return bytes;
}

} // namespace

void owner_names::fill_in(pipeline& server, std::span<entry> entries)
{
    if (!server.has_extension(users_groups_by_id.extension, "1")) {
        return;
    }
    std::set<std::string> users;
    std::set<std::string> groups;
    const auto collect = [](std::set<std::string>& unknown, const name_map& known, const std::string& number) {
        if (!known.contains(number) && to_number(number)) {
            unknown.insert(number);
        }
    };
    for (const entry& each : entries) {
        collect(users, users_, each.owner);
        collect(groups, groups_, each.group);
        if (users.size() + groups.size() >= max_numbers) {
            ask(server, users, groups);
            users.clear();
            groups.clear();
        }
    }
    if (users.size() + groups.size() > 0) {
        ask(server, users, groups);
    }
    const auto replace = [](const name_map& known, std::string& number) {
        if (const auto found = known.find(number); found != known.end()) {
            number = found->second;
        }
    };
    for (entry& each : entries) {
        replace(users_, each.owner);
        replace(groups_, each.group);
    }
}

void owner_names::ask(pipeline& server, const std::set<std::string>& users, const std::set<std::string>& groups)
{
    // As handles are: bytes that no trace shows.
    const reply answer =
        server.call(users_groups_by_id, file_handle{encode(users)}, file_handle{encode(groups)});
    packet_reader fields = answer.body();
    const auto read_names = [&](name_map& known, const std::set<std::string>& numbers) {
        packet_reader names(answer.is_status() ? "" : fields.read_string());
        for (const std::string& number : numbers) {
            const std::string name(answer.is_status() ? "" : names.read_string(max_name));
            known.emplace(number, name.empty() ? number : name);
        }
    };
    read_names(users_, users);
    read_names(groups_, groups);
}

} // namespace qrftp::sftp
