#pragma once

#include <TandrellCore/Async/RecordingState.h>
#include <TandrellCore/Platform/Error.h>
#include <TandrellCore/Platform/Export.h>
#include <TandrellCore/Platform/Result.h>
#include <TandrellCore/Platform/UserDefaults.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tandrell {

/// What can go wrong with a user-defaults store. The texts name the file, and the key where there
/// is one, and end with the cause.
enum class UserDefaultsError {
  cannotOpen,    ///< missing rights, no room, not a place for a file, not a store of ours, ...
  damaged,       ///< a store that is no database any more, or one that contradicts itself
  changeFailed,  ///< the old entry is still there
  readFailed,
  undecodable,  ///< an entry whose bytes make no sense; reads as missing
};
constexpr std::string_view errorDomain(UserDefaultsError) { return "UserDefaultsError"; }
TANDRELL_API std::string_view errorText(UserDefaultsError error);

/// User defaults in a SQLite file: one transaction per change, on the disk when the call returns.
/// Safe from any thread, and for several handles and processes on one file: a change waits up to
/// five seconds for another one. The file and what SQLite puts beside it (`-wal`, `-shm`) can be
/// read and written by their owner only.
///
/// Reads and changes report their failures to the error handler, for the calls themselves return
/// no error. An entry that cannot be read is missing to its reader; a failed change leaves the old
/// entry.
class TANDRELL_API SqliteUserDefaults final : public UserDefaults {
 public:
  using ErrorHandler = std::function<void(const Error&)>;

  /// Opens the store, making the file and the folders above it (owner only) where they are missing.
  /// Fails with `cannotOpen` or `damaged`. A damaged file is first moved aside, with its log, to
  /// the path plus ".damaged-" and the first number that is free, and the error's text says where:
  /// opening once more then starts an empty store. What is neither a store nor an empty file stays
  /// as it is, mode included: a directory, another program's database, a file of any other kind. A
  /// store has a small file beside it, the path plus ".mark", by which it is known when damaged.
  static Result<std::shared_ptr<SqliteUserDefaults>> open(const std::string& path);
  ~SqliteUserDefaults() override;

  void setObject(const PropertyList& object, std::string_view key) override;
  std::optional<PropertyList> object(std::string_view key) const override;
  void removeObject(std::string_view key) override;

  /// Present from the first change that fails until every entry that failed has been changed again;
  /// the text says why, on a full disk always with "full".
  std::optional<Error> problem() const override;
  /// The same to observe, on the thread whose call changes the store.
  ObservableValue<std::optional<Error>>& observableProblem();

  /// By a lock on a file beside the store, the path plus the name and ".lock": a crash gives it
  /// free. Two objects are two holders, in one process too. The error names the holder's process.
  Result<Claim> claim(std::string_view name) override;

  /// Called with every failure after opening, on the thread whose call failed, under no lock. At
  /// first a handler that prints one line on the standard error stream; an empty one is silence.
  void setErrorHandler(ErrorHandler handler);

 private:
  struct Store;
  explicit SqliteUserDefaults(std::unique_ptr<Store> store);
  void report(const std::optional<Error>& error) const;

  const std::unique_ptr<Store> store_;
};

}  // namespace tandrell
