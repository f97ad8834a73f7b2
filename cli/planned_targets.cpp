#include "planned_targets.hpp"

#include "settings.hpp"

#include <qrftp/trace.hpp>

#include <fmt/format.h>

namespace qrftp::cli {

void planned_targets::add(const std::string& target, const std::string& source)
{
    const auto [first, is_new] = sources_.emplace(target, source);
    if (!is_new) {
        throw usage_error(fmt::format(R"("{}" and "{}" would both become "{}"; nothing was copied.)",
                                      escape(first->second), escape(source), escape(target)));
    }
}

} // namespace qrftp::cli
