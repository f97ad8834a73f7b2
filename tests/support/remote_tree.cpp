#include "remote_tree.hpp"

#include "follow_links.hpp"

#include <filesystem>

namespace support {
namespace {

const std::string arrow = "-> ";

std::string parent_of(const std::string& path)
{
    return std::filesystem::path(path).parent_path();
}

std::string name_of(const std::string& path)
{
    return std::filesystem::path(path).filename();
}

bool is_below(const std::string& path, const std::string& folder)
{
    return path.starts_with(folder == "/" ? folder : folder + "/") && path != folder;
}

} // namespace

std::string remote_tree::target(const std::string& name) const
{
    return follow_links(name, [this](const std::string& path) -> std::optional<std::string> {
        const auto found = all_.find(path);
        const bool is_link = found != all_.end() && found->second.starts_with(arrow);
        return is_link ? std::optional(found->second.substr(arrow.size())) : std::nullopt;
    });
}

std::string remote_tree::own(const std::string& name) const
{
    return name == "/" ? name : (std::filesystem::path(target(parent_of(name))) / name_of(name)).string();
}

bool remote_tree::is_folder(const std::string& path) const
{
    const auto found = all_.find(path);
    return path == "/" || (found != all_.end() && found->second == "/");
}

bool remote_tree::is_file(const std::string& path) const
{
    return all_.contains(path) && !is_folder(path);
}

bool remote_tree::is_empty(const std::string& folder) const
{
    const auto next = all_.upper_bound(folder + "/");
    return next == all_.end() || !is_below(next->first, folder);
}

std::string remote_tree::facts(const std::string& path) const
{
    if (is_folder(path))
        return "type=dir;modify=20240102030405;";
    const auto& content = all_.at(path);
    if (content.starts_with(arrow))
        return "type=OS.unix=slink:" + content.substr(arrow.size()) + ";";
    return "type=file;size=" + std::to_string(content.size()) + ";modify=20240102030405;";
}

std::optional<std::string> remote_tree::content(const std::string& verb, const std::string& name) const
{
    const std::string path = target(name);
    if (verb == "RETR")
        return is_file(path) ? std::optional(all_.at(path)) : std::nullopt;
    if (!is_folder(path))
        return std::nullopt;
    std::string lines;
    for (const auto& [each, _] : all_)
        if (each != "/" && parent_of(each) == path)
            lines += facts(each) + " " + name_of(each) + "\r\n";
    return lines;
}

bool remote_tree::remove(const std::string& path)
{
    return all_.erase(path) > 0;
}

bool remote_tree::rename(const std::string& from, const std::string& to)
{
    if (!all_.contains(from) || !is_folder(parent_of(to)) || is_folder(to) || (!replaces_ && all_.contains(to)))
        return false;
    files moved;
    for (const auto& [path, content] : all_)
        if (path == from || is_below(path, from))
            moved[to + path.substr(from.size())] = content;
    std::erase_if(all_, [&](const auto& each) { return each.first == from || is_below(each.first, from); });
    for (const auto& [path, content] : moved)
        all_[path] = content;
    return true;
}

std::optional<std::string> remote_tree::obey(const std::string& verb, const std::string& name,
                                             std::string& renaming)
{
    const std::string path = own(name);
    const auto reply = [](bool done, const std::string& yes) { return done ? yes : "550 no such thing"; };
    if (verb == "MLST")
        return is_folder(path) || all_.contains(path) ? "250-\r\n " + facts(path) + " " + name + "\r\n250 End"
                                                      : "550 no such thing";
    if (verb == "CWD")
        return reply(is_folder(target(name)), "250 in");
    if (verb == "SIZE")
        return is_file(target(name)) ? "213 " + std::to_string(all_.at(target(name)).size())
                                     : "550 no such file";
    if (verb == "MDTM")
        return reply(is_file(target(name)), "213 20240102030405");
    if (verb == "MKD")
        return reply(is_folder(parent_of(path)) && all_.emplace(path, "/").second,
                     "257 \"" + name + "\" created");
    if (verb == "RMD")
        return reply(is_folder(path) && is_empty(path) && remove(path), "250 removed");
    if (verb == "DELE")
        return reply(is_file(path) && remove(path), "250 removed");
    if (verb == "RNFR") {
        renaming = path;
        return reply(all_.contains(path), "350 to?");
    }
    if (verb == "RNTO")
        return reply(rename(renaming, path), "250 renamed");
    return std::nullopt;
}

} // namespace support
