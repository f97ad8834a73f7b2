#include "log_core.hpp"
#include "masking.hpp"

#include <foundation/log/sink.hpp>
#include <foundation/text/escape.hpp>

#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core.hpp>
#include <boost/log/expressions/message.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/unlocked_frontend.hpp>
#include <boost/make_shared.hpp>

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <utility>
#include <vector>

namespace foundation::log {

namespace {

std::string_view level_name(level_mask level)
{
    switch (level) {
    case 1:
        return "data";
    case 4:
        return "detail";
    case 8:
        return "info";
    case 32:
        return "enter";
    case 64:
        return "leave";
    case 128:
        return "value";
    case 256:
        return "unknown";
    default:
        return "record";
    }
}

void print(const entry& entry)
{
    std::string_view text = entry.text;
    text = text.substr(0, text.find_last_not_of("\r\n") + 1);
    std::string line(level_name(entry.level));
    line.resize(8, ' ');
    line.append(text::escape(entry.channel)).append(": ");
    line.append(std::size_t{2} * entry.nesting_depth, ' ').append(text::escape(text)) += '\n';
    // Nobody is left to tell when standard error is gone.
    (void)std::fwrite(line.data(), 1, line.size(), stderr);
}

/// What the sink does with records. Recursive, for a handler may set another handler or name a secret.
struct settings {
    std::recursive_mutex mutex;
    std::shared_ptr<const entry_handler> handler = std::make_shared<entry_handler>(print);
    std::vector<std::string> secrets;
    bool masking = true;
    bool handling = false;
};

settings& in_place()
{
    // Never destroyed: records may still be written while the process ends.
    static auto* const only = new settings;
    return *only;
}

class backend : public boost::log::sinks::basic_sink_backend<boost::log::sinks::concurrent_feeding> {
public:
    static void consume(const boost::log::record_view& record)
    {
        auto& settings = in_place();
        const std::lock_guard lock(settings.mutex);
        if (settings.handling) {
            return; // a record that the handler itself wrote would call it without end
        }
        settings.handling = true;
        try {
            const auto handler = settings.handler; // outlives a change made by itself
            deliver(record, settings, *handler);
        } catch (...) { // NOLINT(bugprone-empty-catch): the record is lost, as promised; the program goes on
        }
        settings.handling = false;
    }

private:
    static void deliver(const boost::log::record_view& record, const settings& settings,
                        const entry_handler& handler)
    {
        using boost::log::extract_or_default;
        static const std::string none;
        const std::string message =
            extract_or_default<std::string>(boost::log::expressions::tag::message::get_name(), record, none);
        const std::string text = settings.masking ? mask(message, settings.secrets) : message;
        handler({.level = extract_or_default<level_mask>(name::severity, record, level_mask{0}),
                 .channel = extract_or_default<std::string>(name::channel, record, none),
                 .nesting_depth = extract_or_default<unsigned>(name::depth, record, 0U),
                 .file = extract_or_default<std::string>(name::file, record, none),
                 .line = extract_or_default<unsigned>(name::line, record, 0U),
                 .text = text});
    }
};

} // namespace

void install_sink()
{
    static const bool installed = [] {
        using frontend = boost::log::sinks::unlocked_sink<backend>;
        boost::log::core::get()->add_sink(boost::make_shared<frontend>(boost::make_shared<backend>()));
        return true;
    }();
    (void)installed;
}

entry_handler set_entry_handler(entry_handler handler)
{
    install_sink();
    auto next = std::make_shared<const entry_handler>(handler ? std::move(handler) : entry_handler(print));
    auto& settings = in_place();
    const std::lock_guard lock(settings.mutex);
    return *std::exchange(settings.handler, std::move(next));
}

void mask_secret(std::string secret)
{
    if (secret.empty()) {
        return;
    }
    auto& settings = in_place();
    const std::lock_guard lock(settings.mutex);
    auto& all = settings.secrets;
    if (std::find(all.begin(), all.end(), secret) != all.end()) {
        return;
    }
    // Longest first: a secret that holds another one must not be left with a readable rest.
    const auto place = std::find_if(all.begin(), all.end(),
                                    [&](const std::string& other) { return other.size() < secret.size(); });
    all.insert(place, std::move(secret));
}

void enable_masking(bool on)
{
    auto& settings = in_place();
    const std::lock_guard lock(settings.mutex);
    settings.masking = on;
}

std::string masked(std::string_view text)
{
    auto& settings = in_place();
    const std::lock_guard lock(settings.mutex);
    return mask(text, settings.secrets);
}

} // namespace foundation::log
