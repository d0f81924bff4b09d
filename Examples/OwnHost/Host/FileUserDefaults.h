#pragma once

#include <TandrellCore/Async/RecordingState.h>
#include <TandrellCore/Platform/Result.h>
#include <TandrellCore/Platform/UserDefaults.h>

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

/// What can go wrong with the file. The error's text names it and says what the system said.
enum class FileUserDefaultsError { cannotRead, damaged, cannotWrite };

/// Preferences in a plain text file, a line for each entry, for its owner's eyes only. Every change
/// writes the whole file anew beside the old one, onto the disk, and then takes its name: whenever
/// the power goes, the file is the old one or the new one. Good for what a small application keeps.
///
/// Safe from any thread, but one object and one process at a time for a file: the link keeps to
/// that by its claim, a lock on the path plus ".lock" that goes with its process. The file is read
/// when the store is opened, and what another one has written meanwhile is not seen.
class FileUserDefaults final : public tandrell::UserDefaults {
 public:
  using ErrorHandler = std::function<void(const tandrell::Error&)>;

  /// Reads the file; one that is missing is an empty store. Fails with `cannotRead` or `damaged`.
  /// The handler is called with every change that cannot be made (`cannotWrite`), on the thread
  /// whose call failed, under no lock; the old entry stays.
  static tandrell::Result<std::shared_ptr<FileUserDefaults>> open(const std::string& path,
                                                                  ErrorHandler onError);

  void setObject(const tandrell::PropertyList& object, std::string_view key) override;
  std::optional<tandrell::PropertyList> object(std::string_view key) const override;
  void removeObject(std::string_view key) override;
  std::optional<tandrell::Error> problem() const override { return state_.problem(); }
  /// One for the whole file, whatever the name.
  tandrell::Result<tandrell::Claim> claim(std::string_view name) override;

 private:
  using Entries = std::map<std::string, tandrell::PropertyList, std::less<>>;

  FileUserDefaults(std::string path, Entries entries, ErrorHandler onError);
  static std::optional<Entries> parse(std::istream& file);
  void change(std::string_view key, const std::function<void(Entries&)>& make);

  const std::string path_;
  const ErrorHandler onError_;
  tandrell::RecordingState state_;
  mutable std::mutex mutex_;
  Entries entries_;  // as they stand in the file
};
