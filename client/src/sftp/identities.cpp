#include "identities.hpp"

#include "../text_file.hpp"
#include "private_key.hpp"

#include <qrftp/error.hpp>
#include <qrftp/known_hosts.hpp>

#include <algorithm>
#include <iterator>
#include <optional>

namespace qrftp::sftp {

namespace fs = std::filesystem;

namespace {

fs::path with_suffix(fs::path file, const char* suffix)
{
    file += suffix;
    return file;
}

/// Empty for a file that is not there or holds something else.
std::string read_public(const fs::path& file)
{
    try {
        return public_key_of(read_text_file(file));
    } catch (const LocalFileError&) {
        return {};
    }
}

bool contains(const std::vector<std::string>& keys, const std::string& key)
{
    return !key.empty() && std::find(keys.begin(), keys.end(), key) != keys.end();
}

class identity_list {
public:
    identity_list(const ssh_settings& settings, const std::vector<std::string>& agent_keys)
        : settings_(settings), agent_keys_(agent_keys)
    {
    }

    std::vector<identity> make();

private:
    void read_certificates();
    [[nodiscard]] std::optional<identity> read_key(const fs::path& file) const;
    [[nodiscard]] identity read_private(const fs::path& file, const std::string& public_key) const;
    void add(const identity& one, const fs::path& file);

    const ssh_settings& settings_;
    const std::vector<std::string>& agent_keys_;
    std::vector<std::string> certificates_;
    std::vector<identity> result_;
};

void identity_list::read_certificates()
{
    for (const fs::path& file : settings_.certificates) {
        const std::string certificate =
            settings_.explicit_certificates ? public_key_of(read_text_file(file)) : read_public(file);
        if (!certificate.empty()) {
            certificates_.push_back(certificate);
        } else if (settings_.explicit_certificates) {
            throw InvalidOption(file.string(), "it holds no OpenSSH certificate");
        }
    }
}

/// The agent's keys, and the private keys of files that are there.
std::optional<identity> identity_list::read_key(const fs::path& file) const
{
    std::string beside = read_public(with_suffix(file, ".pub"));
    if (beside.empty()) {
        beside = read_public(file); // ssh -i KEY.pub names a key of the agent
    }
    if (contains(agent_keys_, beside)) {
        return identity{beside, {}, true, {}, settings_.explicit_keys};
    }
    try {
        return read_private(file, beside);
    } catch (const error&) {
        if (settings_.explicit_keys) {
            throw;
        }
        return std::nullopt;
    }
}

identity identity_list::read_private(const fs::path& file, const std::string& public_key) const
{
    const private_key_file content(file);
    identity one{content.public_key(), {}, false, file, settings_.explicit_keys};
    one.key = one.key.empty() && content.is_encrypted() ? public_key : one.key;
    one.in_agent = contains(agent_keys_, one.key);
    const bool needs_agent =
        type_of_key(one.key).starts_with("sk-") || (one.key.empty() && !content.is_encrypted());
    if (needs_agent && !one.in_agent) {
        throw InvalidOption(file.string(), "a key of this type works through the agent only: use ssh-add");
    }
    return one;
}

void identity_list::add(const identity& one, const fs::path& file)
{
    std::vector<std::string> certificates = certificates_;
    if (!file.empty()) {
        certificates.push_back(read_public(with_suffix(file, "-cert.pub")));
    }
    for (const std::string& certificate : certificates) {
        if (certifies(certificate, one.key)) {
            result_.push_back(one);
            result_.back().certificate = certificate;
        }
    }
    result_.push_back(one);
}

std::vector<identity> identity_list::make()
{
    read_certificates();
    std::vector<std::pair<identity, fs::path>> named;
    for (const fs::path& file : settings_.private_keys) {
        if (auto one = read_key(file)) {
            named.emplace_back(std::move(*one), file);
        }
    }
    for (const auto& [one, file] : named) {
        if (one.in_agent || one.is_explicit) {
            add(one, file);
        }
    }
    const std::vector<identity> first = result_;
    for (const std::string& key : agent_keys_) {
        const bool is_first =
            std::any_of(first.begin(), first.end(), [&](const identity& one) { return one.key == key; });
        const bool is_named = std::any_of(named.begin(), named.end(),
                                          [&](const auto& one) { return certifies(key, one.first.key); });
        if (!is_first && (is_named || !settings_.identities_only)) {
            add({key, {}, true, {}, false}, {});
        }
    }
    for (const auto& [one, file] : named) {
        if (!one.in_agent && !one.is_explicit) {
            add(one, file);
        }
    }
    return std::move(result_);
}

} // namespace

std::vector<identity> list_identities(const ssh_settings& settings, const std::vector<std::string>& agent_keys)
{
    return identity_list(settings, agent_keys).make();
}

} // namespace qrftp::sftp
