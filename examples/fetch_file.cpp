// fetch_file URL LOCAL-FILE [CA-FILE]: fetches one file and shows its progress. The password is in
// QRFTP_PASSWORD.
#include <qrftp/client.hpp>

#include <cstdlib>
#include <iostream>

namespace {

bool show(const qrftp::progress& now)
{
    if (now.total > 0) { // it is not known from the beginning
        std::cerr << '\r' << now.bytes << " of " << now.total << " bytes, "
                  << static_cast<long>(now.rate / 1024) << " KiB/s   " << std::flush;
    }
    return true; // false would end the transfer
}

} // namespace

int main(int argc, char** argv)
try {
    if (argc < 3) {
        std::cerr << "fetch_file URL LOCAL-FILE [CA-FILE]\n";
        return 2;
    }
    qrftp::session_options options;
    if (const char* const password = std::getenv("QRFTP_PASSWORD")) {
        options.password = password;
    }
    if (argc > 3) {
        options.certificate_authorities = argv[3];
    }
    const qrftp::url where = qrftp::url::parse(argv[1]);
    qrftp::session remote(where, options);
    remote.fetch(where.path, argv[2], {.keep_time = true, .on_progress = show});
    std::cerr << '\n';
} catch (const qrftp::NotFound& error) { // one of the errors, told apart by its class
    std::cerr << "Nothing there: " << error.reply_code() << ' ' << qrftp::escape(error.server_message())
              << '\n';
    return 5;
} catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
}
