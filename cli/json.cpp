#include "json.hpp"

#include "format.hpp"
#include "output.hpp"

#include <fmt/format.h>
#include <utf8proc.h>

#include <array>

namespace qrftp::cli {

namespace {

bool is_utf8(std::string_view bytes)
{
    while (!bytes.empty()) {
        utf8proc_int32_t code = 0;
        const auto length = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(bytes.data()),
                                             static_cast<utf8proc_ssize_t>(bytes.size()), &code);
        if (length <= 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(length));
    }
    return true;
}

} // namespace

std::string to_text(const json& object)
{
    const std::string line = object.dump(-1, ' ', false, json::error_handler_t::replace);
    // JSON allows DEL and the control characters from U+0080 to U+009F as they are; terminals act on them. In
    // UTF-8, the latter are the byte C2 and one from 80 to 9F. Neither occurs outside of texts.
    std::string text;
    for (std::size_t place = 0; place < line.size(); ++place) {
        const auto byte = static_cast<unsigned char>(line[place]);
        const auto next = static_cast<unsigned char>(place + 1 < line.size() ? line[place + 1] : 0);
        if (byte == 0xc2 && next < 0xa0) {
            text += fmt::format("\\u{:04x}", next);
            ++place;
        } else {
            text += byte == 0x7f ? "\\u007f" : std::string(1, line[place]);
        }
    }
    return text;
}

void print_json(const json& object)
{
    print_line(to_text(object));
}

void print_error_json(const json& object)
{
    write_error(to_text(object));
}

void add_bytes(json& object, const std::string& key, const std::string& bytes)
{
    if (bytes.empty()) {
        return;
    }
    object[key] = bytes;
    if (!is_utf8(bytes)) {
        object[key + "_hex"] = hex(bytes);
    }
}

json to_json(const entry& what, const std::string& path)
{
    json object = json::object();
    add_bytes(object, "path", path);
    add_bytes(object, "name", what.name);
    object["type"] = kind_text(what.kind);
    if (what.size) {
        object["size"] = *what.size;
    }
    if (what.modified) {
        object["modified"] = iso_time(*what.modified);
        object["precision"] = precision_text(what.modified->precision);
    }
    if (what.mode) {
        object["mode"] = octal_mode(*what.mode);
    }
    add_bytes(object, "owner", what.owner);
    add_bytes(object, "group", what.group);
    add_bytes(object, "target", what.link_target);
    return object;
}

json to_json(const tree_action& action)
{
    json object{{"action", name_of(action.what)}, {"reason", name_of(action.why)}};
    add_bytes(object, "path", action.path.empty() ? "." : action.path);
    if (action.what == tree_action::kind::copy) {
        object["size"] = action.size;
    }
    return object;
}

json to_json(const server_info& info)
{
    json object = json::object();
    add_bytes(object, "greeting", info.greeting);
    add_bytes(object, "encryption", info.encryption);
    if (info.key) {
        object["host_key"] = {{"type", info.key->type}, {"fingerprint", info.key->fingerprint()}};
    }
    if (!info.features.empty()) {
        object["features"] = info.features;
    }
    add_bytes(object, "login_folder", info.login_folder);
    return object;
}

std::string_view name_of(tree_action::kind what)
{
    static constexpr std::array names{"make_folder", "copy", "remove_file", "remove_folder", "make_link"};
    return names.at(static_cast<std::size_t>(what));
}

std::string_view name_of(tree_action::reason why)
{
    static constexpr std::array names{"wanted", "missing",       "newer",       "other_size",
                                      "extra",  "other_content", "other_target"};
    return names.at(static_cast<std::size_t>(why));
}

} // namespace qrftp::cli
