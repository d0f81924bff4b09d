#pragma once

#include <Hosts/System/SqliteUserDefaults.h>
#include <TandrellCore/Platform/Result.h>

#include <sqlite3.h>

#include <memory>
#include <string>
#include <string_view>

namespace tandrell {

/// Closed with its last handle.
using SqliteConnection = std::shared_ptr<sqlite3>;

struct FinalizeStatement {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using SqliteStatement = std::unique_ptr<sqlite3_stmt, FinalizeStatement>;

/// An error whose text is the given one instead of the name of its case.
Error makeError(UserDefaultsError kind, std::string text);

/// Why the last call on this connection failed; `errno` was 0 before it. A disk with no room is
/// told in one way, whichever call meets it.
std::string causeOf(sqlite3* connection);

/// Opens the file, made where it is missing, sees that it is a store, checks that it is sound, and
/// prepares it: write-ahead log, full synchronisation, the table `entries(key, value)`. Fails with
/// `cannotOpen`, or with `damaged` after it has moved the file aside. What is not a store of ours
/// is left as it is. Not for concurrent use of one connection.
Result<SqliteConnection> openConnection(const std::string& path);

/// Compiles a statement. Empty on failure; `causeOf` tells why.
SqliteStatement prepare(sqlite3* connection, std::string_view sql);

}  // namespace tandrell
