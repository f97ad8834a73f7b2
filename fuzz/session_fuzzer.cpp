// Whole sessions with a server that is honest but where the input speaks for it. The input: a byte without
// meaning, one that says which operation comes first, and pieces with "~" between them. Every
// connection and command takes the next one: what the server says or sends then; an empty one stands for the
// honest answer, "^" at the end for the end of the connection. Nothing reaches the network.
#include "fuzz.hpp"
#include <curl/curl.h>
#include <fstream>
#include <map>
#include <poll.h>
#include <qrftp/client.hpp>
#include <sys/syscall.h>
#include <unistd.h>
namespace fs = std::filesystem;
using text = std::string_view;
/// What an honest server answers to commands that begin so, and what it sends on the data connection.
constexpr text moved = "150 b\r\n226 e\r\n";
constexpr text honest[][3]{{"USER", "331 who\r\n"},
                           {"PWD", "257 \"/h\"\r\n"},
                           {"EPSV", "229 e (|||9|)\r\n"},
                           {"SIZE", "213 5\r\n"},
                           {"PASV", "227 (127,0,0,1,0,9)\r\n"},
                           {"MDTM", "213 20200102030405\r\n"},
                           {"MLST", "250-m\r\n type=file;size=5; /h/a\r\n250 m\r\n"},
                           {"FEAT", "211-f\r\n MLST type*;\r\n MFMT\r\n211 f\r\n"},
                           {"RETR", moved, "hello"},
                           {"R", "350 r\r\n"},
                           {"STOR", moved},
                           {"APPE", moved},
                           {"MLSD", moved, "type=file;size=5;modify=20200102030405; a\r\n"},
                           {"NLST", moved, "a\r\nd\r\n"},
                           {"LIST", moved, "-rw-r--r-- 1 u g 5 Jan 02 2020 a\r\n"},
                           {"", "230 ok\r\n"}};
struct stream {
    bool data = false, ends = false, held = false;
    std::string bytes{};
    bool readable() const { return !held && (data || ends || !bytes.empty()); }
};
struct server {
    text pieces;
    int events = 0;
    std::string verb{}; ///< of the last command
    std::map<int, stream> streams{};
    void speak(stream& to, text otherwise)
    {
        const text piece =
            ++events > 300 ? "^" : pieces.substr(0, pieces.find('~')); // a tree may have any number of folders
        pieces.remove_prefix(std::min(pieces.size(), piece.size() + 1));
        to.ends = to.ends || piece.ends_with('^');
        to.bytes += piece.empty() ? otherwise : piece.substr(0, piece.size() - piece.ends_with('^'));
    }
    void obey(stream& from, text command)
    {
        require(command.ends_with("\r\n") && command.find_first_of("\r\n") == command.size() - 2);
        from.held = false, verb = command.substr(0, 4);
        if (verb == "QUIT")
            return void(from.ends = true);
        const auto& [name, reply, body] =
            *std::ranges::find_if(honest, [&](auto& row) { return command.starts_with(row[0]); });
        speak(from, reply);
        for (auto& [socket, to] : streams)
            if (to.data && to.bytes.empty() && !to.ends)
                to.bytes = body;
    }
}* playing = nullptr;
long long now = 0; // nanoseconds
/// Whether `work` succeeds. Only the library's own errors may leave it.
bool done(const auto& work)
try {
    return work(), true;
} catch (const qrftp::error&) {
    return false;
}
const fs::path root = fs::temp_directory_path() / ("qrftp-fuzz-" + std::to_string(getpid())), in = root / "in",
               out = root / "out";
void check(const qrftp::entry& found)
{
    require(!text("..").starts_with(found.name) && found.name.find_first_of(text("/\0", 2)) == none);
}
/// Over one connection: the sockets of this server are for one thread.
const qrftp::transfer_options at_once{.retry_delay = {}}; // The time here stands still while somebody waits.
const qrftp::sync_options mirror{
    {.transfer = {.keep_time = true, .retry_delay = {}}, .jobs = 1, .keep_going = true}, true};
const qrftp::transfer_options resume{.resume = true, .retry_delay = {}};
const qrftp::transfer_options in_place{.in_place = true, .replace = false, .retry_delay = {}};
const qrftp::transfer_options keep_time{.keep_time = true, .retry_delay = {}};
using operation = void (*)(qrftp::session&);
const operation operations[] = {
    [](auto& s) { (void)s.server_info(); },
    [](auto& s) { s.change_folder("d"); },
    [](auto& s) { (void)s.find("a"), (void)s.exists("x"); },
    [](auto& s) { (void)s.is_folder("d"), (void)s.is_file("l"); },
    [](auto& s) { s.list("d", check); },
    [](auto& s) { s.list(".", check); },
    [](auto& s) { (void)s.file_size("a"), (void)s.modification_time("a"); },
    [](auto& s) { s.make_folder("n"), s.make_folder("n/m", true); },
    [](auto& s) { send_tree(s, out, "n", mirror); },
    [](auto& s) { s.remove_folder("d"), s.remove_folder("d", true); },
    [](auto& s) { synchronise(s, in / "t", ".", qrftp::direction::fetch, mirror); },
    [](auto& s) { s.remove_file("a"); },
    [](auto& s) { s.rename("a", "b"), s.rename("a", "b", true); },
    [](auto& s) { synchronise(s, out, "d", qrftp::direction::send, mirror); },
    [](auto& s) { s.fetch("a", in / "a", keep_time); },
    [](auto& s) {
        s.fetch(
            "a", [](text piece) { return piece.size() != 3; }, at_once);
    },
    [](auto& s) { s.fetch("a", in / "he", resume); },
    [](auto& s) { s.send(out / "a", "a", keep_time); },
    [](auto& s) { s.send(out / "a", "b", resume); },
    [](auto& s) { s.send(out / "a", "c", in_place); },
    [](auto& s) { (void)s.system_type(), s = s.clone(); },
    [](auto& s) { fetch_tree(s, "d", in / "tree", mirror); },
};
void run(std::size_t first, text input)
{
    qrftp::session_options options;
    options.user = "u";
    options.password = "p";
    options.tls = qrftp::tls_mode::none;
    options.receive_buffer = 16384;
    options.send_buffer = 16384;
    std::optional<qrftp::session> opened;
    if (!done([&] { opened.emplace("ftp://127.0.0.1", options); }))
        return;
    for (std::size_t i = 0; i < std::size(operations) && (i == 0 || !playing->pieces.empty()); ++i)
        done([&] { operations[(first + i) % std::size(operations)](*opened); });
    int outside = 0;
    for (const auto& file : fs::recursive_directory_iterator(root)) {
        const std::string name = file.path().filename();
        require(!name.starts_with(".qrftp-") || input.find(name) != none); // no temporary file stays
        outside += !file.path().string().starts_with(in.string());
    }
    require(outside == 4); // the folder that is sent
}
extern "C" {
#pragma GCC visibility push(default) // libcurl and the standard library find these instead of the system's
int connect(int socket, const sockaddr*, socklen_t)
{
    stream& made = playing->streams[socket] = {.data = playing->verb == "EPSV" || playing->verb == "PASV"};
    playing->verb.clear();
    playing->speak(made, made.data ? "" : "220 hi\r\n");
    return made.ends && made.bytes.empty() ? errno = ECONNREFUSED, -1 : 0;
}
int getpeername(int, sockaddr* to, socklen_t*) noexcept
{
    return *to = {AF_INET, {}}, 0;
} // so does the data connection
int close(int file)
{
    if (playing != nullptr)
        playing->streams.erase(file);
    return static_cast<int>(syscall(SYS_close, file));
}
ssize_t send(int socket, const void* bytes, std::size_t size, int)
{
    if (stream& to = playing->streams[socket]; !to.data)
        playing->obey(to, {static_cast<const char*>(bytes), size});
    return static_cast<ssize_t>(size);
}
ssize_t recv(int socket, void* buffer, std::size_t room, int flags)
{
    stream& from = playing->streams[socket];
    if (!from.readable())
        return errno = EAGAIN, -1;
    // libcurl 7.88 reads a reply that is there when a request begins into memory that it has freed, unless that
    // request sends a command first: the reply is held until then, and no second one comes along with the one
    // that is asked for.
    from.held = !from.data && (flags & MSG_PEEK) != 0 && !from.bytes.empty();
    const std::size_t line = from.data ? 16 : std::min(from.bytes.find('\n'), room) + 1;
    const std::size_t size = from.bytes.copy(static_cast<char*>(buffer), std::min(room, line));
    if ((flags & MSG_PEEK) == 0)
        from.bytes.erase(0, size);
    return static_cast<ssize_t>(size);
}
int poll(pollfd* all, nfds_t count, int timeout)
{
    int ready = 0;
    for (pollfd* one = all; one != all + count; ++one) {
        const bool known = playing != nullptr && playing->streams.contains(one->fd);
        const int can =
            !known ? 0
                   : (playing->streams[one->fd].readable() ? POLLIN | POLLRDNORM : 0) | POLLOUT | POLLWRNORM;
        ready += (one->revents = static_cast<short>(one->events & can)) != 0;
    }
    if (ready == 0)
        now += std::max(timeout, 1) * 1'000'000LL;
    return ready;
}
int clock_gettime(clockid_t clock, timespec* time) noexcept
{
    if (clock != CLOCK_MONOTONIC && clock != CLOCK_MONOTONIC_RAW) // which newer ones of libcurl read
        return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
    now += 1000;
    return *time = {now / 1'000'000'000, now % 1'000'000'000}, 0;
}
#pragma GCC visibility pop
} // extern "C"
static void fuzz(text input)
{
    static const bool keeps_libcurl = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
    if (input.size() < 2 || !keeps_libcurl)
        return;
    fs::create_directories(in / "t" / "old"), fs::create_directories(out / "d");
    for (const auto& file : {in / "he", out / "a", out / "d" / "b"})
        std::ofstream(file) << (file == in / "he" ? "he" : "hello");
    server one{.pieces = input.substr(2)};
    playing = &one, now = 1'000'000'000'000;
    run(static_cast<unsigned char>(input[1]), input);
    require(one.events > 0); // else libcurl had found the system's functions
    playing = nullptr, fs::remove_all(root);
}
