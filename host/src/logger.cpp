#include "log_core.hpp"

#include <foundation/log/basic_diagnostic_logger.hpp>

#include <boost/log/attributes/attribute_value_set.hpp>
#include <boost/log/attributes/constant.hpp>
#include <boost/log/core.hpp>
#include <boost/log/sources/record_ostream.hpp>

#include <exception>
#include <mutex>
#include <unordered_map>
#include <utility>

namespace foundation::log {

namespace {

// Kept beside Boost's own switch, whose reading goes through a counted pointer to a lazily made core.
std::atomic<bool> core_switch{true};

std::atomic<std::uint64_t> next_logger{1};

// Set for good when the thread's depths are destroyed: objects that are destroyed later may still trace.
thread_local bool depths_gone = false;

struct depths {
    std::unordered_map<std::uint64_t, unsigned> by_logger;
    depths() = default;
    depths(const depths&) = delete;
    depths& operator=(const depths&) = delete;
    ~depths() { depths_gone = true; }
};

thread_local depths thread_depths;

} // namespace

struct basic_diagnostic_logger::implementation {
    explicit implementation(std::string name)
        : channel(std::move(name)), channel_attribute(channel), id(next_logger++)
    {
    }

    std::string channel;
    boost::log::attributes::constant<std::string> channel_attribute;
    std::uint64_t id;
    std::mutex opening;
};

basic_diagnostic_logger::basic_diagnostic_logger(std::string channel)
    : implementation_(std::make_unique<implementation>(std::move(channel)))
{
    install_sink();
}

basic_diagnostic_logger::~basic_diagnostic_logger() = default;

const std::string& basic_diagnostic_logger::channel() const noexcept
{
    return implementation_->channel;
}

bool basic_diagnostic_logger::core_enabled() noexcept
{
    return core_switch.load(std::memory_order_relaxed);
}

void basic_diagnostic_logger::enable_core(bool on)
{
    core_switch = on;
    boost::log::core::get()->set_logging_enabled(on);
}

unsigned basic_diagnostic_logger::nesting_depth() const noexcept
{
    if (depths_gone) {
        return 0;
    }
    const auto& all = thread_depths.by_logger;
    const auto found = all.find(implementation_->id);
    return found == all.end() ? 0 : found->second;
}

void basic_diagnostic_logger::raise_nesting_depth()
{
    if (!depths_gone) {
        ++thread_depths.by_logger[implementation_->id];
    }
}

void basic_diagnostic_logger::lower_nesting_depth() noexcept
{
    if (depths_gone) {
        return;
    }
    auto& all = thread_depths.by_logger;
    if (const auto found = all.find(implementation_->id); found != all.end() && --found->second == 0) {
        all.erase(found);
    }
}

struct record::implementation {
    explicit implementation(boost::log::record opened)
        : entry(std::move(opened)), uncaught(std::uncaught_exceptions())
    {
        // Without a record (the core was switched off) the stream stays detached and takes nothing.
        if (entry) {
            stream.attach_record(entry);
        }
    }

    boost::log::record entry;
    boost::log::record_ostream stream;
    int uncaught;
};

record::record(basic_diagnostic_logger& logger, level_mask level, std::source_location where)
    : record(logger, level, where.file_name(), where.line())
{
}

record::record(basic_diagnostic_logger& logger, level_mask level, const char* file, unsigned line)
{
    namespace attributes = boost::log::attributes;
    auto& source = *logger.implementation_;
    const unsigned depth = logger.nesting_depth();
    const std::lock_guard lock(source.opening);
    boost::log::attribute_set set;
    set[name::channel] = source.channel_attribute;
    set[name::severity] = attributes::constant<level_mask>(level);
    set[name::depth] = attributes::constant<unsigned>(depth);
    set[name::file] = attributes::constant<std::string>(file);
    set[name::line] = attributes::constant<unsigned>(line);
    implementation_ = std::make_unique<implementation>(boost::log::core::get()->open_record(set));
}

record::~record()
{
    auto& [entry, stream, uncaught] = *implementation_;
    if (!entry || std::uncaught_exceptions() > uncaught) {
        return;
    }
    try {
        stream.flush();
        stream.detach_from_record();
        boost::log::core::get()->push_record(std::move(entry));
    } catch (...) { // NOLINT(bugprone-empty-catch): a failure to log must not end what was being logged
    }
}

std::ostream& record::stream()
{
    return implementation_->stream.stream();
}

} // namespace foundation::log
