#pragma once

#include <TandrellCore/Platform/UserDefaults.h>

#include <string>
#include <string_view>

namespace tandrell {

/// Claims a name for what is kept in a file, by a lock on a file beside it: the path, a full stop,
/// the name and ".lock". The system gives the lock free with the claim or with the process. The
/// file stays, and tells whoever comes second which process has the lock. Every call asks anew, so
/// that two claims of one process exclude each other too.
Result<Claim> claimBeside(const std::string& path, std::string_view name);

}  // namespace tandrell
