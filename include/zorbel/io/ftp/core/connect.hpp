#pragma once

#include <zorbel/io/ftp/core/connection.hpp>

#include <string>

/// Opening a connection. Every setting made here stays on the handle for the connection's life, also after an
/// error: a connection that failed to open is to be discarded. All texts are bytes and go to libcurl as they
/// are.
namespace zorbel::io::ftp::core {

/// Logs in to an FTP or FTPS server, settles on a starting folder and returns the server's working folder.
///
/// `server_url` is "ftp://", the host and optionally a path, the starting folder; without one the connection
/// starts in the folder that the server logs in to. `connection_mode` "active" selects active mode, any other
/// text passive. `tls_mode` is "none", "opportunistic" (TLS where the server offers it) or "strict" (TLS for
/// control and data connection, RFC 4217). With `use_proxy`, `configure_proxy` runs first. `verify_peer` and
/// `verify_host` check the server's certificate against `certificate_authority_file` and against the host's
/// name. A transfer slower than `low_speed_limit` bytes per second for `low_speed_time` seconds is given up.
///
/// Sends the login (AUTH SSL, where that is refused AUTH TLS, USER, PASS, PBSZ, PROT), CWD per segment of the
/// starting folder, and PWD. A server that refuses the folder of `server_url` is asked for its root instead,
/// with the warning "CouldNotLoginToRemoteFolder".
///
/// Throws `InternalError` ("TLSMode", …) for an unknown TLS mode, before any request; `BadLogin` with the URL
/// when the login is refused; `NoConnection` with the URL and the port for any other failure to get in;
/// `NoSuchDirectory` when the starting folder cannot be entered; `std::out_of_range` for a `server_url` under 6
/// characters; what `pwd` throws; `InvalidCurlHandle`.
QRFTPCORE_EXPORT std::string connect(curl_ptr& connection, const std::string& server_url,
                                     const std::string& user_name, const std::string& password, long port,
                                     const std::string& connection_mode, const std::string& tls_mode,
                                     bool use_proxy, const std::string& certificate_authority_file,
                                     bool verify_peer, bool verify_host, long low_speed_limit,
                                     long low_speed_time);

/// Logs in to an SFTP server with the authentication that is set on the handle, and returns the server's
/// working folder. The three functions below set the authentication and call it.
///
/// `host_name` is bare. `starting_folder` is absolute, or taken from the server's root; empty or "/~/" means
/// none: the connection then starts at the server's root (`root_start`) or in the user's home. Host keys are
/// not checked unless the handle was told how. The other arguments are those of `connect`. No command but
/// libcurl's `pwd` is sent; a starting folder is listed. Where the folder cannot be had, the server's root is
/// tried, with the warning "CouldNotDetermineHomeFolder".
///
/// Names-only listing (`CURLOPT_DIRLISTONLY`) is on afterwards, but off when a starting folder was given.
///
/// Throws `BadLogin` with the URL (the host name when a starting folder was given) when the login is refused;
/// `NoConnectionToStartingFolder` with host name and port when the host of a starting folder is unknown;
/// `NoConnection` with the URL and the port for any other failure to get in; what `pwd` throws;
/// `InvalidCurlHandle`.
QRFTPCORE_EXPORT std::string connect_helper(curl_ptr& connection, const std::string& host_name,
                                            const std::string& user_name, long port, bool use_proxy,
                                            const std::string& starting_folder,
                                            const std::string& certificate_authority_file, bool verify_peer,
                                            bool verify_host, long low_speed_limit, long low_speed_time,
                                            bool root_start);

/// `connect_helper` with a password.
QRFTPCORE_EXPORT std::string connect_with_password(curl_ptr& connection, const std::string& host_name,
                                                   const std::string& user_name, long port,
                                                   const std::string& password, bool use_proxy,
                                                   const std::string& starting_folder,
                                                   const std::string& certificate_authority_file,
                                                   bool verify_peer, bool verify_host, long low_speed_limit,
                                                   long low_speed_time, bool root_start);

/// `connect_helper` with a pair of key files.
QRFTPCORE_EXPORT std::string connect_with_keys(curl_ptr& connection, const std::string& host_name,
                                               const std::string& user_name, long port,
                                               std::string public_key_file, std::string private_key_file,
                                               bool use_proxy, const std::string& starting_folder,
                                               const std::string& certificate_authority_file, bool verify_peer,
                                               bool verify_host, long low_speed_limit, long low_speed_time,
                                               bool root_start);

/// `connect_helper` with a pair of key files, the private one opened by a pass phrase.
QRFTPCORE_EXPORT std::string
connect_with_passphrase(curl_ptr& connection, const std::string& host_name, const std::string& user_name,
                        long port, std::string public_key_file, std::string private_key_file,
                        std::string pass_phrase, bool use_proxy, const std::string& starting_folder,
                        const std::string& certificate_authority_file, bool verify_peer, bool verify_host,
                        long low_speed_limit, long low_speed_time, bool root_start);

/// Gives the connection the proxy that the host's proxy selector chooses: the first one for "http://", else the
/// first one for "https://". Where the selector is offered, even with no proxy, traffic is set to tunnel
/// through one (CONNECT, RFC 9110, 9.3.6). Sends nothing. That there is no selector is not an error. Throws
/// what the service registry throws when its context is invalid; `InvalidCurlHandle`.
QRFTPCORE_EXPORT void configure_proxy(curl_ptr& connection);

/// Limits every later transfer as a whole to `milliseconds`; 0 means no limit. Sends nothing. Throws
/// `InvalidCurlHandle`.
QRFTPCORE_EXPORT void transfer_timeout(curl_ptr& connection, long milliseconds);

/// Limits connecting to `milliseconds`; 0 means libcurl's own limit. Sends nothing. Throws `InvalidCurlHandle`.
QRFTPCORE_EXPORT void connection_timeout(curl_ptr& connection, long milliseconds);

} // namespace zorbel::io::ftp::core
