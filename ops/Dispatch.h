// The operator's commands (--check, --test-page, ...): a room above the service. The entry
// point hands them every command line with arguments.
#pragma once

namespace kps {

// The exit code of the command the arguments name; the usage and 2 for anything else.
int runOperatorCommand(int argc, char** argv);

}  // namespace kps
