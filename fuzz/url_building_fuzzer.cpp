// Remote names made into URLs: libcurl reads the same server and the same path out of them.
#include "fuzz.hpp"
#include <zorbel/io/ftp/core.hpp>
using namespace zorbel::io::ftp::core;
static void fuzz(std::string_view input)
{
    // The URL of a server, its host, what stands between it and an absolute path, the current folder.
    static const std::string bases[][4] = {{"ftp://srv", "srv", "/", "/home/u/"},
                                           {"ftps://srv:990", "srv", "/", ""},
                                           {"sftp://[::1]:22", "[::1]", "", "/home/u"},
                                           {"ftp://u:p@srv", "srv", "/", "/a"}};
    static curl_ptr c(false);
    static CURLU* const parsed = curl_url();
    const auto& [server, host, root, folder] =
        bases[input.empty() ? 0 : static_cast<unsigned char>(input[0]) % std::size(bases)];
    const std::string name(input.substr(!input.empty())),
        base = server + folder, absolute = root + (name.starts_with('/') ? name : "/");
    const std::string below = name.empty() ? folder : folder + (folder.ends_with('/') ? "" : "/") + name;
    const auto part = [](CURLUPart which) {
        char* found = nullptr;
        const std::string text = curl_url_get(parsed, which, &found, 0) == CURLUE_OK ? found : "?";
        return curl_free(found), percent_decode(c, text);
    };
    require(curl_easy_setopt(c.get(), CURLOPT_URL, base.c_str()) == CURLE_OK);
    for (const auto& [url, path] : {std::pair(make_absolute_url(c, base, name, false), absolute),
                                    {fullurl(c, name, false), name.starts_with('/') ? absolute : below}}) {
        require(url.starts_with(server) &&
                std::all_of(url.begin(), url.end(), [](char byte) { return byte > ' ' && byte < 0x7f; }));
        require(percent_decode(c, url.substr(server.size())) == path);
        require(curl_url_set(parsed, CURLUPART_URL, url.c_str(), CURLU_NON_SUPPORT_SCHEME | CURLU_PATH_AS_IS) ==
                CURLUE_OK);
        require(part(CURLUPART_HOST) == host && part(CURLUPART_PATH) == (path.empty() ? "/" : path));
    }
}
