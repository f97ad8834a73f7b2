#pragma once

#include "ftp_reply.hpp"

#include <qrftp/options.hpp>
#include <qrftp/session.hpp>
#include <zorbel/io/ftp/core/connection.hpp>

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qrftp {

class call;
class login;

/// What goes to the server in one upload.
struct upload_source {
    std::function<std::size_t(char*, std::size_t)> read; ///< 0 at the end
    std::function<void(std::uint64_t)> seek;             ///< goes on from a place in the file
    std::uint64_t size = 0;                              ///< of the file as a whole
};

/// One request of libcurl's. Everything in it goes by absolute names, so that it means the same whatever folder
/// the server believes the connection to be in.
struct request {
    std::string about;                     ///< what errors name
    std::string path = "/";                ///< with a final "/" for a folder
    std::vector<std::string> commands{};   ///< before the transfer; libcurl takes a refusal for an error unless
                                           ///< the command has an asterisk in front
    std::vector<std::string> afterwards{}; ///< after it
    const char* method = nullptr;          ///< FTP: the command that lists
    bool enters = false;                   ///< FTP: goes into the folder first and lists it without a name
    std::function<void(std::string_view)> take{}; ///< wants the body
    const upload_source* source = nullptr;        ///< sends a body
    std::uint64_t offset = 0;                     ///< where in the file the body begins
    std::optional<std::uint64_t> listed_size{};   ///< FTP: of a body to take; it is not asked for then
    bool names_time = false;                      ///< SFTP: asks for size and modification time
    std::uint64_t rate_limit = 0;
    std::function<bool(const progress&)> on_progress{};
    bool cancellable = true;         ///< `options::cancelled` is asked
    bool repeatable = true;          ///< may be repeated although it may have been carried out
    std::function<void()> restart{}; ///< called before a repeat: forgets what was taken. Without it, a body of
                                     ///< which something was taken is not asked for again
};

/// How a request went that reached the server.
struct outcome {
    int code = 0; ///< libcurl's result
    std::vector<ftp_reply> replies;
    std::string words; ///< libcurl's
    std::optional<std::uint64_t> length;
    std::optional<std::int64_t> time;
    /// SFTP: perhaps the connection is lost. Whatever fails then, libcurl words as the refusal before, if there
    /// was one; a size that it was not told, it takes for that of an empty file.
    bool doubtful = false;

    bool done() const { return code == 0; }
    /// The reply to the command that stands `from_last` before the last one.
    const ftp_reply& reply(std::size_t from_last = 0) const;
    /// For errors.
    answer said() const;
};

/// One login: the core's connection, set up once, and the way that every request takes over it.
///
/// A request that fails because the connection is lost is repeated once, over a new one, if it may be. Results
/// that say that the server refused are returned; whatever else ends a request is thrown: the errors of the
/// connection, of the login, of the limits, and what the callbacks of the request threw.
class engine {
public:
    engine(url location, options how);
    engine(const engine&) = delete;
    engine& operator=(const engine&) = delete;
    ~engine();

    outcome run(const request& wanted);

    const url& location() const { return location_; }
    const options& how() const { return how_; }
    const connection_info& info() const { return info_; }
    /// Where relative names of the login lead; absolute.
    const std::string& login_folder() const { return info_.login_folder; }

private:
    outcome perform(const request& wanted, call& under_way);
    void look_for_loss(const request& wanted, outcome& result);
    bool still_answers();
    void log_in();
    std::string url_of(const std::string& path);
    [[noreturn]] void fail(const request& wanted, const outcome& result) const;

    url location_;
    options how_;
    connection_info info_;
    std::unique_ptr<login> login_; // outlives the connection: libcurl refers to it
    zorbel::io::ftp::core::curl_ptr connection_;
    bool out_of_step_ = false; ///< replies on the control connection may belong to earlier commands
    std::string last_reason_;  ///< SFTP: of the last refusal
};

} // namespace qrftp
