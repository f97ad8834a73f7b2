// parallel_uploads URL CA-FILE LOCAL-FILE…: sends files into a remote folder over three connections. The
// password is in QRFTP_PASSWORD. For whole folders `qrftp::send_tree` does the same with `jobs`.
#include <qrftp/client.hpp>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <mutex>
#include <thread>
#include <vector>

int main(int argc, char** argv)
try {
    if (argc < 4) {
        std::cerr << "parallel_uploads URL CA-FILE LOCAL-FILE…\n";
        return 2;
    }
    const std::vector<std::filesystem::path> files(argv + 3, argv + argc);
    qrftp::options how;
    how.certificate_authorities = argv[2];
    if (const char* const password = std::getenv("QRFTP_PASSWORD")) {
        how.password = password;
    }
    const qrftp::url where = qrftp::url::parse(argv[1]);
    qrftp::session first(where, how);
    first.make_folder(where.path.empty() ? "." : where.path, true);
    first.change_folder(where.path.empty() ? "." : where.path);

    std::atomic<std::size_t> next = 0;
    std::atomic<int> failures = 0;
    std::mutex output;
    const auto work = [&](qrftp::session remote) { // a session is used by one thread at a time
        for (std::size_t index = next++; index < files.size(); index = next++) {
            try {
                remote.send(files[index], files[index].filename().string());
            } catch (const std::exception& error) {
                ++failures;
                const std::lock_guard lock(output);
                std::cerr << error.what() << '\n';
            }
        }
    };
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < 2; ++i) {
            threads.emplace_back(work, first.another()); // logged in and in the same folder
        }
        work(std::move(first));
    }
    std::cout << files.size() - static_cast<std::size_t>(failures) << " of " << files.size() << " files sent\n";
    return failures == 0 ? 0 : 8;
} catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
}
