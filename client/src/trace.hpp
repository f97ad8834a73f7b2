#pragma once

#include <qrftp/trace.hpp>

#include <string_view>

namespace qrftp {

/// Whether lines of `level` are wanted. Costs a load where they are not.
[[nodiscard]] bool is_traced(trace_level level) noexcept;

/// Writes one line of the trace, without a line end, its secrets masked. What the receiver throws is lost.
void trace_line(std::string_view line) noexcept;

} // namespace qrftp
