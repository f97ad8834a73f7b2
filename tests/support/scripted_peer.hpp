#pragma once

#include "guarded.hpp"
#include "remote_tree.hpp"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace support {

constexpr std::size_t whole = SIZE_MAX;

/// What the peer does at one step in place of its own answer.
struct answer {
    std::optional<std::string> bytes{}; ///< sent on the control connection as they are; none: the peer's own
    bool drops = false;                 ///< then closes the control connection
    std::optional<std::size_t> data{};  ///< before all: "150" and so many bytes on the data connection
    bool is_silent = false;             ///< the last reply is not sent
    static answer raw(const std::string& bytes) { return {bytes}; }
    static answer reply(const std::string& text) { return {text + "\r\n"}; }
    static answer silence() { return {""}; }
    static answer drop() { return {"", true}; }
    static answer drop_after() { return {std::nullopt, true}; } ///< the peer's own reply, then closes
    /// Does what was asked, then closes without a reply.
    static answer drop_instead_of_reply() { return {std::nullopt, true, std::nullopt, true}; }
    /// A transfer, sent or received, that ends after `limit` bytes; the last reply with its line end, or none.
    static answer transfer(std::size_t limit, const std::string& last) { return {last, false, limit}; }
    answer then_drop() const { return {bytes, true, data}; }
};

/// An FTP server on 127.0.0.1 in threads of its own, a sane one but for what the test scripts. No wait, that of
/// the destructor included, outlasts the deadline.
class scripted_peer {
public:
    static constexpr auto host_url = "ftp://127.0.0.1";

    explicit scripted_peer(const std::string& login_folder = "/home/u",
                           std::chrono::milliseconds deadline = std::chrono::seconds(5));
    scripted_peer(const scripted_peer&) = delete;
    ~scripted_peer();

    /// Answers a line ("CWD missing"), a verb ("CWD") or "greeting": always, or the nth time from now only. The
    /// newest rule wins. A scripted reply stands in for the effect of the command too.
    void on(const std::string& line, const answer& what, int nth = 0)
    {
        state_->rules.push_back({line, what, nth});
    }
    /// Answers one step of the peer's life: the first greeting is 0, each command and later greeting one more.
    void at(int step, const answer& what) { state_->steps[step] = what; }
    /// What a line or a verb sends on the data connection; a listing without a body is empty.
    void body(const std::string& line, const std::string& bytes) { state_->bodies[line] = bytes; }
    void file(const std::string& name, const std::string& bytes) { body("RETR " + name, bytes); }
    /// From now on the peer keeps files as real servers do, and forgets the bodies so far. Later rules and
    /// bodies come before what it keeps. Whether renaming replaces a file is the server's to decide.
    void keep(const files& all, bool replaces = true)
    {
        state_->bodies.clear();
        state_->tree.emplace(all, replaces);
    }
    files kept() const { return state_->tree->all(); }
    /// The address in the answers to PASV ("192,0,2,1"), which is an unknown command without one.
    void passive_address(const std::string& numbers) { state_->passive_address = numbers; }

    /// Opens the data connections of active mode from this address.
    void data_address(const std::string& address) { state_->data_address = address; }

    /// The lines received, without their ends: on one connection (1, 2, …) or on all (0).
    std::vector<std::string> commands(int connection = 0) const { return state_->commands[connection]; }
    void clear_commands() { state_->commands.clear(); }
    std::map<std::string, std::string> uploads() const { return state_->uploads; }
    /// Waits until a control connection that the script drops is closed, so that the client can know of it.
    void await_drop() const { drops_.wait(0); }
    int steps() const { return state_->step; } ///< taken so far
    std::uint16_t port() const { return port_; }
    std::string url() const { return host_url + (":" + std::to_string(port_)); }

private:
    struct session;
    struct rule {
        std::string line;
        answer what;
        int nth, seen = 0;
    };
    struct state {
        std::vector<rule> rules;
        std::map<int, answer> steps;
        std::map<std::string, std::string> bodies, uploads;
        std::map<int, std::vector<std::string>> commands;
        std::optional<remote_tree> tree;
        std::string passive_address;
        std::string data_address = "127.0.0.1";
        int step = 0;
        answer scripted(const std::string& line);
    };
    guarded<state> state_;
    std::atomic<int> drops_ = 0;
    std::uint16_t port_ = 0;
    int listener_ = -1;
    std::jthread thread_;
};

} // namespace support
