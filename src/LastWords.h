// Why the process ends, when an exception ends it, written where the process's lines go.
#pragma once

namespace kps {

// Makes the run-time's last words ("terminate called after throwing an instance of ...") go to
// std::cerr, and so to [LogFile]'s file when it has the standard streams: the run-time writes
// them to C's stderr, which a scheduled task without a redirection sends nowhere.
void sayLastWordsOnTheLog();

}  // namespace kps
