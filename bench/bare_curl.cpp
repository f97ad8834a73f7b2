// bare_curl get|put LOCAL URL | many-get|many-put FOLDER URL NAME... | ls URL: libcurl's easy interface and
// nothing else, with the options and the buffers that the client sets, and one handle. The environment has
// BENCH_USER and BENCH_PASSWORD, for TLS BENCH_CA, for SFTP BENCH_KEY and BENCH_KNOWN_HOSTS.
#include <curl/curl.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

constexpr long buffer = 2L * 1024 * 1024;

void set_up(CURL* handle)
{
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle, CURLOPT_TCP_KEEPALIVE, 1L);
    curl_easy_setopt(handle, CURLOPT_BUFFERSIZE, buffer);
    curl_easy_setopt(handle, CURLOPT_UPLOAD_BUFFERSIZE, buffer);
    curl_easy_setopt(handle, CURLOPT_USERNAME, std::getenv("BENCH_USER"));
    curl_easy_setopt(handle, CURLOPT_FTP_FILEMETHOD, static_cast<long>(CURLFTPMETHOD_NOCWD));
    if (const char* authorities = std::getenv("BENCH_CA")) {
        curl_easy_setopt(handle, CURLOPT_USE_SSL, static_cast<long>(CURLUSESSL_ALL));
        curl_easy_setopt(handle, CURLOPT_CAINFO, authorities);
        long versions = CURL_SSLVERSION_TLSv1_2;
        versions |= CURL_SSLVERSION_MAX_TLSv1_2;
        curl_easy_setopt(handle, CURLOPT_SSLVERSION, versions);
    }
    if (const char* key = std::getenv("BENCH_KEY")) {
        curl_easy_setopt(handle, CURLOPT_SSH_AUTH_TYPES, static_cast<long>(CURLSSH_AUTH_PUBLICKEY));
        curl_easy_setopt(handle, CURLOPT_SSH_PRIVATE_KEYFILE, key);
        curl_easy_setopt(handle, CURLOPT_SSH_KNOWNHOSTS, std::getenv("BENCH_KNOWN_HOSTS"));
        curl_easy_setopt(handle, CURLOPT_KEYPASSWD, "");
    } else {
        curl_easy_setopt(handle, CURLOPT_PASSWORD, std::getenv("BENCH_PASSWORD"));
    }
}

bool transfer(CURL* handle, bool put, const std::string& local, const std::string& url)
{
    std::FILE* file = std::fopen(local.c_str(), put ? "rb" : "wb");
    if (file == nullptr) {
        std::perror(local.c_str());
        return false;
    }
    std::setvbuf(file, nullptr, _IONBF, 0); // libcurl's buffer is large enough
    curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
    if (put) {
        struct stat about {};
        fstat(fileno(file), &about);
        curl_easy_setopt(handle, CURLOPT_UPLOAD, 1L);
        curl_easy_setopt(handle, CURLOPT_READDATA, file);
        curl_easy_setopt(handle, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(about.st_size));
    } else {
        curl_easy_setopt(handle, CURLOPT_WRITEDATA, file);
    }
    const CURLcode code = curl_easy_perform(handle);
    if (code != CURLE_OK) {
        std::fprintf(stderr, "bare_curl: %s: %s\n", url.c_str(), curl_easy_strerror(code));
    }
    return std::fclose(file) == 0 && code == CURLE_OK;
}

} // namespace

int main(int count, char** words)
{
    const std::string job = count > 1 ? words[1] : "";
    if (count < (job == "ls" ? 3 : 4)) {
        std::fputs("bare_curl get|put LOCAL URL | many-get|many-put FOLDER URL NAME... | ls URL\n", stderr);
        return 2;
    }
    curl_global_init(CURL_GLOBAL_DEFAULT);
    CURL* handle = curl_easy_init();
    set_up(handle);
    bool good = true;
    if (job == "ls") {
        good = transfer(handle, false, "/dev/stdout", words[2]);
    } else if (job == "get" || job == "put") {
        good = transfer(handle, job == "put", words[2], words[3]);
    } else {
        const bool put = job == "many-put";
        const std::string url = words[3];
        const bool sftp = url.compare(0, 4, "sftp") == 0;
        const auto path = url.find('/', url.find("://") + 3) + (sftp ? 0 : 1);
        curl_slist* make = curl_slist_append(nullptr, ((sftp ? "mkdir " : "MKD ") + url.substr(path)).c_str());
        curl_easy_setopt(handle, CURLOPT_QUOTE, put ? make : nullptr);
        for (int i = 4; good && i < count; ++i) {
            const std::string name = std::string("/") + words[i];
            good = transfer(handle, put, words[2] + name, url + name);
            curl_easy_setopt(handle, CURLOPT_QUOTE, nullptr);
        }
        curl_slist_free_all(make);
    }
    curl_easy_cleanup(handle);
    curl_global_cleanup();
    return good ? 0 : 1;
}
