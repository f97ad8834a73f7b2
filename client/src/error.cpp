#include <qrftp/error.hpp>
#include <qrftp/trace.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace qrftp {

namespace {

struct description {
    error_cause cause;
    std::string_view name;
    std::string_view sentence;
    std::string_view with_reason{}; ///< where the usual sentence has no place for it
};

constexpr std::array<description, 33> descriptions{{
    {error_cause::invalid_url, "InvalidUrl", R"("{0}" is not the URL of an FTP or SFTP server: {1}.)"},
    {error_cause::invalid_name, "InvalidName", R"("{0}" cannot be sent: it holds {1}.)"},
    {error_cause::invalid_option, "InvalidOption", R"(The setting "{0}" cannot be used: {1}.)"},
    {error_cause::no_connection, "NoConnection",
     R"(No connection to "{0}"{2}. Check the address, the network and that the server is running.)"},
    {error_cause::proxy_refused, "ProxyRefused", R"(The proxy refused the connection{2}.)"},
    {error_cause::no_encryption, "NoEncryption",
     R"(No encrypted connection to "{0}"{2}. )"
     "If the server offers no TLS, --tls none goes on in the clear, password included.",
     R"("{0}" {1}{2}. --tls none goes on in the clear, password included.)"},
    {error_cause::certificate_refused, "CertificateRefused",
     R"(The certificate of "{0}" is not trusted{2}. Nothing secret was sent. )"
     "If it is the server's own, name it with --cacert FILE or --pin."},
    {error_cause::host_key_unknown, "HostKeyUnknown",
     R"(The host key of "{0}" is not known: {1}. Nothing secret was sent. If its administrator confirms the )"
     "fingerprint, add the key to the known-hosts file, or accept it with --host-key accept-new."},
    {error_cause::host_key_changed, "HostKeyChanged",
     R"(The host key of "{0}" is not the one that is known: {1}. Somebody may be listening in, or )"
     R"(the server was set up anew; ask its administrator. Nothing secret was sent. If the new key is right, )"
     R"(ssh-keygen -R "{0}" -f FILE removes the old one from that file.)"},
    {error_cause::host_key_revoked, "HostKeyRevoked",
     R"(The host key of "{0}" has been revoked: {1}. Nothing secret was sent.)"},
    {error_cause::login_refused, "LoginRefused",
     R"(The login at "{0}" was refused{2}. Check the user name and the password or key.)"},
    {error_cause::timeout, "Timeout", R"("{0}" timed out{2}.)", R"("{0}" was not finished within {1}.)"},
    {error_cause::connection_lost, "ConnectionLost", R"(The connection broke during "{0}"{2}.)",
     R"(The connection broke while fetching "{0}"{2}; {1}. Run it again.)"},
    {error_cause::protocol_error, "ProtocolError",
     R"("{0}" does not keep to the protocol: {1}. The connection was closed.)"},
    {error_cause::not_found, "NotFound", R"(There is no "{0}" on the server{2}.)"},
    {error_cause::permission_denied, "PermissionDenied", R"(The server does not allow this with "{0}"{2}.)"},
    {error_cause::already_exists, "AlreadyExists", R"("{0}" already exists{2}.)"},
    {error_cause::not_empty, "NotEmpty", R"(The folder "{0}" is not empty{2}.)"},
    {error_cause::is_folder, "IsFolder", R"("{0}" is a folder{2}.)"},
    {error_cause::not_folder, "NotFolder", R"("{0}" is not a folder{2}.)"},
    {error_cause::disk_full, "DiskFull", R"(The server has no room for "{0}"{2}.)"},
    {error_cause::not_supported, "NotSupported", R"(The server does not support what "{0}" needs{2}.)"},
    {error_cause::refused, "Refused", R"(The server refused the request for "{0}"{2}.)"},
    {error_cause::incomplete_listing, "IncompleteListing",
     R"(The listing of "{0}" is not complete: {1}. Nothing was concluded from it.)"},
    {error_cause::cannot_resume, "CannotResume", R"("{0}" cannot be completed: {1}. Nothing was changed.)"},
    {error_cause::size_mismatch, "SizeMismatch", R"("{0}" did not arrive whole: {1}.)"},
    {error_cause::checksum_mismatch, "ChecksumMismatch",
     R"("{0}" is not what was copied: {1}. The target was left as it was; run it again.)"},
    {error_cause::unsafe_name, "UnsafeName", R"("{0}" may not be written: {1}.)"},
    {error_cause::empty_source, "EmptySource",
     R"(The source "{0}" is empty, but the destination is not. Nothing was removed; --force removes anyway.)"},
    {error_cause::too_many_removals, "TooManyRemovals",
     R"(Nothing was changed in "{0}": {1}, more than --max-delete allows.)"},
    {error_cause::local_file, "LocalFileError", R"(The local file "{0}" cannot be used: {1}.)"},
    {error_cause::cancelled, "Cancelled", R"(Interrupted: "{0}".)"},
    {error_cause::closed, "Closed", R"(The {0} is closed.)"},
}};

constexpr bool is_in_order()
{
    for (std::size_t i = 0; i < descriptions.size(); ++i) {
        if (static_cast<std::size_t>(descriptions.at(i).cause) != i) {
            return false;
        }
    }
    return true;
}
static_assert(is_in_order());

const description& describe(error_cause why)
{
    return descriptions.at(static_cast<std::size_t>(why));
}

std::string_view sentence_for(error_cause why, const std::string& reason)
{
    const description& found = describe(why);
    return reason.empty() || found.with_reason.empty() ? found.sentence : found.with_reason;
}

std::string local_reason(std::error_code code)
{
    return code == std::errc::no_such_file_or_directory ? "it does not exist"
           : code == std::errc::is_a_directory          ? "it is a folder"
           : code == std::errc::not_a_directory         ? "it is not a folder"
                                                        : code.message();
}

} // namespace

struct error::details {
    error_cause cause;
    std::string path;
    response said;
    std::string sentence;
};

error::error(error_cause why, std::string subject, const std::string& reason, response said)
    : error(sentence_for(why, reason), why, std::move(subject), reason, std::move(said))
{
}

error::error(std::string_view sentence, error_cause why, std::string subject, const std::string& reason,
             response said)
{
    // A server may repeat what it was sent, the password included. Without a code the words are our own.
    said.message = said.code == 0 ? std::move(said.message) : masked(said.message);
    const std::string words = said.message.empty() ? "" : fmt::format(" ({})", escape(said.message));
    std::string text = fmt::format(fmt::runtime(sentence), escape(subject), escape(reason), words);
    details_ =
        std::make_shared<const details>(details{why, std::move(subject), std::move(said), std::move(text)});
}

const char* error::what() const noexcept
{
    return details_->sentence.c_str();
}

error_cause error::cause() const noexcept
{
    return details_->cause;
}

std::string_view error::name() const noexcept
{
    return name_of(details_->cause);
}

const std::string& error::path() const noexcept
{
    return details_->path;
}

long error::reply_code() const noexcept
{
    return details_->said.code;
}

const std::string& error::server_message() const noexcept
{
    return details_->said.message;
}

LocalFileError::LocalFileError(std::string path, std::error_code code, const std::string& reason)
    : error(error_cause::local_file, std::move(path), reason.empty() ? local_reason(code) : reason), code_(code)
{
}

LocalFileError::LocalFileError(std::string_view sentence, std::string path, std::error_code code)
    : error(sentence, error_cause::local_file, std::move(path), {}, {}), code_(code)
{
}

LocalFileError LocalFileError::missing_folder(std::string path, bool is_wanted)
{
    return {is_wanted ? R"(The local folder "{0}" does not exist; make it first.)"
                      : R"(There is no local folder "{0}".)",
            std::move(path), std::make_error_code(std::errc::no_such_file_or_directory)};
}

std::string_view name_of(error_cause why) noexcept
{
    return describe(why).name;
}

std::string_view sentence_of(error_cause why) noexcept
{
    return describe(why).sentence;
}

} // namespace qrftp
