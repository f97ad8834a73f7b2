// Sessions of random operations over a faulty network, against a model of what the server must hold.
//
// Everything that is drawn comes from the session's seed; the moments of faults are counted in bytes.
// Environment: QRFTP_SESSIONS; QRFTP_SEED: "random", or the seed of a single session to be repeated.

#include "fault_relay.hpp"
#include "servers.hpp"

#include <qrftp/client.hpp>

#include <gmock/gmock.h>
#include <iostream>
#include <set>
#include <sys/stat.h>

using namespace qrftp;
using support::fault;
namespace fs = std::filesystem;
using support::content;
using support::files;

namespace {

std::string held(const files& in, const std::string& path)
{
    return in.count(path) ? in.at(path) : "nothing";
}
void expect(bool right, const std::string& wrong)
{
    right ? void() : throw std::logic_error(wrong);
}

/// What is to be done, and how the server's tree may look then.
struct operation {
    std::string words{};
    std::function<void(session&)> run{};
    std::string refusal{};     ///< the error that is right for the tree
    files done{};              ///< the tree afterwards, if it is not refused
    bool step_by_step = false; ///< the connection may be lost when some paths are changed and others not
    std::size_t least = ~0U;   ///< the connection may be lost when so much or more is in the file
};

struct life {
    life(const support::servers& servers, const std::string& protocol, std::uint64_t seed)
        : ftp_(protocol == "ftp"), random_(seed),
          relay_(servers.port(ftp_ ? "FTP_PORT" : "SFTP_PORT"), ftp_, seed),
          there_(fs::path(servers["HOME_DIR"]) / (protocol + std::to_string(seed))),
          local_(there_.string() + "-local")
    {
        options_ = servers.login<session_options>();
        options_.connect_timeout = std::chrono::seconds(5);
        options_.stall_timeout = std::chrono::seconds(2);
        fs::create_directory(there_);
    }
    ~life() { fs::remove_all(there_), fs::remove(local_); }
    /// Does so many operations; throws when something is wrong. Returns how many were lost with their
    /// connection.
    int live(int operations);
    std::size_t draw(std::size_t below) { return random_() % below; }
    std::string draw_path()
    {
        const std::string names[] = {"a", "b", "c", "d d"}, top = names[draw(4)];
        return draw(2) && (!exists(top) || is_folder(top)) ? top + "/" + names[draw(4)] : top;
    }
    std::string draw_content()
    {
        std::string all(draw(4) == 0 ? draw(50) : draw(std::size_t{1} << (8 + draw(10))) * 3 / 2, '\0');
        for (char& each : all)
            each = static_cast<char>(random_());
        return all;
    }
    operation draw_operation(), draw_transfer(const std::string&path);
    bool is_allowed(const operation& of, const files& disk, const files& left) const;
    bool exists(const std::string& path) const { return model_.count(path) > 0; }
    bool is_folder(const std::string& path) const { return held(model_, path) == "/"; }
    bool has_parent(const std::string& path) const
    {
        return path.find('/') == path.npos || exists(path.substr(0, path.find('/')));
    }
    std::string at(const std::string& path) const { return (there_ / path).string(); }
    bool ftp_;
    std::mt19937_64 random_;
    support::fault_relay relay_;
    fs::path there_, local_;
    session_options options_{};
    files model_{};
    std::string log{};
};

operation life::draw_operation()
{
    const auto p = draw_path(), q = draw_path();
    const bool flag = draw(2);
    const auto below = [p](const auto& each) { return boost::starts_with(each.first, p + "/"); };
    operation of{.done = model_};
    const auto verb = draw(11);
    if (verb > 6)
        return draw_transfer(p);
    if (verb < 2) {
        of.words = "mkdir " + p, of.step_by_step = flag,
        of.run = [=, this](session& s) { s.make_folder(at(p), flag); };
        of.refusal = exists(p) && !(flag && is_folder(p)) ? "AlreadyExists"
                     : !flag && !has_parent(p)            ? "NotFound"
                                                          : "";
        of.done[p.substr(0, p.find('/'))] = of.done[p] = "/";
    } else if (verb < 4) {
        const bool folder = verb == 2;
        of.words = folder ? "rmdir " + p : "rm " + p, of.step_by_step = folder && flag;
        of.run = [=, this](session& s) { folder ? s.remove_folder(at(p), flag) : s.remove_file(at(p)); };
        of.refusal = !exists(p) ? "NotFound" : is_folder(p) == folder ? "" : folder ? "NotFolder" : "IsFolder";
        if (std::erase_if(of.done, below) > 0 && !flag && folder)
            of.refusal = "NotEmpty";
        of.done.erase(p);
    } else if (verb < 6) {
        if (p == q || is_folder(p) || boost::starts_with(q, p + "/"))
            return draw_operation();
        of.words = "mv " + p + " to " + q, of.run = [=, this](session& s) { s.rename(at(p), at(q), flag); };
        of.refusal = exists(q) && !flag             ? "AlreadyExists"
                     : is_folder(q)                 ? "IsFolder"
                     : !exists(p) || !has_parent(q) ? "NotFound"
                                                    : "";
        of.done[q] = held(model_, p), of.done.erase(p);
    } else {
        of.words = "look at " + p, of.run = [=, this](session& s) {
            std::multiset<std::string> got, wanted;
            auto entries = is_folder(p) ? s.list(at(p)).entries : std::vector<entry>();
            if (const auto found = s.find(at(p)))
                entries.push_back(*found);
            for (const auto& it : entries)
                got.insert(it.name + (it.kind == entry_kind::folder ? "/" : std::to_string(it.size.value())));
            for (const auto& each : model_)
                if (each.first == p || below(each))
                    wanted.insert(fs::path(each.first).filename().string() +
                                  (each.second == "/" ? "/" : std::to_string(each.second.size())));
            expect(got == wanted, boost::join(got, "|") + " should be " + boost::join(wanted, "|"));
        };
    }
    return of;
}

operation life::draw_transfer(const std::string& p)
{
    const auto mode = is_folder(p) ? 0 : draw(3);
    const bool sends = draw(2), resume = mode == 2;
    const transfer_options options{.in_place = mode == 1, .resume = resume};
    const std::string old = exists(p) ? model_.at(p) : "", mine = draw_content();
    const std::string here = !resume ? mine : sends ? old + mine : old.substr(0, draw(old.size() + 1));
    std::ofstream(local_, std::ios::binary) << here;
    operation of{.words = (sends ? "send " : "fetch ") + p + std::array{"", ", in place", ", the rest"}[mode],
                 .done = model_};
    of.refusal = is_folder(p) ? "IsFolder" : !(sends ? has_parent(p) : exists(p)) ? "NotFound" : "";
    if (sends)
        of.done[p] = here, of.least = resume ? old.size() : mode == 1 ? 0 : of.least;
    of.run = [=, this](session& s) {
        if (sends)
            return void(s.send(local_, at(p), options));
        try {
            s.fetch(at(p), local_, options);
        } catch (const error&) {
            const auto got = content(local_);
            const bool part =
                mode > 0 && boost::starts_with(old, got) && (!resume || got.size() >= here.size());
            expect(got == here || part, "the local file was changed");
            throw;
        }
        expect(content(local_) == old, "another content was fetched");
    };
    return of;
}

/// Whether the server may be left so by a lost connection. `left` is what lies under temporary names: SFTP has
/// it there for a moment when a file is replaced.
bool life::is_allowed(const operation& of, const files& disk, const files& left) const
{
    files all = disk;
    all.insert(model_.begin(), model_.end()), all.insert(of.done.begin(), of.done.end());
    int before = 0, after = 0;
    for (const auto& [path, _] : all) {
        const auto was = held(model_, path), will = held(of.done, path), is = held(disk, path);
        if (is == was && is == will)
            continue;
        const bool begun = disk.count(path) && is.size() >= of.least && boost::starts_with(will, is);
        const auto moved = [&](const auto& each) {
            return !ftp_ && will != was && !disk.count(path) && each.second == was;
        };
        if (is != was && is != will && !begun && std::none_of(left.begin(), left.end(), moved))
            return false;
        before += is == was, after += is == will;
    }
    return of.step_by_step || before == 0 || after == 0;
}

/// After the connection broke: what a removal or a rename did not find may be what its first try has moved
/// away, and a refusal keeps the server's word when the reason, be it that the folder to make is there, cannot
/// be asked for any more.
bool is_unknowable(const operation& of, const std::string& got)
{
    const bool moves_away = of.words.starts_with("rm") || of.words.starts_with("mv");
    const bool is_refused = !of.refusal.empty() || of.words.starts_with("mkdir");
    return (got == "done" && of.refusal == "NotFound" && moves_away) ||
           ((got == "PermissionDenied" || got == "Refused") && is_refused);
}

int life::live(int operations)
{
    static const std::set<std::string> losses{"ConnectionLost", "Timeout",       "NoConnection",
                                              "SizeMismatch",   "ProtocolError", "LoginRefused"};
    std::optional<session> s;
    int before_last = 0, last = 0, lost = 0;
    while (operations-- > 0) {
        if (draw(8) == 0)
            relay_.plan_next(fault(draw(31) / 6), draw(std::size_t{1} << draw(18))); // a stall takes its time
        auto of = draw_operation();
        if (!of.refusal.empty())
            of.done = model_;
        log += of.words + " > ";
        std::string got = "done";
        try {
            if (!s)
                s.emplace((ftp_ ? "ftp://127.0.0.1:" : "sftp://127.0.0.1:") + std::to_string(relay_.port()),
                          options_);
            of.run(*s);
        } catch (const error& failed) {
            got = failed.name();
        }
        expect(relay_.settle(), "the server does not end");
        const bool disturbed = relay_.harmed != before_last;
        before_last = std::exchange(last, relay_.harmed);
        log += got + (disturbed ? " (disturbed)\n" : "\n");
        const files left = support::leftovers_in(there_);
        for (const auto& [path, _] : left)
            fs::remove(there_ / path);
        const files disk = support::files_in(there_);
        expect(left.empty() || disturbed, "something is left");
        const bool loss = disturbed && losses.contains(got);
        const bool is_told = got == (of.refusal.empty() ? "done" : of.refusal);
        expect(loss || is_told || (disturbed && is_unknowable(of, got)), "expected: " + of.refusal);
        expect(loss ? is_allowed(of, disk, left) : disk == of.done, "the server holds something else");
        model_ = disk, lost += loss;
        if (loss && draw(4) == 0)
            s.reset();
    }
    return lost;
}

class Network : public testing::TestWithParam<const char*> {};
TEST_P(Network, NothingIsLostUnnoticed)
{
    const support::servers servers("proftpd");
    if (servers.missing())
        GTEST_SKIP() << "a server is not installed";
    ASSERT_TRUE(servers.serve());
    const auto mask = umask(0); // the server may be another user
    const char *const told = std::getenv("QRFTP_SEED"), *const many = std::getenv("QRFTP_SESSIONS");
    const bool random = told && std::string(told) == "random";
    const auto first = random ? std::random_device()()
                       : told ? std::stoull(told)
                              : 715193543ULL; // among them wrong answers once
    const long sessions = many ? std::stol(many) : told && !random ? 1 : 12;
    std::atomic<long> next = 0, lost = 0;
    const auto work = [&] {
        for (long mine = 0; (mine = next++) < sessions;) {
            const auto seed = first + static_cast<std::uint64_t>(mine);
            life one(servers, GetParam(), seed);
            try {
                lost += one.live(50);
            } catch (const std::exception& wrong) {
                ADD_FAILURE() << "QRFTP_SEED=" << seed << ' ' << GetParam() << "\n" << one.log << wrong.what();
            }
        }
    };
    std::vector<std::jthread> threads(12);
    for (auto& each : threads)
        each = std::jthread(work);
    threads.clear(), umask(mask);
    std::cout << GetParam() << ": seeds from " << first << ", " << sessions << " sessions, " << lost
              << " operations lost" << std::endl;
    EXPECT_TRUE(lost > 0 || sessions < 10) << "no fault was met";
}
INSTANTIATE_TEST_SUITE_P(, Network, testing::Values("ftp", "sftp"),
                         [](const auto& of) { return std::string(of.param); });

} // namespace
