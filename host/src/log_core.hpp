#pragma once

namespace foundation::log {

/// The names of a record's attributes in the logging core.
namespace name {
inline constexpr const char* channel = "Channel";
inline constexpr const char* severity = "Severity";
inline constexpr const char* depth = "NestingDepth";
inline constexpr const char* file = "File";
inline constexpr const char* line = "Line";
} // namespace name

/// Adds the host's sink to the logging core, once. From then on the core's own default sink never prints.
void install_sink();

} // namespace foundation::log
