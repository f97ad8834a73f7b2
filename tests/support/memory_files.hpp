#pragma once

#include <protocol.hpp>

#include <algorithm>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

/// A file that is fetched into memory.
class memory_download : public qrftp::download {
public:
    using base = qrftp::download;
    explicit memory_download(std::string path, std::optional<std::uint64_t> listed = {})
        : download(std::move(path)), listed_(listed)
    {
    }

    [[nodiscard]] bool needs_size() const override { return false; }
    [[nodiscard]] bool needs_time() const override { return false; }
    [[nodiscard]] std::optional<std::uint64_t> listed_size() const override { return listed_; }
    qrftp::byte_range begin(const qrftp::file_facts& source) override
    {
        facts = source;
        return {};
    }
    void write(std::uint64_t offset, std::string_view bytes) override
    {
        if (content.size() + bytes.size() > disk) {
            throw qrftp::LocalFileError(path(), std::make_error_code(std::errc::no_space_on_device));
        }
        is_in_order = is_in_order && offset == content.size();
        content += bytes;
    }
    [[nodiscard]] bool takes_any_order() const override { return false; }
    bool restart() override
    {
        ++restarts;
        content.clear();
        return true;
    }
    void finish(const qrftp::file_facts& source) override
    {
        facts = source;
        ++finishes;
    }

    std::size_t disk = static_cast<std::size_t>(-1); ///< how much can be written
    qrftp::file_facts facts{};
    std::string content{};
    bool is_in_order = true;
    int restarts = 0;
    int finishes = 0;

private:
    std::optional<std::uint64_t> listed_;
};

/// A file that is sent from memory, by way of a temporary name.
class memory_upload : public qrftp::upload {
public:
    using base = qrftp::upload;
    memory_upload(std::string target, std::string source, bool temporary = true)
        : upload(std::move(target)), content(std::move(source)),
          temporary_(this->target() + (temporary ? ".part" : ""))
    {
    }

    [[nodiscard]] const std::string& path() const override { return temporary_; }
    void rename_temporary() override { temporary_ += "2"; }
    [[nodiscard]] bool may_replace() const override { return replace; }
    [[nodiscard]] bool resumes() const override { return resume; }
    bool complete_target(const qrftp::file_facts& /*there*/) override
    {
        temporary_ = target();
        return true;
    }
    [[nodiscard]] bool keeps_temporary() const override { return resume; }
    bool is_unchanged() override
    {
        content.resize(std::min(content.size(), size_after_break));
        return size_after_break > content.size();
    }
    qrftp::byte_range begin(const std::optional<qrftp::file_facts>& there) override
    {
        return {there && there->size ? *there->size : 0, content.size()};
    }
    [[nodiscard]] std::optional<std::uint64_t> size() const override { return content.size(); }
    std::size_t read(std::uint64_t offset, std::span<char> buffer) override
    {
        return content.copy(buffer.data(), buffer.size(), offset);
    }
    [[nodiscard]] bool reads_anywhere() const override { return true; }
    [[nodiscard]] bool needs_replaced() const override { return is_temporary(); }
    [[nodiscard]] qrftp::file_facts facts_to_set(const std::optional<qrftp::entry>& replaced) const override
    {
        return {.modified = std::chrono::sys_seconds(std::chrono::seconds(1000)),
                .mode = replaced ? replaced->mode : mode};
    }
    void sent(std::uint64_t bytes) override { confirmed += bytes; }
    void finish() override { ++finishes; }

    std::string content;
    bool replace = true;
    bool resume = false;
    std::size_t size_after_break = static_cast<std::size_t>(-1);
    std::optional<std::filesystem::perms> mode{};
    std::uint64_t confirmed = 0;
    int finishes = 0;

private:
    std::string temporary_;
};

inline std::string name_of(const std::exception_ptr& why)
{
    try {
        std::rethrow_exception(why);
    } catch (const qrftp::error& failure) {
        return std::string(failure.name());
    }
}

/// Hands out its files once, and keeps how each of them ended: "" or the name of the error.
template <class File>
class memory_batch : public qrftp::batch<typename File::base> {
public:
    using part = typename qrftp::batch<typename File::base>::part;

    template <class... Arguments>
    File& add(Arguments&&... arguments)
    {
        return files.emplace_back(std::forward<Arguments>(arguments)...);
    }
    std::optional<part> next() override
    {
        return handed_out_ < files.size() ? std::optional(part{&files[handed_out_++], {}}) : std::nullopt;
    }
    void finished(const part& done) override { results[done.file].emplace_back(); }
    void failed(const part& lost, std::exception_ptr why) override
    {
        results[lost.file].push_back(name_of(why));
        if (throws) {
            std::rethrow_exception(why);
        }
    }
    /// How the file ended; "several" if that was told more than once.
    std::string result(const File& file)
    {
        const auto& told = results[&file];
        return told.empty() ? "none" : told.size() > 1 ? "several" : told.front();
    }

    bool throws = false; ///< what a file failed with
    std::deque<File> files{};
    std::map<const typename File::base*, std::vector<std::string>> results{};

private:
    std::size_t handed_out_ = 0;
};

/// Folders that are listed as they are found.
class memory_queue : public qrftp::folder_queue {
public:
    explicit memory_queue(std::string first) { waiting_.push_back(std::move(first)); }

    std::optional<std::string> next() override
    {
        if (waiting_.empty()) {
            return {};
        }
        std::string first = std::move(waiting_.front());
        waiting_.pop_front();
        return first;
    }
    void found(const std::string& folder, qrftp::entry&& what) override
    {
        if (what.kind == qrftp::entry_kind::folder) {
            waiting_.push_back((folder == "/" ? "" : folder) + '/' + what.name);
        }
        entries[folder].push_back(what.name);
    }
    void skipped(const std::string&, std::string_view line) override { left_out.emplace_back(line); }
    void restarted(const std::string& folder) override { entries[folder].clear(); }
    void finished(const std::string& folder) override { results[folder] = ""; }
    void failed(const std::string& folder, std::exception_ptr why) override { results[folder] = name_of(why); }

    std::map<std::string, std::vector<std::string>> entries{};
    std::vector<std::string> left_out{};
    std::map<std::string, std::string> results{};

private:
    std::deque<std::string> waiting_{};
};
