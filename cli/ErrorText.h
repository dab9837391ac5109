// The one line that vessa-storage writes on standard error for a failure that ended a command.
#pragma once

#include <exception>
#include <string>

namespace vessa::cli {

// What failed, in words: for a line of the listing tool that could not be read, its number and the
// line itself (cut to a readable length), then the reason; for an exception of the base library, its
// type and reason; otherwise what() of the exception. Texts come from machines and snapshots, so
// control characters are shown as "?": the result is one line and sends nothing to the terminal.
std::string errorText(const std::exception& e);
// `text` with its control characters shown as "?": a host name or reason that stays on one line.
std::string oneLine(const std::string& text);

}  // namespace vessa::cli
