/* A place for the files of a test. */
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace kestrel::host {

/** A folder of its own for a test, gone with it. */
class TestFolder {
 public:
  TestFolder() {
    // In memory where there is such a place: the tests make thousands of changes, and a disk takes its time for each.
    const std::filesystem::path memory = "/dev/shm";
    const bool has_memory = access(memory.c_str(), W_OK) == 0;
    std::string name = (has_memory ? memory : std::filesystem::temp_directory_path()) / "kestrel-test-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no folder for a test");
    path_ = name;
  }
  ~TestFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TestFolder(const TestFolder &) = delete;
  TestFolder &operator=(const TestFolder &) = delete;

  std::string File(const char *name = "host") const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

}  // namespace kestrel::host
