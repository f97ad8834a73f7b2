#include <qrftp/errors.hpp>

#include <foundation/log/sink.hpp>

#include <array>
#include <utility>

namespace qrftp::error {

namespace {

using foundation::core::except::Catalogue;
using foundation::core::except::Message;

/// What every one of the client's messages says. The last argument is what the server said, in brackets.
void add_sentences()
{
    static constexpr std::array<std::pair<const char*, const char*>, 22> sentences{{
        {"InvalidUrl", R"("{0}" is not the URL of an FTP or SFTP server: {1}.)"},
        {"InvalidName",
         R"(This cannot be sent: {0} holds {1}. It could be taken for something else on the way.)"},
        {"NoConnection",
         R"(No connection to "{0}"{1}. Check the address, the network and that the server runs.)"},
        {"NoEncryption", R"(No encrypted connection to "{0}"{1}. If it offers no TLS, say so to go without.)"},
        {"CertificateRefused", R"(The certificate of "{0}" is not to be trusted{1}. Nothing secret was sent.)"},
        {"HostKeyUnknown", R"(The host key of "{0}" is not known: {1}. Nothing secret was sent.)"},
        {"HostKeyChanged",
         R"(The host key of "{0}" is not the one that is known: {1}. Somebody may be listening )"
         "in, or the server was set up anew; ask its keeper. Nothing secret was sent."},
        {"HostKeyRevoked", R"(The host key of "{0}" has been revoked: {1}. Nothing secret was sent.)"},
        {"LoginRefused", R"(The login at "{0}" was refused{1}. Check the user name and the password or key.)"},
        {"Stalled", R"("{0}" has not gone on for too long{1}. Try again later, or allow it more time.)"},
        {"ServerGone",
         R"(The connection was lost during "{0}"{1}. Check whether it was done before you repeat it.)"},
        {"Missing", R"(There is no "{0}" on the server{1}.)"},
        {"Denied", R"(The server does not allow this with "{0}"{1}.)"},
        {"Exists", R"(There is already a "{0}"{1}.)"},
        {"NotEmpty", R"(The folder "{0}" is not empty{1}.)"},
        {"IsFolder", R"("{0}" is a folder{1}.)"},
        {"NotFolder", R"("{0}" is not a folder{1}.)"},
        {"Refused", R"(The server refused the request for "{0}"{1}.)"},
        {"CannotResume", R"("{0}" cannot be completed: {1}. Nothing was changed.)"},
        {"SizeMismatch", R"("{0}" did not arrive whole: {1}. What was there before is untouched.)"},
        {"UnsafeName", R"("{0}" may not be written: {1}.)"},
        {"Cancelled", R"(Interrupted: "{0}"{1}.)"},
    }};
    for (const auto& [key, sentence] : sentences) {
        Catalogue::instance().add(std::string(component) + ':' + key, sentence);
    }
}

Message make_message(std::string key, std::vector<std::string> arguments, const answer& said)
{
    static const bool added = (add_sentences(), true);
    (void)added;
    // A server may repeat what it was sent, the password included.
    arguments.push_back(said.words.empty() ? "" : " (" + foundation::log::masked(said.words) + ")");
    return {component, std::move(key), {arguments.begin(), arguments.end()}};
}

} // namespace

failure::failure(std::string key, std::vector<std::string> arguments, answer said_of_it)
    : message(make_message(std::move(key), std::move(arguments), said_of_it)), said(std::move(said_of_it))
{
}

} // namespace qrftp::error
