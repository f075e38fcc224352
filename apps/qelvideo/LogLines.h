#pragma once

namespace qelvideo {

class Terminal;

/// Has the library's log lines printed on standard error, each with its level. The terminal outlives
/// the process's use of the library.
void showLogLines(Terminal& terminal);

}  // namespace qelvideo
