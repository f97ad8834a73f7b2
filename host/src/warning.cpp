#include <foundation/core/except/Catalogue.hpp>
#include <zx/warning.hpp>

#include <cstdio>
#include <mutex>
#include <utility>

namespace {

using foundation::core::except::Catalogue;
using foundation::core::except::Message;

void print(const Message& warning)
{
    const std::string line = "Warning: " + Catalogue::instance().render(warning) + '\n';
    // Nobody is left to tell when standard error is gone.
    (void)std::fwrite(line.data(), 1, line.size(), stderr);
}

std::mutex handler_mutex;

zxWarningHandler& handler_in_place()
{
    static zxWarningHandler handler;
    return handler;
}

} // namespace

void zxWarningMsgId(const std::string& component, const std::string& key)
{
    zxWarningHandler handler;
    {
        const std::lock_guard lock(handler_mutex);
        handler = handler_in_place();
    }
    const Message warning{component, key, {}};
    handler ? handler(warning) : print(warning);
}

zxWarningHandler zxSetWarningHandler(zxWarningHandler handler)
{
    const std::lock_guard lock(handler_mutex);
    return std::exchange(handler_in_place(), std::move(handler));
}
