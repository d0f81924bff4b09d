#pragma once

#include <CommandLine/Link.h>
#include <CommandLine/Machine.h>

#include <string>
#include <vector>

namespace tandrell {

/// Runs the program with these arguments (without the program's name) on the machine and returns
/// its exit status; see `ExitStatus`. Nothing is opened or sent before the arguments have been
/// found good. Called on the main thread; may be called again afterwards.
int runProgram(const std::vector<std::string>& arguments, Machine& machine,
               const LinkMaker& makeLink);

/// The levels of `--log-level`, from none to all.
const std::vector<std::string>& logLevels();

}  // namespace tandrell
