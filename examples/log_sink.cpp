// log_sink URL LOG-FILE [CA-FILE]: lists a folder, and writes what passes between client and server into a file
// of tab-separated lines. The password is in QRFTP_PASSWORD.
#include <foundation/log/sink.hpp>
#include <foundation/text/escape.hpp>
#include <qrftp/client.hpp>
#include <zorbel/io/ftp/core/logger.hpp>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <memory>

namespace level = zorbel::io::ftp::core::level;

int main(int argc, char** argv)
try {
    if (argc < 3) {
        std::cerr << "log_sink URL LOG-FILE [CA-FILE]\n";
        return 2;
    }
    const auto log = std::make_shared<std::ofstream>(argv[2]);
    const auto start = std::chrono::steady_clock::now();
    // Calls come one at a time, and the text has had its secrets masked.
    foundation::log::set_entry_handler([log, start](const foundation::log::entry& record) {
        const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
        *log << time.count() << '\t' << (record.level == level::message ? "message" : "info") << '\t'
             << foundation::text::escape(record.text) << '\n';
    });
    zorbel::io::ftp::core::getLogger().enable_levels(level::message | level::info);

    qrftp::options how;
    if (const char* const password = std::getenv("QRFTP_PASSWORD")) {
        how.password = password;
    }
    if (argc > 3) {
        how.certificate_authorities = argv[3];
    }
    const qrftp::url where = qrftp::url::parse(argv[1]);
    qrftp::session remote(where, how);
    for (const qrftp::entry& each : remote.list(where.path).entries) {
        std::cout << each.name << '\n';
    }
    return log->flush() ? 0 : 7;
} catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
}
