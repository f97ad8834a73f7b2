#include "trace.hpp"

#include <fl/i18n/ustring_to_utf8.hpp>
#include <foundation/core/except/Exception.hpp>
#include <zorbel/io/common/file.hpp>
#include <zorbel/io/ftp/core/errors.hpp>
#include <zorbel/io/ftp/core/files.hpp>
#include <zorbel/io/ftp/core/navigation.hpp>
#include <zorbel/io/ftp/core/paths.hpp>
#include <zorbel/io/ftp/core/request.hpp>

#include <boost/exception/diagnostic_information.hpp>

#include <cstdio>

#include <tuple>

namespace zorbel::io::ftp::core {

using fl::i18n::ustring_to_utf8;
using foundation::core::except::Exception;
using foundation::core::except::raise;
using zorbel::io::common::file::File;
using zorbel::io::common::file::Operation;
using ZORBEL::io::common::file::PermissionDenied;
using namespace ZORBEL::io::ftp::ftp;

namespace {

/// libcurl's write callback; `user` is the local file. A failed or short write ends the transfer.
std::size_t file_write_callback(char* data, std::size_t size, std::size_t count, void* user) noexcept
{
    const auto written = write(*static_cast<const File*>(user), data, static_cast<long>(size * count));
    const long* bytes = std::get_if<long>(&written);
    return bytes == nullptr ? 0 : static_cast<std::size_t>(*bytes);
}

/// libcurl's read callback; `user` is the local file.
std::size_t file_read_callback(char* buffer, std::size_t size, std::size_t count, void* user) noexcept
{
    const auto result = read(*static_cast<const File*>(user), buffer, static_cast<long>(size * count));
    const long* bytes = std::get_if<long>(&result);
    if (bytes == nullptr) {
        return CURL_READFUNC_ABORT;
    }
    return *bytes == -1 ? 0 : static_cast<std::size_t>(*bytes);
}

std::pair<File, unsigned long> make_file_with_size(const fl::ustring& path)
{
    const scope_trace trace;
    try {
        File file = zorbel::io::common::file::make_readable_file(path);
        const auto size = zorbel::io::common::file::make_vfs_file(path).getAttributes().getSize();
        return {std::move(file), size};
    } catch (const Exception<PermissionDenied>&) {
        raise<PermissionDenied>(path);
    } catch (...) {
        if (getLogger().is_enabled(level::info)) { // the text is costly to make
            log(level::info, boost::current_exception_diagnostic_information(true));
        }
        raise<NotFound>(path);
    }
}

void rename(curl_ptr& connection, slist commands)
{
    const long reply =
        scoped_request(connection).request_quoted(current_remote_url(connection), std::move(commands)).second;
    if (reply >= 500 && reply <= 553) {
        raise<FTPError>(reply);
    }
}

/// Sends `command`, which deletes the file `name`, at the URL of that file.
void delete_with(curl_ptr& connection, slist command, const std::string& name)
{
    const std::string url = add_trailing_slash(fullurl(connection, name, false));
    if (scoped_request(connection).request_quoted(url, std::move(command)).first != CURLE_OK) {
        raise<DeleteFailed>(name);
    }
}

void close_or_throw(const File& file)
{
    handle_exception(close(file), file, Operation{});
}

} // namespace

void send_file(curl_ptr& connection, const fl::ustring& local_path, const fl::ustring& remote_name,
               bool text_mode)
{
    const scope_trace trace;
    const std::string url = fullurl(connection, ustring_to_utf8(remote_name), false);
    const auto [file, size] = make_file_with_size(local_path);
    CURLcode code = CURLE_OK;
    {
        scoped_request request(connection);
        request.seturl(url)
            .setopt(CURLOPT_CRLF, text_mode ? 1L : 0L, 0)
            .setopt(CURLOPT_TRANSFERTEXT, text_mode ? 1L : 0L, 0)
            .setopt(CURLOPT_READDATA, &file, stdin)
            .setopt(CURLOPT_READFUNCTION, &file_read_callback, &std::fread)
            .setopt(CURLOPT_UPLOAD, 1L, 0)
            .setopt(CURLOPT_INFILESIZE_LARGE, size, -1);
        code = request.perform().first;
    }
    close_or_throw(file);
    if (code != CURLE_OK) {
        raise<UploadFailed>(local_path);
    }
}

void receive_file(curl_ptr& connection, const fl::ustring& remote_name, const fl::ustring& local_path,
                  bool text_mode)
{
    const scope_trace trace;
    const std::string url = fullurl(connection, ustring_to_utf8(remote_name), false);
    const File file = zorbel::io::common::file::make_writeable_file(local_path);
    CURLcode code = CURLE_OK;
    long reply = 0;
    {
        scoped_request request(connection);
        request.seturl(url)
            .setopt(CURLOPT_CRLF, text_mode ? 1L : 0L, 0)
            .setopt(CURLOPT_TRANSFERTEXT, text_mode ? 1L : 0L, 0)
            .setopt(CURLOPT_WRITEFUNCTION, &file_write_callback, nullptr)
            // Between requests the pair is not usable, and is not used: a request without a body writes
            // nothing, and one with a body sets both.
            .setopt(CURLOPT_WRITEDATA, &file, &std::fwrite);
        std::tie(code, reply) = request.perform();
    }
    close_or_throw(file);
    if (code == CURLE_OK) {
        return;
    }
    if (reply == 550) {
        raise<FileUnavailable>(remote_name);
    }
    raise<FTPError>(reply);
}

void delete_remote_file(curl_ptr& connection, const fl::ustring& name)
{
    const scope_trace trace;
    const std::string name8 = ustring_to_utf8(name);
    delete_with(connection, slist("DELE " + name8), name8);
}

void rename_remote_file(curl_ptr& connection, const fl::ustring& old_name, const fl::ustring& new_name)
{
    const scope_trace trace;
    const std::string old8 = ustring_to_utf8(old_name);
    const std::string new8 = ustring_to_utf8(new_name);
    slist commands("RNFR " + old8);
    commands.append("RNTO " + new8);
    rename(connection, std::move(commands));
}

void sftp_delete_remote_file(curl_ptr& connection, const fl::ustring& name)
{
    const scope_trace trace;
    const std::string name8 = ustring_to_utf8(name);
    delete_with(connection, slist("rm \"" + fullfile(connection, name8) + '"'), name8);
}

void sftp_rename_remote_file(curl_ptr& connection, const fl::ustring& old_name, const fl::ustring& new_name)
{
    const scope_trace trace;
    const std::string old8 = ustring_to_utf8(old_name);
    const std::string new8 = ustring_to_utf8(new_name);
    const std::string from = fullfile(connection, old8);
    const std::string to = fullfile(connection, new8);
    rename(connection, slist("rename \"" + from + "\" \"" + to + '"'));
}

bool is_file(curl_ptr& connection, const fl::ustring& name)
{
    const scope_trace trace;
    const std::string name8 = ustring_to_utf8(name);
    const std::string url = current_remote_url(connection);
    slist commands("statvfs \"" + name8 + '"');
    const CURLcode code = scoped_request(connection)
                              .setopt(CURLOPT_TIMEOUT, 20L, 0)
                              .request_quoted_body(url, std::move(commands))
                              .first;
    if (code == CURLE_OK) {
        return true;
    }
    if (code != CURLE_QUOTE_ERROR && code != CURLE_OPERATION_TIMEDOUT) {
        raise<FTPError>(static_cast<long>(code));
    }
    return scoped_request(connection)
               .setopt(CURLOPT_NOBODY, 1L, 0)
               .setopt(CURLOPT_FILETIME, 1L, 0)
               .perform()
               .first == CURLE_OK;
}

} // namespace zorbel::io::ftp::core
