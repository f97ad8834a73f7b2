// Many connections at once, and one that works for long: nothing is lost, and nothing is kept that was not
// there when the work had got going. Environment: QRFTP_CONNECTIONS, QRFTP_SECONDS of all of them;
// QRFTP_REQUESTS of one.

#include "servers.hpp"

#include <qrftp/client.hpp>

#include <atomic>
#include <barrier>
#include <iostream>
#include <malloc.h>
#include <random>
#include <thread>

using namespace qrftp;
using std::chrono::steady_clock;
namespace fs = std::filesystem;
using support::content;

namespace {

long setting(const char* name, long otherwise)
{
    return std::getenv(name) ? std::stol(std::getenv(name)) : otherwise;
}

const int one_arena = mallopt(M_ARENA_MAX, 1); // mallinfo2 tells of the first one only

/// The heap in bytes, 0 where a sanitizer keeps it; open files.
std::pair<std::size_t, long> use()
{
    malloc_trim(0);
    const auto heap = mallinfo2();
    return {heap.uordblks + heap.hblkhd, std::distance(fs::directory_iterator("/proc/self/fd"), {}) - 1};
}

TEST(Soak, NothingIsLostOrKept)
{
    const support::servers servers("proftpd");
    if (servers.missing())
        GTEST_SKIP() << "a server is not installed";
    ASSERT_TRUE(servers.serve());
    const auto many = setting("QRFTP_CONNECTIONS", 20), seconds = setting("QRFTP_SECONDS", 4),
               requests = setting("QRFTP_REQUESTS", 300);
    std::atomic<long> made = 0;
    /// Five requests on a file of up to 60 KB.
    const auto round = [&](session& s, const std::string& name, std::mt19937& random) {
        const fs::path local = fs::path(servers.path()) / (name + ".local");
        std::string all(random() % 60'000, '\0');
        for (char& each : all)
            each = static_cast<char>(random());
        std::ofstream(local, std::ios::binary) << all;
        s.send(local, name + "/new"), s.rename(name + "/new", name + "/f", true), fs::remove(local);
        s.fetch(name + "/f", local);
        const auto held = s.list(name).entries;
        EXPECT_TRUE(held.size() == 1 && held[0].name == "f" && held[0].size == all.size() &&
                    content(local) == all)
            << name;
        EXPECT_EQ(content(fs::path(servers["HOME_DIR"]) / name / "f"), all);
        if (random() % 4 == 0)
            s.remove_file(name + "/f");
        made += 5;
    };
    const std::string urls[] = {"ftp://127.0.0.1:" + servers["FTP_PORT"],
                                "sftp://127.0.0.1:" + servers["SFTP_PORT"]};
    for (const std::string what : {"ftp", "sftp", "both"}) {
        const long connections = what == "both" ? many : 1;
        std::pair<std::size_t, long> warm, end;
        std::barrier together(connections + 1);
        made = 0;
        const auto passed = [from = steady_clock::now()] {
            return std::chrono::duration<double>(steady_clock::now() - from).count();
        };
        const auto worked = [&] {
            return what == "both" ? passed() / double(seconds) : double(made) / double(requests);
        };
        std::vector<std::jthread> threads;
        for (long i = 0; i < connections; ++i)
            threads.emplace_back([&, i] {
                session s(urls[what == "both" ? i % 2 : what == "sftp"], servers.login<session_options>());
                const std::string name = what + std::to_string(i);
                s.make_folder(name);
                s.send_string(std::string(60'000, 'b'), name + "/f"); // Buffers grow to what they will be.
                (void)s.fetch_string(name + "/f");
                std::mt19937 random(static_cast<std::uint32_t>(i));
                for (const double share : {0.2, 1.0}) {
                    do
                        round(s, name, random);
                    while (worked() < share);
                    together.arrive_and_wait(), together.arrive_and_wait(); // the use is measured in between
                }
            });
        for (auto* const each : {&warm, &end})
            together.arrive_and_wait(), *each = use(), together.arrive_and_wait();
        threads.clear();
        std::cout << what << ": " << made << " requests, " << double(made) / passed() << "/s; heap "
                  << warm.first << " > " << end.first << ", files " << warm.second << " > " << end.second
                  << std::endl;
        EXPECT_EQ(end.second, warm.second);
        // libssh's buffer of a channel grows by powers of two, up to the window of 4 MiB, and stays so.
        const std::size_t buffer = what == "ftp" ? 0 : std::size_t{4} << 20;
        EXPECT_LE(end.first, warm.first + 16384 + (256 + buffer) * std::size_t(connections));
    }
}

} // namespace
