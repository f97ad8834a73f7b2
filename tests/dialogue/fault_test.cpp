// Hosts that fail: at every call the local disk, at every allocation the memory. An operation ends in an error
// or does all that it is for, and everything else is as it was. QRFTP_FAULTS=all tries the late calls too, one
// by one.

#include "allocator.hpp"
#include "core_stage.hpp"
#include "ledger.hpp"

#include <dlfcn.h>
#include <fstream>
#include <gmock/gmock.h>
#include <qrftp/client.hpp>
#include <qrftp/known_hosts.hpp>
#include <regex>
#include <zorbel/io/common/file/errors.hpp>

using namespace support;
using namespace testing;
using namespace std::literals;
using namespace zorbel::io::common::file;
namespace fs = std::filesystem;
using Call = FaultyFileSystem::Call;

#define BEFORE(result, name, symbol, ...) /* stands before a function of a library */                          \
    extern "C" __attribute__((visibility("default"))) result name(__VA_ARGS__) __asm__(symbol);                \
    const auto real_##name = reinterpret_cast<decltype(&name)>(dlsym(RTLD_NEXT, symbol));                      \
    result name(__VA_ARGS__)
#define ITERATOR "_ZNSt10filesystem7__cxx1118directory_iterator"
thread_local int restoring = 0;
auto spared(bool when, auto call)
{
    struct end {
        bool when;
        ~end() { allocator::spared -= when; }
    } const back{when};
    allocator::spared += when;
    return call();
}
// The known limit: a request that goes back to a folder when a scope ends needs memory and cannot report that
// it got none.
BEFORE(void, restore, "_ZN6zorbel2io3ftp4core14scoped_requestD1Ev", void* self)
{
    ++restoring, real_restore(self), --restoring;
}
#define UNSAFE_CD                                                                                              \
    "_ZN6zorbel2io3ftp4core9unsafe_cdERNS2_8curl_ptrERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"
BEFORE(int, go, UNSAFE_CD, void* c, void* to)
{
    return spared(restoring > 0, [=] { return real_go(c, to); });
}
// The standard library's own limit: these need memory where they promise not to throw.
BEFORE(void, enter, ITERATOR "C" KIND "ERKNS0_4pathENS_17directory_optionsEPSt10error_code", void* self,
       void* path, int how, void* error)
{
    spared(true, [=] { real_enter(self, path, how, error); });
}
BEFORE(void*, next, ITERATOR "9incrementERSt10error_code", void* self, void* error)
{
    return spared(true, [=] { return real_next(self, error); });
}
// libcurl 7.88's own: a socket that it had no memory to watch makes it divide by zero.
BEFORE(int, wake, "curl_easy_pause", void* c, int what)
{
    return spared(true, [=] { return real_wake(c, what); });
}

namespace {

struct fault {
    std::string name;
    allocator::mode memory{};     ///< or of the disk:
    std::exception_ptr failure{}; ///< none: a short write
    Call call = Call::any;
};
auto fail(auto error)
{
    return std::make_exception_ptr(foundation::core::except::Exception(std::move(error)));
}
namespace errors = ZORBEL::io::common::file;
const auto faults = std::to_array<fault>({{"DiskFull", {}, fail(errors::DiskFull(u"x"))},
                                          {"FileError", {}, fail(errors::FileError(u"x", "I/O"))},
                                          {"PermissionDenied", {}, fail(errors::PermissionDenied(u"x"))},
                                          {"DiskFull", {}, nullptr, Call::write},
                                          {"once", allocator::once},
                                          {"onwards", allocator::onwards},
                                          {"libcurl", allocator::libcurl}});
auto system_failure(std::errc reason)
{
    return std::make_exception_ptr(fs::filesystem_error("test", "x", std::make_error_code(reason)));
}
/// The client reaches local files through folders, which tell failures in the standard library's way.
const auto client_faults =
    std::to_array<fault>({{"LocalFileError", {}, system_failure(std::errc::no_space_on_device)},
                          {"LocalFileError", {}, system_failure(std::errc::permission_denied)},
                          {"LocalFileError", {}, system_failure(std::errc::io_error), Call::write},
                          {"LocalFileError", {}, system_failure(std::errc::io_error), Call::close},
                          {"once", allocator::once},
                          {"onwards", allocator::onwards},
                          {"libcurl", allocator::libcurl}});

int tried = 0;

/// Calls `attempt` with 1, 2, … until it says that what was to fail was not met.
void at_every_call(const std::string& what, const std::function<bool(int n)>& attempt)
{
    static const bool all = std::getenv("QRFTP_FAULTS") != nullptr && std::getenv("QRFTP_FAULTS") == "all"s;
    bool met = true;
    for (int n = 1; met; n += all || n < 20 ? 1 : 11 + tried % 5, ++tried) {
        SCOPED_TRACE(what + " at " + std::to_string(n));
        met = attempt(n) && n < 20000;
    }
}

/// Runs the call on a host that fails at its nth call; says how it ended and whether the failure was met.
std::pair<std::string, bool> run(const fault& with, FaultyFileSystem& disk, int n, bool settings_too,
                                 const std::function<void()>& call)
{
    std::exception_ptr thrown;
    disk.fail(with.call, with.memory ? 0U : static_cast<unsigned>(n), with.failure);
    allocator::arm(with.memory, n, settings_too);
    try {
        call();
    } catch (...) {
        thrown = std::current_exception();
    }
    const bool no_memory = allocator::disarm(), met = with.memory ? no_memory : !disk.pending(with.call);
    disk.fail(with.call, 0, nullptr);
    try {
        return {support::error_of([&] { thrown ? std::rethrow_exception(thrown) : void(); }).front(), met};
    } catch (const qrftp::error& error) {
        return {std::string(error.name()), met};
    } catch (const fs::filesystem_error& error) {
        return {std::string("bare: ") + error.what(), met};
    } catch (const std::bad_alloc&) {
        return {"bad_alloc", met};
    } catch (const std::logic_error& error) { // percent_encode
        return {error.what(), met};
    }
}

/// Without the commands that libcurl need not repeat.
std::string untyped(const std::string& commands)
{
    return std::regex_replace(commands, std::regex("TYPE .\\|"), "");
}

/// The core, whose connection is put back where it stood before every call.
struct stage : core_stage {
    stage()
    {
        // libcurl blames EPSV for a data connection that it had no memory for.
        peer.passive_address("127,0,0,1");
        open();
        prepare();
    }
    void prepare()
    {
        core::unsafe_cd(connection, home);
        peer.clear_commands();
        ledger::start();
        memory->put(local, "12345");
    }
    void expect_sound(const operation& op)
    {
        const auto lines = ledger::lines();
        std::string url = home;
        for (const auto& line : lines)
            url = line.starts_with("URL=") ? line.substr(4) : url;
        const bool moves = op.name == "unsafe_cd" || op.name == "cd" || op.name == "is_folder";
        expect_restored(lines, moves ? url : home);
        if (moves)
            core::unsafe_cd(connection, url); // what was cut short leaves the server where it stood
        EXPECT_EQ(core::pwd(connection) + '/', core::percent_decode(connection, url.substr(16)));
        prepare();
    }
};

/// The client on a peer, and a local folder.
struct client_stage {
    client_stage()
    {
        options.user = "u";
        options.password = "p";
        options.tls = qrftp::tls_mode::none;
        options.stall_timeout = 2s;
        for (const auto& [name, content] : remote)
            peer.file("/home/u/" + name, content);
        peer.passive_address("127,0,0,1");
        const auto facts = ";modify=20240102030405; ";
        peer.body("MLSD /home/u/d", "type=file;size=8"s + facts + "a\r\ntype=file;size=8" + facts + "b\r\n");
        peer.file("/home/u/rest", std::string(19996, 'r')), peer.on("REST 4", answer::reply("350 go on"));
        peer.on("SIZE /home/u/rest", answer::reply("213 20000"));
        peer.body("MLSD /home/u", "type=dir; d\r\n");
        exchange_file_system(faults);
        client.emplace(peer.url(), options);
    }
    ~client_stage() { exchange_file_system(nullptr); }
    void prepare(bool files)
    {
        peer.clear_commands(), fine = true;
        peer.file("/home/u/" + (fresh = "r" + std::to_string(tried)), remote.at("f"));
        if (files)
            fs::remove_all(local);
        for (const auto& [name, content] : files ? before : decltype(before)())
            write_file(local / name, content);
        make_old(local / "long");
    }
    std::string content(const std::string& name) const { return support::content(local / name); }
    bool sent(const std::string& command) const { return std::ranges::count(peer.commands(), command) > 0; }
    bool uploaded(const std::string& to, const std::string& bytes) const
    {
        const auto commands = peer.commands();
        const auto renamed = std::find(commands.begin(), commands.end(), "RNTO /home/u/" + to);
        return renamed != commands.end() && peer.uploads()[renamed[-1].substr(5)] == bytes;
    }
    /// Each file is the old one or the new one, no other is there, and the connection gives the right answers.
    void expect_sound(bool server_is_tidy)
    {
        for (const auto& [name, old] : before)
            EXPECT_TRUE(fs::exists(local / name) || (name == "tree/extra" && content("tree/a") == "remote a"))
                << name;
        for (const auto& found : fs::recursive_directory_iterator(local)) {
            const auto name = found.path().lexically_relative(local).string(),
                       now = found.is_directory() ? "" : content(name);
            const auto from = remote.find(name.starts_with("tree/") ? "d/" + name.substr(5)
                                          : name == "part"          ? "f"
                                                                    : name);
            const bool grown =
                name == "part" && remote.at("f").starts_with(now) && now.size() >= before.at(name).size();
            const bool whole = (before.contains(name) && now == before.at(name)) ||
                               (from != remote.end() && now == from->second);
            EXPECT_TRUE(found.is_directory() || whole || grown || name == "known")
                << name << ": " << now.size();
        }
        const auto commands = peer.commands();
        for (const auto& command : commands)
            if (server_is_tidy && command.starts_with("STOR ") && command.ends_with(".part")) {
                const auto name = command.substr(5);
                const auto last = std::find_if(commands.rbegin(), commands.rend(),
                                               [&](auto& c) { return c.ends_with(name); });
                EXPECT_TRUE(last->starts_with("DELE") ||
                            (last->starts_with("RNFR") && last[-1].starts_with("RNTO")))
                    << joined(commands);
            }
        EXPECT_EQ(client->file_size("g"), 7U) << joined(peer.commands());
        EXPECT_TRUE(client->exists("f"));
        EXPECT_EQ(client->working_folder(), "/home/u");
    }
    const std::map<std::string, std::string> remote{
        {"f", std::string(20000, 'r')}, {"g", "another"}, {"d/a", "remote a"}, {"d/b", "remote b"}},
        before{{"f", "local"},        {"long", std::string(30000, 'r')},
               {"part", "rrrr"},      {"tree/a", "old"},
               {"tree/extra", "old"}, {"up/a", "new a"},
               {"known", "x"}};
    bool fine = true;
    std::string fresh{}; ///< a remote file that no upload has replaced
    std::shared_ptr<FaultyFileSystem> faults =
        std::make_shared<FaultyFileSystem>(exchange_file_system(nullptr));
    scripted_peer peer{};
    temporary_folder folder{};
    fs::path local = folder / "local";
    qrftp::session_options options{};
    std::optional<qrftp::session> client{};
};

struct client_operation {
    std::string text;
    std::function<void(client_stage&, qrftp::session&, const fs::path&)> call;
    std::function<bool(client_stage&)> done;
};
#define DO(call, ...)                                                                                          \
    client_operation(                                                                                          \
        #call, [](auto& t, auto& c, auto& l) { (void)t, (void)c, (void)l, (void)(call); },                     \
        [](auto& t) { return t.fine && (__VA_ARGS__); })
const qrftp::host_key key{"h", "ssh-ed25519", "\0\0\0\x0bssh-ed25519 key"s};
const qrftp::transfer_options rest{.resume = true};
const qrftp::transfer_options timed{.keep_time = true};
const qrftp::sync_options mirror{{.jobs = 1}, true};
const auto operations = std::to_array<client_operation>(
    {DO(c.fetch("f", l / "f", timed), t.content("f") == t.remote.at("f")),
     DO(c.fetch("rest", l / "part", rest), t.content("part") == t.remote.at("f")),
     DO(c.send(l / "f", "t", timed), t.uploaded("t", "local")),
     DO(c.send(l / "long", t.fresh, rest), t.peer.uploads()["/home/u/" + t.fresh] == t.before.at("long")),
     DO(fetch_tree(c, "d", l / "tree", mirror),
        t.content("tree/a") + t.content("tree/b") == "remote aremote b"),
     DO(send_tree(c, l / "up", "new", mirror), t.uploaded("new/a", "new a")),
     DO(synchronise(c, l / "tree", "d", qrftp::direction::fetch, mirror),
        t.content("tree/a") == "remote a" && !fs::exists(t.local / "tree/extra")),
     DO(synchronise(c, l / "up", "d", qrftp::direction::send, mirror),
        t.uploaded("d/a", "new a") && t.sent("DELE /home/u/d/b")),
     DO(qrftp::known_hosts::append(l / "known", key),
        qrftp::known_hosts::read(t.local / "known").match(key) == qrftp::host_key_match::known),
     DO(t.client.emplace(t.peer.url(), t.options), true),
     DO(c.server_info(), t.sent("NOOP")),
     DO(t.fine = c.system_type() == "UNIX Type: L8", true),
     DO(c.change_folder("/home/u"), t.sent("CWD /home/u")),
     DO(t.fine = c.stat("f").size == 20000U, true),
     DO(t.fine = c.exists("f") && !c.exists("none"), true),
     DO(t.fine = c.is_folder("d"), true),
     DO(t.fine = c.is_file("f"), true),
     DO(t.fine = c.file_size("f") == 20000U, true),
     DO(t.fine = c.modification_time("f").has_value(), true),
     DO(t.fine = c.list("d").entries.size() == 2, true),
     DO(c.make_folder("n", true), t.sent("MKD /home/u/n")),
     DO(c.remove_folder("d"), t.sent("RMD /home/u/d")),
     DO(c.remove_folder("d", true), t.sent("DELE /home/u/d/b") && t.sent("RMD /home/u/d")),
     DO(c.remove_file("f"), t.sent("DELE /home/u/f")),
     DO(c.rename("f", "new"), t.sent("RNTO /home/u/new"))});

} // namespace

TEST(Faults, OfTheHostAreToldByTheCoreWhichStaysWhereItWas)
{
    for (const auto& with : faults)
        for (const auto& op : ftp_operations(u"local")) {
            if (!with.memory && op.name != "receive_file" && op.name != "send_file")
                continue;
            stage s;
            at_every_call(op.name + " " + with.name, [&](int n) {
                // The core does not look at the result of a setting.
                const auto [ended, met] = run(with, *s.faults, n, false, [&] { op.call(s.connection); });
                const auto known = with.memory ? ended : op.errors + " NotFound " + with.name;
                EXPECT_THAT(met ? known : "nothing", HasSubstr(ended));
                if (ended == "nothing" && with.memory != allocator::libcurl && op.name != "is_folder") {
                    EXPECT_EQ(untyped(joined(s.peer.commands())), untyped(op.commands));
                }
                s.expect_sound(op);
                return met;
            });
        }
    std::printf("core: %zu operations, %d failures\n", ftp_operations(u"").size(), tried);
}

TEST(Faults, OfTheHostAreToldByTheClientWhichLeavesNoFileInHalf)
{
    for (const auto& with : client_faults)
        for (const auto& op : operations) {
            client_stage s;
            at_every_call(op.text + " " + with.name, [&](int n) {
                s.prepare(n == 1 || op.text.find("l / ") != op.text.npos);
                const auto [ended, met] =
                    run(with, *s.faults, n, true, [&] { op.call(s, *s.client, s.local); });
                // Whether the last line is cut off is guessed then.
                const bool ignored = ended == "nothing" &&
                                     (with.memory || (op.text.find("append") != op.text.npos && with.failure));
                EXPECT_TRUE(ended == (!met ? "nothing" : with.memory ? ended : with.name) || ignored) << ended;
                EXPECT_TRUE(ended != "nothing" ? ended != "Timeout" && ended.find(' ') == ended.npos
                                               : op.done(s))
                    << ended << joined(s.peer.commands());
                if (!s.client)
                    s.client.emplace(s.peer.url(), s.options);
                s.expect_sound(with.memory != allocator::onwards);
                return met;
            });
        }
    std::printf("client: %zu operations, %d failures\n", operations.size(), tried);
}
