#pragma once

#include <foundation/log/basic_diagnostic_logger.hpp>
#include <qrftpcore_export.hpp>

namespace zorbel::io::ftp::core {

/// The library's levels, single bits of the logger's enable mask.
namespace level {
inline constexpr foundation::log::level_mask data = 1;      ///< bytes of the data connection
inline constexpr foundation::log::level_mask message = 4;   ///< protocol dialogue, operations' texts
inline constexpr foundation::log::level_mask info = 8;      ///< libcurl's and operations' information
inline constexpr foundation::log::level_mask entry = 32;    ///< a function was entered
inline constexpr foundation::log::level_mask exit = 64;     ///< a function was left
inline constexpr foundation::log::level_mask value = 128;   ///< a traced value of a function that was left
inline constexpr foundation::log::level_mask unknown = 256; ///< libcurl trace of an unknown kind
} // namespace level

/// The library's one logger, channel "zorbel::io::ftp::core": made on first use, destroyed at process exit,
/// shared by all threads. Its enable mask starts at 0.
///
/// A function that was entered while level 32 was enabled writes its value and exit records (128 and 64) when
/// it is left, whatever the mask says then.
QRFTPCORE_EXPORT foundation::log::basic_diagnostic_logger& getLogger();

} // namespace zorbel::io::ftp::core
