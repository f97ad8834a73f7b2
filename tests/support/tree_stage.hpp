#pragma once

#include "client_stage.hpp"

#include <gmock/gmock.h>

namespace support {

namespace fs = std::filesystem;
using qrftp::direction;
using qrftp::sync_options;
using qrftp::url_scheme;

const std::string remote_root = "/home/u/tree";

/// One synchronisation, which removes what the source does not have.
struct tree_row {
    std::string name;
    direction way;
    files source;
    files destination;
    std::optional<files> after{}; ///< of the destination; else as before
    std::string error{};          ///< the class that is thrown, or "any"
    bool is_incomplete = false;   ///< the result has failures, or lines that were passed over
    std::vector<rule> rules{};
    files listings{};
    std::string refused{}; ///< the folder that is not listed, or the file that is not sent, below the root
    void (*sftp_script)(sftp_peer&) = nullptr;
    bool is_for_ftp = false; ///< alone
    void (*change)(sync_options&) = nullptr;

    /// A row that speaks of FTP's commands, or of SFTP's packets, is for that protocol alone.
    [[nodiscard]] bool is_for(url_scheme scheme) const
    {
        const bool has_ftp = is_for_ftp || !rules.empty() || !listings.empty();
        const bool has_sftp = sftp_script != nullptr;
        return scheme == url_scheme::ftp ? has_ftp || !has_sftp : has_sftp || !has_ftp;
    }

    tree_row gives(files all) const
    {
        return changed([&](tree_row& of) { of.after = std::move(all); });
    }
    tree_row incomplete() const
    {
        return changed([](tree_row& of) { of.is_incomplete = true; });
    }
    tree_row throws(const std::string& wanted) const
    {
        return changed([&](tree_row& of) { of.error = wanted; });
    }
    /// The server answers a command so.
    tree_row on(const std::string& line, const answer& what) const
    {
        return changed([&](tree_row& of) { of.rules.push_back({line, what}); });
    }
    /// A command sends this instead of the honest listing.
    tree_row lists(const std::string& line, const std::string& text) const
    {
        return changed([&](tree_row& of) { of.listings[line] = text; });
    }
    tree_row over_ftp() const
    {
        return changed([](tree_row& of) { of.is_for_ftp = true; });
    }
    tree_row refuses(const std::string& path) const
    {
        return changed([&](tree_row& of) { of.refused = remote_root + "/" + path; });
    }
    /// An SFTP server that does this.
    tree_row where(void (*script)(sftp_peer&)) const
    {
        return changed([&](tree_row& of) { of.sftp_script = script; });
    }
    tree_row with_options(void (*set)(sync_options&)) const
    {
        return changed([&](tree_row& of) { of.change = set; });
    }

private:
    tree_row changed(const auto& change_it) const
    {
        tree_row copy = *this;
        change_it(copy);
        return copy;
    }
};
inline void PrintTo(const tree_row& of, std::ostream* out)
{
    *out << of.name;
}

/// A tree on either side, and beside each a folder that nothing may touch.
class tree_stage {
public:
    explicit tree_stage(const tree_row& of, url_scheme scheme = url_scheme::ftp) : t({}, scheme), row_(of)
    {
        files there{{"/home", "/"}, {"/home/u", "/"}, {remote_root, "/"}};
        there.insert({{"/home/u/outside", "/"}, {"/home/u/outside/x", "precious"}});
        for (const auto& [path, content] : fetches() ? of.source : of.destination)
            there[remote_root + "/" + path] = content;
        t.keep(there);
        if (!of.refused.empty())
            t.refuse(of.refused);
        if (t.sftp && of.sftp_script != nullptr)
            t.sftp->script(of.sftp_script);
        for (const auto& [line, text] : of.listings)
            t.peer.body(line, text);
        for (const auto& [line, what, nth] : of.rules)
            t.peer.on(line, what, nth);
        write_file(t.local / "outside/x", "precious");
        fs::create_directory(local());
        for (const auto& [path, content] : fetches() ? of.destination : of.source)
            make_local(local() / path, content);
    }

    qrftp::tree_result run()
    {
        sync_options options;
        options.jobs = 1;
        options.remove_extra = true;
        if (row_.change != nullptr)
            row_.change(options);
        return synchronise(t.open(), local(), remote_root, row_.way, options);
    }
    [[nodiscard]] files source() const { return fetches() ? remote_files(remote_root) : files_in(local()); }
    [[nodiscard]] files destination() const
    {
        return fetches() ? files_in(local()) : remote_files(remote_root);
    }
    void expect_nothing_outside() const
    {
        EXPECT_EQ(files_in(t.local / "outside"), (files{{"x", "precious"}}));
        EXPECT_EQ(remote_files("/home/u/outside"), (files{{"x", "precious"}}));
        EXPECT_EQ(std::distance(fs::directory_iterator(t.local), {}), 4); // with "f" and "long"
        EXPECT_EQ(t.kept().count("/home/u"), 1U);
    }
    [[nodiscard]] fs::path local() const { return t.local / "tree"; }
    client_stage t;

private:
    [[nodiscard]] bool fetches() const { return row_.way == direction::fetch; }
    [[nodiscard]] files remote_files(const std::string& root) const
    {
        files all;
        for (const auto& [path, content] : t.kept())
            if (path.starts_with(root + "/"))
                all[path.substr(root.size() + 1)] = content;
        return all;
    }
    static void make_local(const fs::path& path, const std::string& content)
    {
        fs::create_directories(path.parent_path());
        if (content.starts_with("-> "))
            return fs::create_symlink(content.substr(3), path);
        if (content == "/")
            return void(fs::create_directory(path));
        write_file(path, content);
        // As old as what the peer keeps: 2024-01-02 03:04:05.
        const std::chrono::sys_seconds time{std::chrono::seconds(1704164645)};
        fs::last_write_time(path, std::chrono::file_clock::from_sys(time));
    }

    tree_row row_;
};

inline tree_row fetching(const std::string& name, const files& source, const files& destination)
{
    return {.name = name + "Fetching", .way = direction::fetch, .source = source, .destination = destination};
}
inline tree_row sending(const std::string& name, const files& source, const files& destination)
{
    return {.name = name + "Sending", .way = direction::send, .source = source, .destination = destination};
}

} // namespace support
