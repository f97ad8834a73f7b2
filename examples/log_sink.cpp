// log_sink URL LOG-FILE [CA-FILE]: lists a folder, and writes what passes between client and server into a file
// of tab-separated lines. The password is in QRFTP_PASSWORD.
#include <qrftp/client.hpp>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iostream>

int main(int argc, char** argv)
try {
    if (argc < 3) {
        std::cerr << "log_sink URL LOG-FILE [CA-FILE]\n";
        return 2;
    }
    std::ofstream log(argv[2]);
    const auto start = std::chrono::steady_clock::now();
    // Calls come one at a time, and secrets are masked already.
    qrftp::set_trace(qrftp::trace_level::dialogue, [&](std::string_view line) {
        const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
        log << time.count() << '\t' << line << '\n';
    });

    qrftp::session_options options;
    if (const char* const password = std::getenv("QRFTP_PASSWORD")) {
        options.password = password;
    }
    if (argc > 3) {
        options.certificate_authorities = argv[3];
    }
    const qrftp::url where = qrftp::url::parse(argv[1]);
    qrftp::session remote(where, options);
    for (const qrftp::entry& each : remote.list(where.path).entries) {
        std::cout << each.name << '\n';
    }
    remote.close();
    qrftp::set_trace(qrftp::trace_level::off);
    return log.flush() ? 0 : 7;
} catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
}
