// The main job on one connection: sends a tree of files, looks at it, fetches it back, renames and deletes it.

#include "progress.hpp"
#include "session.hpp"

#include <fl/i18n/ustring_to_utf8.hpp>
#include <zorbel/io/ftp/core.hpp>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <vector>

namespace core = zorbel::io::ftp::core;
namespace fs = std::filesystem;
using fl::i18n::utf8_to_ustring;
using namespace qrftp::cli;

namespace {

/// What is in a folder, by relative path; parents come before what they hold.
struct tree {
    std::vector<std::string> folders;
    std::vector<std::string> files;
    std::uintmax_t bytes = 0;
};

tree read_tree(const fs::path& top)
{
    tree found;
    for (const auto& entry : fs::recursive_directory_iterator(top)) {
        const std::string path = fs::relative(entry.path(), top).string();
        if (entry.is_directory()) {
            found.folders.push_back(path);
        } else {
            found.files.push_back(path);
            found.bytes += entry.file_size();
        }
    }
    std::sort(found.folders.begin(), found.folders.end());
    std::sort(found.files.begin(), found.files.end());
    return found;
}

/// The server's side of the job. Every remote name is absolute: what it means must not depend on the folder
/// that the control connection happens to be in.
class job {
public:
    job(core::curl_ptr& connection, bool sftp, std::string top, tree local)
        : connection_(connection), sftp_(sftp), top_(std::move(top)), tree_(std::move(local))
    {
    }

    void send(const fs::path& from)
    {
        make_folder(top_);
        for (const auto& folder : tree_.folders) {
            make_folder(remote(folder));
        }
        for (const auto& file : tree_.files) {
            const progress_bar bar(connection_, file);
            core::send_file(connection_, utf8_to_ustring((from / file).string()), wide(file), false);
        }
    }

    void list()
    {
        const auto listing =
            sftp_ ? core::sftp_is_folder(connection_, top_ + "/", false).second : core::list(connection_, top_);
        if (listing.empty()) {
            throw std::runtime_error(
                "the folder that was sent is listed as empty"); // a failed listing is no error
        }
    }

    void fetch(const fs::path& into)
    {
        fs::create_directories(into);
        for (const auto& folder : tree_.folders) {
            fs::create_directories(into / folder);
        }
        for (const auto& file : tree_.files) {
            const progress_bar bar(connection_, file);
            core::receive_file(connection_, wide(file), utf8_to_ustring((into / file).string()), false);
        }
    }

    void rename_all()
    {
        const auto rename = sftp_ ? core::sftp_rename_remote_file : core::rename_remote_file;
        for (const auto& file : tree_.files) {
            rename(connection_, wide(file), wide(file + ".renamed"));
        }
    }

    void remove_all()
    {
        const auto remove_file = sftp_ ? core::sftp_delete_remote_file : core::delete_remote_file;
        const auto remove_folder = sftp_ ? core::sftp_delete_folder : core::delete_folder;
        for (const auto& file : tree_.files) {
            remove_file(connection_, wide(file + ".renamed"));
        }
        std::for_each(tree_.folders.rbegin(), tree_.folders.rend(),
                      [&](const std::string& folder) { remove_folder(connection_, remote(folder)); });
        remove_folder(connection_, top_);
    }

private:
    std::string remote(const std::string& path) const { return top_ + "/" + path; }
    fl::ustring wide(const std::string& path) const { return utf8_to_ustring(remote(path)); }

    void make_folder(const std::string& folder)
    {
        (sftp_ ? core::sftp_create_folder : core::create_folder)(connection_, folder);
    }

    core::curl_ptr& connection_;
    bool sftp_;
    std::string top_;
    tree tree_;
};

/// Runs one step and says how long it took; of a transfer also how fast it was.
template <class Step>
void play(const std::string& what, std::uintmax_t bytes, Step step)
{
    const auto start = std::chrono::steady_clock::now();
    step();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("  %-34s %6.2f s", what.c_str(), seconds);
    if (bytes > 0) {
        std::printf("  %s/s", readable(static_cast<double>(bytes) / seconds).c_str());
    }
    std::puts("");
}

void run(const std::string& url, const login_options& login, const fs::path& from, const fs::path& into)
{
    const remote target = parse_url(url);
    const tree local = read_tree(from);
    core::curl_ptr connection;
    std::string folder;
    play("log in", 0, [&] { folder = open(connection, target, login); });
    const std::string top = core::add_trailing_slash(target.path.empty() ? folder : target.path) + "main job";
    job job(connection, target.sftp, top, local);
    const std::string amount =
        std::to_string(local.files.size()) + " files, " + readable(static_cast<double>(local.bytes));
    play("send " + amount, local.bytes, [&] { job.send(from); });
    play("list the folder", 0, [&] { job.list(); });
    play("fetch them back", local.bytes, [&] { job.fetch(into); });
    play("rename every file", 0, [&] { job.rename_all(); });
    play("delete files and folders", 0, [&] { job.remove_all(); });
}

} // namespace

int main(int argc, char** argv)
try {
    CLI::App app("Plays the main job on a server.", "qrftp-main-job");
    login_options login;
    std::string url;
    std::string from;
    std::string into;
    app.add_option("URL", url, "Folder on the server")->required();
    app.add_option("FROM", from, "Local tree to send")->required()->check(CLI::ExistingDirectory);
    app.add_option("INTO", into, "Folder to fetch it into")->required();
    add_login_options(app, login);
    CLI11_PARSE(app, argc, argv);
    run(url, login, from, into);
    return 0;
} catch (const std::exception& error) {
    std::cerr << "qrftp-main-job: " << error.what() << '\n';
    return 1;
}
