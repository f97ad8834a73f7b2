#pragma once

#include "engine.hpp"

#include <qrftp/entry.hpp>
#include <qrftp/listing.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace qrftp {

/// What the server said when it refused; nothing when it did as it was told.
using refusal = std::optional<answer>;

/// How an upload ended.
struct upload_result {
    refusal refused;
    std::optional<std::uint64_t> stored; ///< how long the server says the file is now
};

/// What the client asks of a server, in the words of one protocol. All paths are absolute and checked. A
/// refusal is returned for the caller to explain; everything else is thrown, as `engine` does.
class remote {
public:
    static std::unique_ptr<remote> open(url location, options how);
    explicit remote(std::unique_ptr<engine> opened);
    remote(const remote&) = delete;
    remote& operator=(const remote&) = delete;
    virtual ~remote();

    virtual refusal ping() = 0;
    /// Whether there is a folder at `path` that can be entered.
    virtual refusal enter(const std::string& path) = 0;
    /// Whether there is a folder, or a link to one.
    virtual bool is_folder(const std::string& path);
    virtual std::optional<entry> find(const std::string& path) = 0;
    virtual std::optional<timestamp> modification_time(const std::string& path) = 0;
    /// `restart`, where given, undoes what `parser` was fed.
    virtual refusal list(const std::string& path, listing_parser& parser,
                         const std::function<void()>& restart) = 0;
    virtual listing_format format() const = 0;

    virtual refusal make_folder(const std::string& path) = 0;
    virtual refusal remove_folder(const std::string& path) = 0;
    virtual refusal remove_file(const std::string& path) = 0;
    virtual refusal rename(const std::string& from, const std::string& to) = 0;
    /// Does what is to be done after a failure, although the caller may have asked for the end. What fails here
    /// is lost.
    template <class Work>
    void clean_up(const Work& work) noexcept
    {
        cleaning_up_ = true;
        try {
            work();
        } catch (...) { // NOLINT(bugprone-empty-catch): the failure before it is the one to report
        }
        cleaning_up_ = false;
    }
    virtual refusal set_modification_time(const std::string& path, std::int64_t seconds) = 0;

    virtual std::optional<std::uint64_t> size(const std::string& path) = 0;
    /// `how` says what is done with the body.
    virtual refusal fetch(const std::string& path, request how);
    virtual upload_result send(const std::string& path, request how) = 0;

    virtual std::string system_type() = 0;

    /// Looks for `path` in the listing of its parent folder. A parent that cannot be listed holds nothing, and
    /// sets `*listed` to false.
    std::optional<entry> find_in_parent(const std::string& path, bool* listed = nullptr);

    const connection_info& info() const { return engine_->info(); }
    const url& location() const { return engine_->location(); }
    const options& how() const { return engine_->how(); }

    std::string folder; ///< the working folder

protected:
    outcome run(request wanted);
    /// Gives the body to `parser`; both are to outlive the request.
    static void feed_listing(request& wanted, listing_parser& parser, const std::function<void()>& restart);

private:
    std::unique_ptr<engine> engine_;
    bool cleaning_up_ = false;
};

std::unique_ptr<remote> make_ftp_remote(std::unique_ptr<engine> opened);
std::unique_ptr<remote> make_sftp_remote(std::unique_ptr<engine> opened);

/// What a path was thought to be when the server refused it.
enum class expected {
    file,
    folder,
    empty_folder,
    nothing,  ///< something new was to get the name
    new_file, ///< a file was to get the name, another file may have it
};

/// Throws the error that says why the server refused: it is asked what there is at `path`.
[[noreturn]] void explain(remote& server, const std::string& path, expected what, const answer& said);

} // namespace qrftp
