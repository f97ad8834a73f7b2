#include "ssh_algorithms.hpp"

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>

#ifdef __aarch64__
#include <asm/hwcap.h>
#include <sys/auxv.h>
#endif

namespace qrftp::sftp {

namespace {

bool processor_has_aes()
{
#if defined(__x86_64__) || defined(__i386__)
    return static_cast<bool>(__builtin_cpu_supports("aes")); // an int or a bool, by compiler
#elif defined(__aarch64__)
    return (getauxval(AT_HWCAP) & HWCAP_AES) != 0;
#else
    return false;
#endif
}

constexpr std::array<std::string_view, 8> algorithms = {"ssh-ed25519",
                                                        "ecdsa-sha2-nistp256",
                                                        "ecdsa-sha2-nistp384",
                                                        "ecdsa-sha2-nistp521",
                                                        "sk-ssh-ed25519@openssh.com",
                                                        "sk-ecdsa-sha2-nistp256@openssh.com",
                                                        "rsa-sha2-512",
                                                        "rsa-sha2-256"};

/// The names of RSA signatures stand for the one type of RSA keys.
std::string_view type_of(std::string_view algorithm)
{
    return algorithm.starts_with("rsa-") ? "ssh-rsa" : algorithm;
}

} // namespace

const char* preferred_ciphers()
{
    return processor_has_aes() ? "aes128-gcm@openssh.com,aes256-gcm@openssh.com,chacha20-poly1305@openssh.com,"
                                 "aes128-ctr,aes256-ctr,aes192-ctr"
                               : "chacha20-poly1305@openssh.com,aes128-gcm@openssh.com,aes256-gcm@openssh.com,"
                                 "aes128-ctr,aes256-ctr,aes192-ctr";
}

std::string host_key_algorithms(const std::vector<std::string>& known_types)
{
    auto order = algorithms;
    std::stable_partition(order.begin(), order.end(), [&](std::string_view algorithm) {
        return std::find(known_types.begin(), known_types.end(), type_of(algorithm)) != known_types.end();
    });
    std::string list;
    for (const std::string_view algorithm : order) {
        list.append(list.empty() ? "" : ",").append(algorithm);
    }
    return list;
}

} // namespace qrftp::sftp
