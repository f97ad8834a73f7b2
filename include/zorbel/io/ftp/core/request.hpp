#pragma once

#include <zorbel/io/ftp/core/connection.hpp>
#include <zorbel/io/ftp/core/set_option.hpp>

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace zorbel::io::ftp::core {

/// The owning holder of one list of server commands, as the quoted requests take it. Movable; a moved-from list
/// is empty.
class QRFTPCORE_EXPORT slist {
public:
    /// A list of one command, the bytes of `command` up to its first NUL.
    explicit slist(const std::string& command);

    /// Adds a command at the end. Throws `std::bad_alloc` when it cannot, or when the list lost its first
    /// command for the same reason: the commands of one list belong together, and half of them must not be
    /// sent.
    slist& append(const std::string& command);

    curl_slist* get() const noexcept { return list_.get(); }

private:
    struct free_all {
        void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
    };

    std::unique_ptr<curl_slist, free_all> list_;
};

/// One request on a connection: sets options now, puts each back when it goes out of scope.
///
/// Lives on the stack of one operation; the connection is not owned and must outlive it. Destruction restores
/// the options in the reverse order of setting, then the URLs of `seturl` in the order of its calls. Restoring
/// a URL is a change of folder, a request of its own. Destruction never throws; if the connection lost its
/// handle meanwhile, the process ends.
///
/// The canned requests (`request_…`) make an inner request, which restores what it set before they return.
/// A failed transfer is not an error here: every request returns libcurl's result code, and the caller judges.
/// Every member throws `InvalidCurlHandle` when the connection has no handle.
class QRFTPCORE_EXPORT scoped_request {
public:
    explicit scoped_request(curl_ptr& connection);
    ~scoped_request();
    scoped_request(const scoped_request&) = delete;
    scoped_request& operator=(const scoped_request&) = delete;

    /// Sets `option` to `value` at once; the destructor will set it to `restore_value`. Strings are not copied
    /// by this class: libcurl copies string options, and command lists must live until the restore.
    template <class Value, class Restore>
    scoped_request&& setopt(CURLoption option, Value value, Restore restore_value)
    {
        // The restore is registered first, so that an allocation failure cannot leave the option changed.
        connection_.throw_if_null();
        restores_.push_back([this, option, restore_value] { set_option(connection_, option, restore_value); });
        set_option(connection_, option, value);
        return std::move(*this);
    }

    /// Sets the URL; the destructor will change folder back, with `unsafe_cd`, to the URL that the connection
    /// had.
    scoped_request&& seturl(const std::string& url);

    /// Runs the request: libcurl's result code and the server's last reply code (0 when there is none).
    std::pair<CURLcode, long> perform() const;

    /// Runs the request and captures what the server sends on the data connection. When it cannot be held, the
    /// transfer ends with `CURLE_WRITE_ERROR`, and the text so far is returned.
    std::pair<CURLcode, std::string> request_body() const;

    /// Runs the request and captures the replies of the control connection. To be used with `CURLOPT_NOBODY`: a
    /// body would go where the handle's write options point, which is standard output, and after a download
    /// nowhere usable.
    std::pair<CURLcode, std::string> request_header() const;

    /// Sends `commands` on the control connection before any change of folder, at `url` and without a transfer.
    /// SFTP: runs them as libcurl's quote commands.
    std::pair<CURLcode, long> request_quoted(const std::string& url, slist commands) const;

    /// As `request_quoted`, with what libcurl delivers as a body captured.
    std::pair<CURLcode, std::string> request_quoted_body(const std::string& url, slist commands) const;

    /// Sends `commands` at the current URL after its change of folder, without a transfer.
    std::pair<CURLcode, long> request_post_quoted(slist commands) const;

private:
    void set_quoted(const std::string& url, const slist& commands);

    curl_ptr& connection_;
    std::deque<std::function<void()>> restores_;
};

/// Points the connection at the folder `url` (scheme and host included; a final slash is added) and probes it
/// with a request that transfers nothing. FTP: logs in if need be, then one CWD per segment of the path. SFTP:
/// logs in if need be; the folder itself is not checked.
///
/// Returns libcurl's result code and judges nothing: the connection keeps the new URL whatever the outcome.
/// `cd` is the checked form. Throws `InvalidCurlHandle`.
QRFTPCORE_EXPORT CURLcode unsafe_cd(curl_ptr& connection, const std::string& url);

} // namespace zorbel::io::ftp::core
