#include "operations.hpp"

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

namespace {

texts joined(std::initializer_list<texts> parts)
{
    texts all;
    for (const auto& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

const texts home_walk{"CWD /", "CWD home", "CWD u"};

texts probe(const std::string& url)
{
    return {"URL=ftp://127.0.0.1/" + url, "NOBODY=1", "perform", "NOBODY=0"};
}

texts headers(const std::string& quote)
{
    const auto option = quote.substr(0, quote.find('='));
    return {"NOBODY=1",        quote,
            "HEADERDATA=ptr",  "HEADERFUNCTION=fn",
            "perform",         "HEADERFUNCTION=null",
            "HEADERDATA=null", option + "=null",
            "NOBODY=0"};
}

texts body(const texts& before, const texts& after)
{
    return joined({before,
                   {"WRITEDATA=ptr", "WRITEFUNCTION=fn", "perform", "WRITEFUNCTION=null", "WRITEDATA=stdout"},
                   after});
}

texts quoted(const std::string& url, const std::string& commands, const texts& request = {"perform"})
{
    return joined({{"URL=ftp://127.0.0.1/" + url, "FTP_FILEMETHOD=2", "NOBODY=1", "QUOTE=" + commands},
                   request,
                   {"QUOTE=null", "NOBODY=0", "FTP_FILEMETHOD=1"},
                   probe("/home/u/")});
}

} // namespace

std::vector<operation> ftp_operations(const fl::ustring& local)
{
    const texts pwd = headers("QUOTE=PWD");
    const auto url = [](core::curl_ptr& c, const char* path) { return core::fullurl(c, path, false); };
    return {
        {"unsafe_cd",
         [=](auto& c) { core::unsafe_cd(c, url(c, "sub")); },
         joined({home_walk, {"CWD sub"}}),
         probe("/home/u/sub/"),
         {}},
        {"cd",
         [=](auto& c) { core::cd(c, url(c, "sub")); },
         joined({home_walk, {"CWD sub", "PWD"}}),
         joined({probe("/home/u/sub/"), pwd}),
         {"NoSuchDirectory", "InternalError"}},
        {"pwd", [](auto& c) { core::pwd(c); }, {"PWD"}, pwd, {"InternalError"}},
        {"syst", [](auto& c) { core::syst(c); }, {"SYST"}, headers("PREQUOTE=SYST"), {}},
        {"fullfile", [](auto& c) { core::fullfile(c, "x"); }, {"PWD"}, pwd, {"InternalError"}},
        {"list",
         [](auto& c) { core::list(c, "a b"); },
         {"EPSV", "TYPE A", "LIST a b"},
         body({"CUSTOMREQUEST=LIST a b"}, {"CUSTOMREQUEST=null"}),
         {}},
        {"nlst",
         [](auto& c) { core::nlst(c, ""); },
         {"EPSV", "TYPE A", "NLST "},
         body({"CUSTOMREQUEST=NLST "}, {"CUSTOMREQUEST=null"}),
         {}},
        {"dir",
         [](auto& c) { core::dir(c, "/x"); },
         {"EPSV", "TYPE A", "NLST /x"},
         body({"CUSTOMREQUEST=NLST /x"}, {"CUSTOMREQUEST=null"}),
         {}},
        {"is_folder",
         [](auto& c) { core::is_folder(c, "s p"); },
         joined({home_walk, {"CWD s p", "PWD"}, home_walk}),
         joined({probe("/home/u/s%20p/"), pwd, probe("/home/u/")}),
         {}},
        {"create_folder",
         [](auto& c) { core::create_folder(c, "n w"); },
         {"MKD n w"},
         quoted("/home/u/n%20w/", "MKD n w"),
         {"CouldNotCreateFolder", "InternalError"}},
        {"delete_folder",
         [](auto& c) { core::delete_folder(c, "/old"); },
         {"RMD /old"},
         quoted("/old/", "RMD /old"),
         {"FolderNotEmpty", "FTPError"}},
        {"receive_file",
         [=](auto& c) { core::receive_file(c, u"f", local, false); },
         {"EPSV", "TYPE I", "SIZE f", "RETR f"},
         joined(
             {{"URL=ftp://127.0.0.1//home/u/f", "CRLF=0", "TRANSFERTEXT=0", "WRITEFUNCTION=fn", "WRITEDATA=ptr",
               "perform", "WRITEDATA=fwrite", "WRITEFUNCTION=null", "TRANSFERTEXT=0", "CRLF=0"},
              probe("/home/u/")}),
         {"FileUnavailable", "FTPError"}},
        {"send_file",
         [=](auto& c) { core::send_file(c, local, u"g", true); },
         {"EPSV", "TYPE A", "STOR g"},
         joined({{"URL=ftp://127.0.0.1//home/u/g", "CRLF=1", "TRANSFERTEXT=1", "READDATA=ptr",
                  "READFUNCTION=fn", "UPLOAD=1", "INFILESIZE_LARGE=5", "perform", "INFILESIZE_LARGE=-1",
                  "UPLOAD=0", "READFUNCTION=fread", "READDATA=stdin", "TRANSFERTEXT=0", "CRLF=0"},
                 probe("/home/u/")}),
         {"UploadFailed"}},
        {"rename_remote_file",
         [](auto& c) { core::rename_remote_file(c, u"a b", u"c"); },
         {"RNFR a b", "RNTO c"},
         quoted("/home/u/", "RNFR a b, RNTO c"),
         {"FTPError"}},
        {"delete_remote_file",
         [](auto& c) { core::delete_remote_file(c, u"a b"); },
         {"DELE a b"},
         quoted("/home/u/a%20b/", "DELE a b"),
         {"DeleteFailed"}},
        {"is_file",
         [](auto& c) { core::is_file(c, u"a"); },
         joined({{"statvfs \"a\"", "USER u", "PASS p", "PWD"}, home_walk}),
         joined({{"TIMEOUT=20"},
                 quoted("/home/u/", "statvfs \"a\"", body({}, {})),
                 {"TIMEOUT=0", "NOBODY=1", "FILETIME=1", "perform", "FILETIME=0", "NOBODY=0"}}),
         {"FTPError"}},
    };
}

void expect_restored(const texts& lines, const std::string& home)
{
    static const std::multimap<std::string, std::string> restored{
        {"NOBODY", "0"},           {"QUOTE", "null"},          {"POSTQUOTE", "null"},
        {"PREQUOTE", "null"},      {"HEADERDATA", "null"},     {"HEADERFUNCTION", "null"},
        {"WRITEDATA", "stdout"},   {"WRITEDATA", "fwrite"},    {"WRITEFUNCTION", "null"},
        {"CUSTOMREQUEST", "null"}, {"FTP_FILEMETHOD", "1"},    {"CRLF", "0"},
        {"TRANSFERTEXT", "0"},     {"READDATA", "stdin"},      {"READFUNCTION", "fread"},
        {"UPLOAD", "0"},           {"INFILESIZE_LARGE", "-1"}, {"TIMEOUT", "0"},
        {"FILETIME", "0"},         {"ERRORBUFFER", "null"},    {"DIRLISTONLY", "0"}};
    texts open;
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
            open.push_back(option);
    }
    EXPECT_EQ(open, texts{}) << "left set, or restored out of order";
    EXPECT_EQ(url, home);
}

} // namespace support
