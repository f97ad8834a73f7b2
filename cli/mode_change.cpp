#include "mode_change.hpp"

#include "settings.hpp"

#include <fmt/format.h>

#include <array>
#include <sstream>

namespace qrftp::cli {

namespace {

constexpr unsigned all_bits = 07777;
/// User, group and others, in the order of their bits.
constexpr std::string_view classes = "ugo";

/// The bits of read, write and execute for those in `who`, of whom 4 is the user.
unsigned spread(unsigned permissions, unsigned who)
{
    unsigned bits = 0;
    for (const unsigned shift : {0U, 3U, 6U}) {
        bits |= (who >> (shift / 3) & 1U) != 0 ? permissions << shift : 0U;
    }
    return bits;
}

unsigned class_bit(char name)
{
    return name == 'a' ? 7U : 4U >> classes.find(name);
}

} // namespace

mode_change::mode_change(const std::string& text)
{
    if (!text.empty() && text.size() <= 5 && text.find_first_not_of("01234567") == std::string::npos) {
        octal_ = static_cast<unsigned>(std::stoul(text, nullptr, 8));
        if (octal_ <= all_bits) {
            return;
        }
    }
    std::istringstream parts(text);
    for (std::string part; std::getline(parts, part, ',');) {
        clauses_.push_back(parse_clause(part));
    }
    if (clauses_.empty() || text.ends_with(',')) {
        throw usage_error("A mode is needed: octal, like 644, or symbols, like u+x,go-w.");
    }
}

mode_change::clause mode_change::parse_clause(const std::string& text)
{
    clause one;
    const std::size_t place = text.find_first_not_of("ugoa");
    const bool has_operation = place != std::string::npos && std::string_view("+-=").find(text[place]) < 3;
    const std::string permissions = has_operation ? text.substr(place + 1) : "";
    const bool copies_class = permissions.size() == 1 && classes.find(permissions[0]) < classes.size();
    if (!has_operation || (!copies_class && permissions.find_first_not_of("rwxXst") != std::string::npos)) {
        throw usage_error(
            fmt::format("\"{}\" is no mode: write octal digits, like 644, or symbols, like u+x,go-w.", text));
    }
    for (const char name : text.substr(0, place)) {
        one.who |= class_bit(name);
    }
    one.who = one.who == 0 ? 7U : one.who;
    one.operation = text[place];
    one.permissions = permissions;
    return one;
}

unsigned mode_change::bits_of(const clause& one, unsigned mode, bool is_folder)
{
    unsigned bits = 0;
    for (const char letter : one.permissions) {
        const bool is_executable = is_folder || (mode & 0111U) != 0;
        switch (letter) {
        case 'r':
            bits |= spread(4, one.who);
            break;
        case 'w':
            bits |= spread(2, one.who);
            break;
        case 'x':
            bits |= spread(1, one.who);
            break;
        case 'X':
            bits |= is_executable ? spread(1, one.who) : 0U;
            break;
        case 's':
            bits |= ((one.who & 4U) != 0 ? 04000U : 0U) | ((one.who & 2U) != 0 ? 02000U : 0U);
            break;
        case 't':
            bits |= 01000U;
            break;
        default: // the permissions that another class has
            bits |= spread(mode >> (3 * (2 - classes.find(letter))) & 7U, one.who);
        }
    }
    return bits;
}

std::filesystem::perms mode_change::apply(std::filesystem::perms mode, bool is_folder) const
{
    if (!needs_mode()) {
        return static_cast<std::filesystem::perms>(octal_);
    }
    auto result = static_cast<unsigned>(mode) & all_bits;
    for (const clause& one : clauses_) {
        const unsigned bits = bits_of(one, result, is_folder);
        if (one.operation == '=') {
            result &= ~spread(7, one.who);
        }
        result = one.operation == '-' ? result & ~bits : result | bits;
    }
    return static_cast<std::filesystem::perms>(result);
}

} // namespace qrftp::cli
