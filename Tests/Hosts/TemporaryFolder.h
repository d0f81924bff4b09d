#pragma once

#include <TandrellCore/Platform/Error.h>

#include <stdlib.h>

#include <filesystem>
#include <string>

namespace tandrell {

/// An empty folder of its own for a test; goes with what is in it.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "tandrell-XXXXXX").string();
    if (!::mkdtemp(name.data())) fatalError("TemporaryFolder: cannot be made: " + name);
    path_ = name;
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

}  // namespace tandrell
