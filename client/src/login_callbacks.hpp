#pragma once

#include <qrftp/options.hpp>

namespace qrftp {

constexpr unsigned most_questions = 3; ///< for one secret, as ssh_config(5), NumberOfPasswordPrompts
constexpr const char* wrong_pass_phrase = "the pass phrase is wrong";
constexpr const char* no_pass_phrase = "it needs a pass phrase, and none was given";

/// Makes the callbacks of a login fit for all connections of a session: they are called one at a time,
/// whichever connection needs them, and a password or pass phrase that was asked for once is not asked for
/// again, unless it was wrong.
void share_callbacks(session_options& options);

} // namespace qrftp
