#include <foundation/core/except/Catalogue.hpp>
#include <foundation/core/except/IMsgIDException.hpp>
#include <foundation/text/escape.hpp>

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <system_error>
#include <variant>

namespace foundation::core::except {

namespace {

std::map<std::string, std::string> english()
{
    return {
        {"ZORBEL:io:ftp:ftp:InternalError",
         R"("{0}" failed: "{1}". Check the setting or the name shown; if it is right, the connection or the )"
         "server's answer is at fault."},
        {"ZORBEL:io:ftp:ftp:BadLogin",
         R"(The login at "{0}" was refused. Check the user name and the password or key.)"},
        {"ZORBEL:io:ftp:ftp:NoConnection",
         R"(No connection to "{0}" on port {1} could be opened. Check the address and the port, the proxy and )"
         "encryption settings, and that the server runs and lets you into its folder."},
        {"ZORBEL:io:ftp:ftp:NoConnectionToStartingFolder",
         R"(The starting folder could not be opened because the host name "{0}" was not found (port {1}). )"
         "Check the host name and the network."},
        {"ZORBEL:io:ftp:ftp:NoSuchDirectory",
         R"(The remote folder "{0}" could not be entered. Check that it exists and that you may open it, and )"
         "that the connection still stands."},
        {"ZORBEL:io:ftp:ftp:FTPError",
         "The request failed with code {0}. A code of 100 or more is the server's last reply; 0 means that no "
         "reply came; any other is libcurl's result. After a download check the local disk as well."},
        {"ZORBEL:io:ftp:ftp:NotFound",
         R"(The local file "{0}" could not be opened and measured. Check that it )"
         "exists and is an ordinary file."},
        {"ZORBEL:io:ftp:ftp:FileUnavailable",
         R"(The server refused the remote file "{0}". Check that it exists and that you may read it.)"},
        {"ZORBEL:io:ftp:ftp:DeleteFailed",
         R"(The remote file "{0}" could not be deleted. Check that it exists and that you may delete it, and )"
         "that the connection still stands."},
        {"ZORBEL:io:ftp:ftp:UploadFailed",
         R"(The local file "{0}" could not be sent. Check the file, your rights and the free space on the )"
         "server, and the connection. A part of it may have been left on the server."},
        {"ZORBEL:io:ftp:ftp:CouldNotCreateFolder",
         R"(The remote folder "{0}" could not be created. It may exist already, its parent folder may be )"
         "missing, you may lack the right, or the connection may be lost."},
        {"ZORBEL:io:ftp:ftp:FolderNotEmpty",
         R"(The server refused to remove the folder "{0}". It may still hold files, or it may not exist, or )"
         "you may lack the right."},
        {"ZORBEL:io:ftp:ftp:RemoveFolderFailed",
         R"(The remote folder "{0}" could not be removed. It may still hold files, or it may not exist, or )"
         "you may lack the right."},
        {"ZORBEL:io:ftp:ftp:CouldNotDetermineHomeFolder",
         "The home or starting folder could not be opened; the connection starts at the server's root folder."},
        {"ZORBEL:io:ftp:ftp:CouldNotLoginToRemoteFolder",
         "The folder in the server's address could not be entered at login; the login was made at the "
         "server's root instead."},
        {"ZORBEL:io:ftp:curl:InvalidCurlHandle", "The connection is closed. Open a new one."},
        {"ZORBEL:io:ftp:curl:CurlHandleUnwrapFailed",
         "The value is not a connection. Pass the object that was given out when the connection was opened."},
        {"ZORBEL:io:ftp:curl:LibraryInitializationFailure",
         "libcurl is not ready for use: it could not be initialised, or the program offers no service that "
         "does "
         "so. Check that libcurl is installed whole and that memory is not short."},
        {"ZORBEL:io:ftp:curl:CurlHandleInitializationFailure",
         "libcurl could not make a new connection handle. Close other connections or free memory."},
        {"ZORBEL:io:common:file:PermissionDenied",
         R"(You may not open, read or write the local file "{0}". Check its permissions and its folder's.)"},
        {"ZORBEL:io:common:file:NoSuchFile",
         R"(There is no local file "{0}". Check the name and that its folder exists.)"},
        {"ZORBEL:io:common:file:DiskFull",
         R"(The local disk, or your share of it, is too full for "{0}". Free some space and try again.)"},
        {"ZORBEL:io:common:file:FileError", R"(The local file "{0}" failed: {1}.)"},
        {"ZORBEL:fl:i18n:InvalidText",
         R"(The text "{0}" is not valid Unicode (position {1}). Rename what it names, or give it in UTF-8.)"},
    };
}

std::string in_words(const MessageArgument& argument)
{
    if (const auto* number = std::get_if<std::int64_t>(&argument)) {
        return std::to_string(*number);
    }
    if (const auto* narrow = std::get_if<std::string>(&argument)) {
        return text::escape(std::string_view(*narrow));
    }
    return text::escape(std::u16string_view(*std::get_if<fl::ustring>(&argument)));
}

/// Puts the arguments into the sentence in one pass, so that a brace inside an argument stays as it is.
std::string fill_in(std::string_view sentence, const std::vector<MessageArgument>& arguments)
{
    std::string result;
    while (!sentence.empty()) {
        std::size_t index = 0;
        const char* const digits = sentence.data() + 1;
        const char* const end = sentence.data() + sentence.size();
        if (sentence.front() == '{') {
            const auto [stop, error] = std::from_chars(digits, end, index);
            if (error == std::errc() && stop != end && *stop == '}' && index < arguments.size()) {
                result += in_words(arguments[index]);
                sentence.remove_prefix(static_cast<std::size_t>(stop + 1 - sentence.data()));
                continue;
            }
        }
        result += sentence.front();
        sentence.remove_prefix(1);
    }
    return result;
}

} // namespace

IMsgIDException::~IMsgIDException() = default;

Catalogue::Catalogue() : sentences_(english())
{
}

Catalogue& Catalogue::instance()
{
    // Never destroyed: an error may still be made while the process ends.
    static auto* const catalogue = new Catalogue;
    return *catalogue;
}

void Catalogue::add(const std::string& identifier, const std::string& sentence)
{
    const std::lock_guard lock(mutex_);
    sentences_[identifier] = sentence;
}

std::string Catalogue::render(const Message& message) const
{
    const std::string identifier = message.identifier();
    std::string sentence;
    {
        const std::lock_guard lock(mutex_);
        if (const auto found = sentences_.find(identifier); found != sentences_.end()) {
            sentence = found->second;
        }
    }
    std::string result = fill_in(sentence, message.arguments);
    if (result.empty()) {
        result = text::escape(std::string_view(identifier));
        for (const MessageArgument& argument : message.arguments) {
            result += ' ' + in_words(argument);
        }
    }
    return result;
}

std::map<std::string, std::string> Catalogue::entries() const
{
    const std::lock_guard lock(mutex_);
    return sentences_;
}

} // namespace foundation::core::except
