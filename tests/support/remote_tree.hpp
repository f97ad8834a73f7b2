#pragma once

#include "local_files.hpp"

#include <optional>
#include <string>

namespace support {

/// The files of a scripted FTP server, by absolute names; "/" itself is always a folder. Every file is of
/// 2024-01-02 03:04:05.
class remote_tree {
public:
    /// Whether renaming replaces a file that has the new name.
    remote_tree(files all, bool replaces) : all_(std::move(all)), replaces_(replaces) {}

    [[nodiscard]] const files& all() const { return all_; }
    /// The reply to a command about `name`; nothing where the verb is of another kind. `renaming` is what the
    /// connection named last with RNFR.
    std::optional<std::string> obey(const std::string& verb, const std::string& name, std::string& renaming);
    /// The content of a file, or a folder as MLSD lists it.
    [[nodiscard]] std::optional<std::string> content(const std::string& verb, const std::string& name) const;
    void store(const std::string& name, const std::string& bytes) { all_[own(name)] = bytes; }

private:
    /// `name` without the links that lead to it, and without the one that it is.
    [[nodiscard]] std::string own(const std::string& name) const;
    [[nodiscard]] std::string target(const std::string& name) const;
    [[nodiscard]] bool is_folder(const std::string& path) const;
    [[nodiscard]] bool is_file(const std::string& path) const;
    [[nodiscard]] bool is_empty(const std::string& folder) const;
    [[nodiscard]] std::string facts(const std::string& path) const;
    bool remove(const std::string& path);
    bool rename(const std::string& from, const std::string& to);

    files all_;
    bool replaces_;
};

} // namespace support
