#include "profile_edit.hpp"

#include "environment.hpp"
#include "settings.hpp"

#include <qrftp/error.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

namespace qrftp::cli {

namespace fs = std::filesystem;

namespace {

/// Where line `number` begins; the end of the text where it has fewer.
std::size_t start_of_line(const std::string& text, std::size_t number)
{
    std::size_t start = 0;
    for (; number > 1 && start < text.size(); --number) {
        start = std::min(text.find('\n', start), text.size() - 1) + 1;
    }
    return start;
}

/// The byte at `place`, whose column counts characters.
std::size_t offset_of(const std::string& text, file_position place)
{
    std::size_t offset = start_of_line(text, place.line);
    for (; place.column > 1 && offset < text.size(); --place.column) {
        ++offset;
        while (offset < text.size() && (static_cast<unsigned char>(text[offset]) & 0xC0U) == 0x80U) {
            ++offset;
        }
    }
    return offset;
}

std::string quoted(const std::string& text)
{
    std::string result = "\"";
    for (const char byte : text) {
        const auto value = static_cast<unsigned char>(byte);
        if (byte == '"' || byte == '\\') {
            result += '\\';
        }
        result += value < 0x20 || value == 0x7f ? fmt::format("\\u{:04X}", value) : std::string(1, byte);
    }
    return result + '"';
}

std::size_t last_line(const profile& table)
{
    std::size_t line = table.line;
    for (const profile_setting& one : table.settings) {
        line = std::max(line, one.end.line);
    }
    return line;
}

std::string insert_line(std::string text, std::size_t number, const std::string& line)
{
    const std::size_t place = start_of_line(text, number);
    const bool needs_end = place > 0 && text[place - 1] != '\n';
    return text.insert(place, (needs_end ? "\n" : "") + line + '\n');
}

std::string erase_lines(std::string text, std::size_t first, std::size_t last)
{
    const std::size_t start = start_of_line(text, first);
    return text.erase(start, start_of_line(text, last + 1) - start);
}

std::string edited(const profile_list& list, const std::string& name, const profile_setting& wanted)
{
    const std::string line = wanted.values.empty() ? "" : wanted.key + " = " + toml_value(wanted);
    const profile* const table = list.find(name);
    if (table == nullptr) {
        const bool is_first = list.content.empty();
        return list.content + (is_first || list.content.ends_with('\n') ? "" : "\n") + (is_first ? "" : "\n") +
               fmt::format("[{}]\n{}\n", name, line);
    }
    const profile_setting* const old = table->find(wanted.key);
    if (old == nullptr) {
        return line.empty() ? list.content : insert_line(list.content, last_line(*table) + 1, line);
    }
    if (line.empty()) {
        return erase_lines(list.content, old->line, old->end.line);
    }
    std::string text = list.content;
    const std::size_t begin = offset_of(text, old->begin);
    return text.replace(begin, offset_of(text, old->end) - begin, toml_value(wanted));
}

/// The values of all settings but one, to see that a change has changed nothing else.
std::vector<std::string> other_values(const profile_list& list, const std::string& name, const std::string& key)
{
    std::vector<std::string> found;
    for (const profile& table : list.profiles) {
        for (const profile_setting& one : table.settings) {
            if (table.name != name || (!key.empty() && one.key != key)) {
                found.push_back(fmt::format("{}\n{}\n{}", table.name, one.key, fmt::join(one.values, "\n")));
            }
        }
    }
    std::ranges::sort(found);
    return found;
}

/// `text`, the list after a change to the table `name`; of its `key` alone where that is not empty.
std::string checked(const profile_list& list, std::string text, const std::string& name, const std::string& key,
                    const std::vector<std::string>& values)
{
    profile_list changed;
    try {
        changed = parse_profiles(list.file, text);
    } catch (const usage_error&) {
        changed.profiles.clear(); // Whatever it is: the change was none.
    }
    const profile* const table = changed.find(name);
    const profile_setting* const found = table == nullptr || key.empty() ? nullptr : table->find(key);
    const bool is_done =
        key.empty() ? table == nullptr : (found == nullptr ? values.empty() : found->values == values);
    if (!is_done || other_values(changed, name, key) != other_values(list, name, key)) {
        throw usage_error(
            fmt::format("[{}] cannot be changed in {}: it is not written with a heading and a key on each "
                        "line. Edit the file by hand.",
                        name, list.file.string()));
    }
    return text;
}

[[noreturn]] void throw_failure(const fs::path& file)
{
    throw LocalFileError(file.string(), std::error_code(errno, std::generic_category()));
}

} // namespace

std::string toml_value(const profile_setting& one)
{
    if (one.type == profile_setting::kind::list) {
        std::string all;
        for (const std::string& value : one.values) {
            all += (all.empty() ? "" : ", ") + quoted(value);
        }
        return '[' + all + ']';
    }
    return one.type == profile_setting::kind::text ? quoted(one.values.front()) : one.values.front();
}

std::string with_setting(const profile_list& list, const std::string& name, const profile_setting& wanted)
{
    return checked(list, edited(list, name, wanted), name, wanted.key, wanted.values);
}

std::string without_profile(const profile_list& list, const std::string& name)
{
    const profile& table = *list.find(name);
    std::size_t last = last_line(table);
    const std::string& text = list.content;
    while (start_of_line(text, last + 1) < text.size() && text[start_of_line(text, last + 1)] == '\n') {
        ++last;
    }
    return checked(list, erase_lines(text, table.line, last), name, "", {});
}

void write_config(const fs::path& file, const std::string& content)
{
    std::error_code failure;
    const fs::path target = fs::weakly_canonical(file, failure); // A link stays a link.
    make_private_folder(target.parent_path());
    std::string name = target.string() + ".XXXXXX";
    const int descriptor = mkostemp(name.data(), O_CLOEXEC);
    if (descriptor < 0) {
        throw_failure(target);
    }
    const bool is_written =
        write(descriptor, content.data(), content.size()) == static_cast<ssize_t>(content.size()) &&
        fsync(descriptor) == 0;
    if (!is_written || close(descriptor) != 0 || rename(name.c_str(), target.c_str()) != 0) {
        const int reason = errno;
        (void)unlink(name.c_str());
        errno = reason;
        throw_failure(target);
    }
}

} // namespace qrftp::cli
