#pragma once

#include <zorbel/io/ftp/core.hpp>

#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace support {

namespace core = zorbel::io::ftp::core;
using texts = std::vector<std::string>;

/// What `call` throws: the message key and the arguments, all as text. {"nothing"} if it throws nothing.
texts error_of(const std::function<void()>& call);

/// Logs in over FTP as the tests do: user "u", password "p", no proxy, no certificates.
std::string log_in(core::curl_ptr& connection, const std::string& url, long port,
                   const std::string& mode = "passive", const std::string& tls = "none");

struct operation {
    friend void PrintTo(const operation& op, std::ostream* out) { *out << op.name; }
    std::string name;
    std::function<void(core::curl_ptr&)> call;
    std::string commands; ///< sent on a connection that stands in /home/u, joined by "|"
    std::string settings; ///< the scoped options in the order of setting, joined by "|"
    std::string errors;   ///< the keys of the errors that a misbehaving server may cause
};

/// Every operation that sends something once the connection is open. It downloads "f" to `local` and uploads
/// `local` as "g". The SFTP twins do not look at the protocol: over FTP they send what they hand to libcurl.
std::vector<operation> ftp_operations(const fl::ustring& local);

std::string joined(const texts& parts);

/// Checks that `lines`, a ledger, put back what they set: each option once and last set first, the URL at the
/// end and to `home`, and that nothing but scoped options and the URL was touched. Returns the settings, joined
/// by "|".
std::string expect_restored(const texts& lines, const std::string& home);

} // namespace support
