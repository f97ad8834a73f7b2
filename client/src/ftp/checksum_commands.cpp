#include "checksum_commands.hpp"

#include "fact_setter.hpp"

#include <boost/algorithm/string/case_conv.hpp>
#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/predicate.hpp>
#include <boost/algorithm/string/split.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

namespace qrftp::ftp {

namespace {

constexpr std::array strongest_first{hash_algorithm::sha256, hash_algorithm::sha1, hash_algorithm::md5,
                                     hash_algorithm::crc32};

/// "HASH SHA-1;SHA-256*;MD5"
bool hashes_by(const std::string& feature, hash_algorithm algorithm)
{
    std::vector<std::string> names;
    boost::algorithm::split(names, feature, boost::algorithm::is_any_of(" ;*"));
    return boost::algorithm::iequals(names.front(), "HASH") &&
           std::any_of(names.begin(), names.end(), [&](const std::string& name) {
               return boost::algorithm::iequals(name, name_of(algorithm));
           });
}

std::optional<checksum_method> choose(const server_info& info)
{
    for (const hash_algorithm each : strongest_first) {
        if (std::any_of(info.features.begin(), info.features.end(),
                        [&](const std::string& feature) { return hashes_by(feature, each); })) {
            return checksum_method{"HASH", each};
        }
    }
    static constexpr std::array names{"XSHA256", "XSHA1", "XMD5", "XCRC"};
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (has_feature(info, names.at(i))) {
            return checksum_method{names.at(i), strongest_first.at(i)};
        }
    }
    return std::nullopt;
}

std::size_t digits_of(hash_algorithm algorithm)
{
    static constexpr std::array<std::size_t, 4> lengths{64, 40, 32, 8};
    return lengths.at(static_cast<std::size_t>(algorithm));
}

} // namespace

std::optional<checksum> find_checksum(std::string_view answer, hash_algorithm algorithm)
{
    std::vector<std::string> words;
    boost::algorithm::split(words, answer, boost::algorithm::is_space());
    for (std::string& word : words) {
        boost::algorithm::to_lower(word);
        // Some leave leading zeros of a CRC out.
        const bool is_short = algorithm == hash_algorithm::crc32 && words.size() == 1 && !word.empty();
        const bool fits = is_short ? word.size() <= digits_of(algorithm) : word.size() == digits_of(algorithm);
        if (fits && word.find_first_not_of("0123456789abcdef") == std::string::npos) {
            return checksum{algorithm, fmt::format("{:0>{}}", word, digits_of(algorithm))};
        }
    }
    return std::nullopt;
}

checksum_commands::checksum_commands(const server_info& info, sender send)
    : send_(std::move(send)), method_(choose(info))
{
}

std::optional<checksum> checksum_commands::ask(const std::string& path, response& said) const
{
    const bool by_hash = method_->command == "HASH";
    const bool quoted = !by_hash && path.find(' ') != std::string::npos;
    std::vector<std::string> commands;
    if (by_hash) {
        commands.push_back(fmt::format("OPTS HASH {}", name_of(method_->algorithm)));
    }
    commands.push_back(fmt::format(fmt::runtime(quoted ? "{} \"{}\"" : "{} {}"), method_->command, path));
    const reply answer = send_(path, std::move(commands));
    said = answer.said();
    return answer.is_completion() ? find_checksum(answer.text(), method_->algorithm) : std::nullopt;
}

} // namespace qrftp::ftp
