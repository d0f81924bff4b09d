#include "FileUserDefaults.h"
#include "PropertyListText.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <utility>

using tandrell::Error;
using tandrell::PropertyList;

namespace {

Error failure(FileUserDefaultsError kind, const std::string& path, std::string_view reason) {
  return {"FileUserDefaultsError", static_cast<int>(kind), fmt::format("{}: {}", path, reason)};
}

/// An open file or folder; closed at its end.
class Descriptor {
 public:
  Descriptor(const std::string& path, int flags)
      : number_(::open(path.c_str(), flags | O_CLOEXEC, S_IRUSR | S_IWUSR)) {}
  ~Descriptor() {
    if (isOpen()) ::close(number_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  bool isOpen() const { return number_ >= 0; }
  bool lock() const { return ::flock(number_, LOCK_EX | LOCK_NB) == 0; }
  bool sync() const { return ::fsync(number_) == 0; }
  bool write(std::string_view text) const {
    while (!text.empty()) {
      const auto written = ::write(number_, text.data(), text.size());
      if (written < 0 && errno != EINTR) return false;
      if (written > 0) text.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
  }

 private:
  const int number_;
};

bool writeNew(const std::string& path, std::string_view text) {
  const Descriptor file(path, O_WRONLY | O_CREAT | O_TRUNC);
  return file.isOpen() && file.write(text) && file.sync();
}

/// The name is on the disk once its folder is.
bool syncFolder(const std::string& path) {
  const auto parent = std::filesystem::path(path).parent_path();
  const Descriptor folder(parent.empty() ? "." : parent.string(), O_RDONLY | O_DIRECTORY);
  return folder.isOpen() && folder.sync();
}

/// Old or new, whatever happens. On failure `errno` says why.
bool replaceFile(const std::string& path, std::string_view text) {
  const std::string beside = path + ".new";
  return writeNew(beside, text) && std::rename(beside.c_str(), path.c_str()) == 0 &&
         syncFolder(path);
}

}  // namespace

tandrell::Result<std::shared_ptr<FileUserDefaults>> FileUserDefaults::open(const std::string& path,
                                                                           ErrorHandler onError) {
  using Outcome = tandrell::Result<std::shared_ptr<FileUserDefaults>>;
  std::optional<Entries> entries = Entries();
  if (std::filesystem::exists(path)) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
      const auto reason = std::generic_category().message(errno);
      return Outcome::error(failure(FileUserDefaultsError::cannotRead, path, reason));
    }
    entries = parse(file);
  }
  if (!entries) {
    return Outcome::error(
        failure(FileUserDefaultsError::damaged, path, "a line is not one of an entry"));
  }
  return Outcome::success(std::shared_ptr<FileUserDefaults>(
      new FileUserDefaults(path, std::move(*entries), std::move(onError))));
}

/// A line: the key as a word, a blank, the value.
std::optional<FileUserDefaults::Entries> FileUserDefaults::parse(std::istream& file) {
  Entries entries;
  for (std::string line; std::getline(file, line);) {
    const auto blank = std::min(line.find(' '), line.size());
    auto key = fromWord(std::string_view(line).substr(0, blank));
    auto value = fromText(line.substr(blank));
    if (!key || !value) return std::nullopt;
    entries.insert_or_assign(std::move(*key), std::move(*value));
  }
  return entries;
}

FileUserDefaults::FileUserDefaults(std::string path, Entries entries, ErrorHandler onError)
    : path_(std::move(path)), onError_(std::move(onError)), entries_(std::move(entries)) {}

void FileUserDefaults::setObject(const PropertyList& object, std::string_view key) {
  if (object.isDeeperThan(PropertyList::maximumDepth)) {  // it could not be read again
    const auto error = failure(FileUserDefaultsError::cannotWrite, path_, "nested too deep");
    state_.didChange(key, error);
    return onError_(error);
  }
  change(key, [&](Entries& entries) { entries.insert_or_assign(std::string(key), object); });
}

std::optional<PropertyList> FileUserDefaults::object(std::string_view key) const {
  const std::lock_guard lock(mutex_);
  const auto entry = entries_.find(key);
  return entry == entries_.end() ? std::nullopt : std::optional(entry->second);
}

void FileUserDefaults::removeObject(std::string_view key) {
  change(key, [&](Entries& entries) {
    const auto entry = entries.find(key);
    if (entry != entries.end()) entries.erase(entry);
  });
}

void FileUserDefaults::change(std::string_view key, const std::function<void(Entries&)>& make) {
  std::optional<Error> error;
  {
    const std::lock_guard lock(mutex_);
    Entries changed = entries_;
    make(changed);
    std::string text;
    for (const auto& [name, value] : changed) text += toWord(name) + ' ' + toText(value) + '\n';
    if (replaceFile(path_, text)) {
      entries_.swap(changed);
    } else {
      const auto reason = std::generic_category().message(errno);
      error = failure(FileUserDefaultsError::cannotWrite, path_, reason);
    }
    state_.didChange(key, error);
  }
  if (error) onError_(*error);
}

tandrell::Result<tandrell::Claim> FileUserDefaults::claim(std::string_view name) {
  using Outcome = tandrell::Result<tandrell::Claim>;
  using tandrell::ClaimError;
  const auto refusal = [&](ClaimError kind, std::string_view text) {
    return Outcome::error({std::string(errorDomain(kind)), static_cast<int>(kind),
                           fmt::format("{}: {} {}", path_, name, text)});
  };
  const auto path = path_ + ".lock";
  const auto file = std::make_shared<const Descriptor>(path, O_RDWR | O_CREAT);
  if (!file->isOpen()) return refusal(ClaimError::cannotClaim, "cannot be claimed");
  if (!file->lock()) {
    std::string holder;
    std::getline(std::ifstream(path), holder);
    return refusal(ClaimError::held, "is held by " + holder);
  }
  file->write(fmt::format("process {:<10}\n", ::getpid()));  // as long as the one before
  return Outcome::success(file);
}
