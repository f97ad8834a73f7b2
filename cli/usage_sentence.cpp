#include "usage_sentence.hpp"

#include <qrftp/trace.hpp>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <string_view>

namespace qrftp::cli {

namespace {

/// The option that the error is about; null where it is about none.
const CLI::Option* find_subject(const CLI::App& command, const std::string& text)
{
    const CLI::Option* found = nullptr;
    for (const CLI::Option* const one : command.get_options()) {
        const std::string name = one->get_name();
        const std::size_t place = text.find(name);
        const char behind = place == std::string::npos ? 'x' : (text + ' ')[place + name.size()];
        const bool is_first = found == nullptr || place < text.find(found->get_name());
        if ((behind == ':' || behind == ' ') && is_first) {
            found = one;
        }
    }
    return found;
}

/// What an option takes, as its help shows it: "none|strict" as "none or strict".
std::string wanted(const CLI::Option& option)
{
    std::string shown = option.get_type_name();
    if (shown == "N") {
        return "a whole number";
    }
    const bool is_choice = shown.find_first_not_of("abcdefghijklmnopqrstuvwxyz-|") == std::string::npos;
    const std::size_t last = is_choice ? shown.rfind('|') : std::string::npos;
    if (last != std::string::npos) {
        shown.replace(last, 1, " or ");
    }
    for (std::size_t place = 0; is_choice && (place = shown.find('|')) != std::string::npos;) {
        shown.replace(place, 1, ", ");
    }
    return shown;
}

/// What a range of numbers is called; empty where the error is about none.
std::string range_in(const std::string& text)
{
    const std::string_view before = "not in range ";
    const std::size_t start = text.find(before);
    if (start == std::string::npos) {
        return {};
    }
    const std::string range = text.substr(start + before.size());
    const bool is_open = range.size() > 100; // The largest number that there is.
    return is_open ? "a number above 0" : "a number from " + range;
}

std::string fault_of_operands(const CLI::App& command, const CLI::Option& operands)
{
    const auto most = static_cast<std::size_t>(operands.get_items_expected_max());
    const std::vector<std::string>& given = operands.results();
    return given.size() > most ? fmt::format(R"({} takes "{}"; "{}" is too many.)", command.get_name(),
                                             operands.get_type_name(), escape(given[most]))
                               : fmt::format("{} needs \"{}\".", command.get_name(), operands.get_type_name());
}

} // namespace

std::string usage_sentence(const CLI::Option& option, const CLI::Error& error)
{
    const std::string text = error.what();
    const std::string name = option.get_name();
    const std::string given = option.results().empty() ? "" : escape(option.results().back());
    if (option.get_items_expected_max() == 0) {
        return fmt::format("{} is a switch and takes no value \"{}\".", name, given);
    }
    if (text.find('"') != std::string::npos) {
        return text + '.'; // A check of ours has said it.
    }
    if (const std::size_t end = text.find(" unit not recognized"); end != std::string::npos) {
        const std::size_t start = text.find(": ") + 2;
        return fmt::format("{}: \"{}\" is no unit; write {}.", name, escape(text.substr(start, end - start)),
                           wanted(option));
    }
    const std::string range = range_in(text);
    return fmt::format("{}: \"{}\" is not {}.", name, given, range.empty() ? wanted(option) : range);
}

std::string usage_sentence(const CLI::App& command, const CLI::Error& error)
{
    const std::string text = error.what();
    if (const CLI::Option* const subject = find_subject(command, text); subject != nullptr) {
        if (subject->get_name() == "operands") {
            return fault_of_operands(command, *subject);
        }
        if (dynamic_cast<const CLI::ValidationError*>(&error) != nullptr ||
            dynamic_cast<const CLI::ConversionError*>(&error) != nullptr) {
            return usage_sentence(*subject, error);
        }
        if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) {
            return fmt::format("{} needs a value: {}.", subject->get_name(), wanted(*subject));
        }
    }
    if (const std::size_t verb = text.find(" excludes "); verb != std::string::npos) {
        return fmt::format("{} and {} cannot be used together.", text.substr(0, verb), text.substr(verb + 10));
    }
    if (const std::vector<std::string> unknown = command.remaining(); !unknown.empty()) {
        return fmt::format("{} takes no \"{}\".", command.get_name(), escape(unknown.front()));
    }
    return text.ends_with('.') ? text : text + '.';
}

} // namespace qrftp::cli
