// send_files URL CA-FILE LOCAL-FILE…: sends files into a remote folder, as many at once as the protocol
// carries. Ctrl-C ends it cleanly. The password is in QRFTP_PASSWORD.
#include <qrftp/client.hpp>

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <stop_token>
#include <thread>
#include <vector>

int main(int argc, char** argv)
try {
    if (argc < 4) {
        std::cerr << "send_files URL CA-FILE LOCAL-FILE…\n";
        return 2;
    }
    // A thread waits for the signal; all others leave it alone.
    sigset_t interrupt;
    sigemptyset(&interrupt);
    sigaddset(&interrupt, SIGINT);
    pthread_sigmask(SIG_BLOCK, &interrupt, nullptr);
    std::stop_source stop;
    std::thread([interrupt, stop]() mutable {
        int signal = 0;
        sigwait(&interrupt, &signal);
        stop.request_stop();
    }).detach();

    qrftp::session_options options;
    options.certificate_authorities = argv[2];
    options.stop = stop.get_token();
    if (const char* const password = std::getenv("QRFTP_PASSWORD")) {
        options.password = password;
    }
    const qrftp::url where = qrftp::url::parse(argv[1]);
    qrftp::session remote(where, options);
    const std::string folder = where.path.empty() ? "." : where.path;
    remote.make_folder(folder, true);
    remote.change_folder(folder);

    std::vector<qrftp::file_pair> files;
    for (int i = 3; i < argc; ++i) {
        const std::filesystem::path local = argv[i];
        files.push_back({.remote = local.filename().string(), .local = local});
    }
    qrftp::tree_options how;
    how.keep_going = true;
    const qrftp::tree_result result = qrftp::send_files(remote, files, how);
    for (const qrftp::tree_failure& failure : result.failures) {
        try {
            std::rethrow_exception(failure.error);
        } catch (const qrftp::error& error) {
            std::cerr << error.what() << '\n';
        }
    }
    std::cout << result.done.size() << " of " << files.size() << " files sent\n";
    return result.failures.empty() ? 0 : 8;
} catch (const qrftp::Cancelled&) {
    return 130;
} catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
}
