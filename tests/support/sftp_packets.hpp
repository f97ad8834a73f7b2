#pragma once

#include <sftp/attributes.hpp>
#include <sftp/packet.hpp>
#include <sftp/reply.hpp>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// A packet whose fields `add_fields` adds.
std::string make_packet(qrftp::sftp::packet_type type,
                        const std::function<void(qrftp::sftp::packet_writer&)>& add_fields);

// Answers of a server.
std::string status_packet(std::uint32_t id, qrftp::sftp::status_code code, std::string_view message = "");
std::string handle_packet(std::uint32_t id, std::string_view handle);
std::string data_packet(std::uint32_t id, std::string_view data);
std::string attrs_packet(std::uint32_t id, const qrftp::sftp::attributes& values);
std::string name_packet(std::uint32_t id,
                        const std::vector<std::pair<std::string, qrftp::sftp::attributes>>& names,
                        std::string_view long_name = "");
