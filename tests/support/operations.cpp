#include "operations.hpp"

#include <boost/algorithm/string/join.hpp>
#include <gtest/gtest.h>

#include <map>

namespace support {

texts error_of(const std::function<void()>& call)
{
    try {
        call();
    } catch (const foundation::core::except::IMsgIDException& error) {
        texts parts{error.identifier().substr(error.identifier().rfind(':') + 1)};
        for (const auto& argument : error.arguments())
            parts.push_back(std::visit(
                [](const auto& value) -> std::string {
                    if constexpr (requires { value.c_str(); })
                        return std::string(value.begin(), value.end());
                    else
                        return std::to_string(value);
                },
                argument));
        return parts;
    }
    return {"nothing"};
}

std::string log_in(core::curl_ptr& connection, const std::string& url, long port, const std::string& mode,
                   const std::string& tls)
{
    return core::connect(connection, url, "u", "p", port, mode, tls, false, "", true, true, 1, 60);
}

std::vector<operation> ftp_operations(const fl::ustring& local)
{
    const std::string walk = "CWD /|CWD home|CWD u";
    const std::string header = "|HEADERDATA=ptr|HEADERFUNCTION=fn";
    const std::string body = "|WRITEDATA=ptr|WRITEFUNCTION=fn";
    const std::string pwd = "NOBODY=1|QUOTE=PWD" + header;
    const std::string quoted = "FTP_FILEMETHOD=2|NOBODY=1|QUOTE=";
    const std::string back = "|NOBODY=1"; // the request that puts the folder back
    const auto sub = [](core::curl_ptr& c) { return core::fullurl(c, "sub", false); };
    return {
        {"unsafe_cd", [=](auto& c) { core::unsafe_cd(c, sub(c)); }, walk + "|CWD sub", "NOBODY=1", ""},
        {"cd", [=](auto& c) { core::cd(c, sub(c)); }, walk + "|CWD sub|PWD", "NOBODY=1|" + pwd,
         "NoSuchDirectory InternalError"},
        {"pwd", [](auto& c) { core::pwd(c); }, "PWD", pwd, "InternalError"},
        {"syst", [](auto& c) { core::syst(c); }, "SYST", "NOBODY=1|PREQUOTE=SYST" + header, ""},
        {"fullfile", [](auto& c) { core::fullfile(c, "x"); }, "PWD", pwd, "InternalError"},
        {"list", [](auto& c) { core::list(c, "a b"); }, "EPSV|TYPE A|LIST a b", "CUSTOMREQUEST=LIST a b" + body,
         ""},
        {"nlst", [](auto& c) { core::nlst(c, ""); }, "EPSV|TYPE A|NLST ", "CUSTOMREQUEST=NLST " + body, ""},
        {"dir", [](auto& c) { core::dir(c, "/x"); }, "EPSV|TYPE A|NLST /x", "CUSTOMREQUEST=NLST /x" + body, ""},
        {"is_folder", [](auto& c) { core::is_folder(c, "s p"); }, walk + "|CWD s p|PWD|" + walk,
         "NOBODY=1|" + pwd + back, ""},
        {"create_folder", [](auto& c) { core::create_folder(c, "n w"); }, "MKD n w", quoted + "MKD n w" + back,
         "CouldNotCreateFolder InternalError"},
        {"delete_folder", [](auto& c) { core::delete_folder(c, "/old"); }, "RMD /old",
         quoted + "RMD /old" + back, "FolderNotEmpty FTPError"},
        {"receive_file", [=](auto& c) { core::receive_file(c, u"f", local, false); },
         "EPSV|TYPE I|SIZE f|RETR f", "CRLF=0|TRANSFERTEXT=0|WRITEFUNCTION=fn|WRITEDATA=ptr" + back,
         "FileUnavailable FTPError"},
        {"send_file", [=](auto& c) { core::send_file(c, local, u"g", true); }, "EPSV|TYPE A|STOR g",
         "CRLF=1|TRANSFERTEXT=1|READDATA=ptr|READFUNCTION=fn|UPLOAD=1|INFILESIZE_LARGE=5" + back,
         "UploadFailed"},
        {"rename_remote_file", [](auto& c) { core::rename_remote_file(c, u"a b", u"c"); }, "RNFR a b|RNTO c",
         quoted + "RNFR a b, RNTO c" + back, "FTPError"},
        {"delete_remote_file", [](auto& c) { core::delete_remote_file(c, u"a b"); }, "DELE a b",
         quoted + "DELE a b" + back, "DeleteFailed"},
        {"sftp_create_folder", [](auto& c) { core::sftp_create_folder(c, "n w"); }, "PWD|PWD|mkdir \"n w\"",
         pwd + "|" + pwd + "|NOBODY=1|QUOTE=mkdir \"n w\"" + header, "CouldNotCreateFolder InternalError"},
        {"sftp_delete_folder", [](auto& c) { core::sftp_delete_folder(c, "n w"); }, "PWD|rmdir \"n w\"",
         pwd + "|ERRORBUFFER=ptr|" + quoted + "rmdir \"n w\"" + back,
         "RemoveFolderFailed FTPError InternalError"},
        {"sftp_rename_remote_file", [](auto& c) { core::sftp_rename_remote_file(c, u"/a", u"b c"); },
         "PWD|rename \"/a\" \"/home/u/b c\"", pwd + "|" + quoted + "rename \"/a\" \"/home/u/b c\"" + back,
         "FTPError InternalError"},
        {"sftp_delete_remote_file", [](auto& c) { core::sftp_delete_remote_file(c, u"a b"); },
         "PWD|rm \"/home/u/a b\"", pwd + "|" + quoted + "rm \"/home/u/a b\"" + back,
         "DeleteFailed InternalError"},
        {"sftp_is_folder", [](auto& c) { core::sftp_is_folder(c, "/x/", false); },
         "CWD /|CWD x|EPSV|TYPE A|LIST|" + walk, "DIRLISTONLY=0" + body + back, ""},
        {"is_file", [](auto& c) { core::is_file(c, u"a"); }, "statvfs \"a\"|USER u|PASS p|PWD|" + walk,
         "TIMEOUT=20|" + quoted + "statvfs \"a\"" + body + back + "|NOBODY=1|FILETIME=1", "FTPError"},
    };
}

std::string joined(const texts& parts)
{
    return boost::algorithm::join(parts, "|");
}

std::string expect_restored(const texts& lines, const std::string& home)
{
    static const std::multimap<std::string, std::string> restored{
        {"NOBODY", "0"},           {"QUOTE", "null"},          {"POSTQUOTE", "null"},
        {"PREQUOTE", "null"},      {"HEADERDATA", "null"},     {"HEADERFUNCTION", "null"},
        {"WRITEDATA", "stdout"},   {"WRITEDATA", "fwrite"},    {"WRITEFUNCTION", "null"},
        {"CUSTOMREQUEST", "null"}, {"FTP_FILEMETHOD", "1"},    {"CRLF", "0"},
        {"TRANSFERTEXT", "0"},     {"READDATA", "stdin"},      {"READFUNCTION", "fread"},
        {"UPLOAD", "0"},           {"INFILESIZE_LARGE", "-1"}, {"TIMEOUT", "0"},
        {"FILETIME", "0"},         {"ERRORBUFFER", "null"},    {"DIRLISTONLY", "0"}};
    texts open, settings;
    std::string url = home;
    for (const auto& line : lines) {
        const auto option = line.substr(0, line.find('='));
        const auto value = line.substr(std::min(option.size() + 1, line.size()));
        const auto [begin, end] = restored.equal_range(option);
        if (option == "URL")
            url = value;
        else if (line != "perform" && begin == end)
            ADD_FAILURE() << line << " is nobody's to set";
        else if (!open.empty() && open.back() == option) {
            open.pop_back();
            EXPECT_TRUE(std::any_of(begin, end, [&](auto& known) { return known.second == value; })) << line;
        } else if (line != "perform")
            open.push_back(option), settings.push_back(line);
    }
    EXPECT_EQ(open, texts{}) << "left set, or restored out of order";
    EXPECT_EQ(url, home);
    return joined(settings);
}

} // namespace support
