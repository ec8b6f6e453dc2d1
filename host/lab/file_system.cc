#include "host/lab/file_system.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "host/lab/refusal.h"
#include "kestrel/constants.h"

namespace kestrel::host::lab {
namespace {

int StatusOfError(int error, int otherwise) {
  switch (error) {
    case ENOENT:
      return ZEL_NOT_FOUND;
    case EACCES:
    case EPERM:
    case EROFS:
      return ZEL_NO_PERMISSION;
    case EISDIR:
      return ZEL_IS_A_DIRECTORY;
    case ENOTDIR:
      return ZEL_NOT_A_DIRECTORY;
    case ENOSPC:
    case EDQUOT:
      return ZEL_NO_SPACE;
    default:
      return otherwise;
  }
}

[[noreturn]] void Refuse(const std::string &path, int error, int otherwise) {
  throw Refusal(StatusOfError(error, otherwise), path + ": " + std::generic_category().message(error));
}

/** An open file, closed in the end. */
class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() {
    if (number_ >= 0) close(number_);
  }
  Descriptor(const Descriptor &) = delete;
  Descriptor &operator=(const Descriptor &) = delete;

  int number() const { return number_; }

 private:
  int number_;
};

}  // namespace

std::string ReadFile(const std::string &path) {
  // A pipe that nobody writes to must not hold the call up.
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (file.number() < 0) Refuse(path, errno, ZEL_READ_ERROR);
  struct stat about;
  if (fstat(file.number(), &about) != 0) Refuse(path, errno, ZEL_READ_ERROR);
  if (S_ISDIR(about.st_mode)) Refuse(path, EISDIR, ZEL_READ_ERROR);
  if (!S_ISREG(about.st_mode)) throw Refusal(ZEL_NOT_SUPPORTED, path + " is no regular file");
  if (static_cast<std::size_t>(about.st_size) > kMaxFileSize) {
    throw Refusal(ZEL_LIMIT_EXCEEDED, path + " is longer than 1 GiB");
  }
  std::string bytes(static_cast<std::size_t>(about.st_size), '\0');
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t count = read(file.number(), bytes.data() + done, bytes.size() - done);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) Refuse(path, errno, ZEL_READ_ERROR);
    if (count == 0) break;  // it got shorter in the meantime
    done += static_cast<std::size_t>(count);
  }
  bytes.resize(done);
  return bytes;
}

void WriteFile(const std::string &path, std::string_view bytes) {
  const Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
  if (file.number() < 0) Refuse(path, errno, ZEL_WRITE_ERROR);
  const auto give_up = [&path, &file] {
    const int error = errno;
    // A device that is written to is no file of ours, and stays.
    struct stat about;
    if (fstat(file.number(), &about) == 0 && S_ISREG(about.st_mode)) unlink(path.c_str());
    Refuse(path, error, ZEL_WRITE_ERROR);
  };
  while (!bytes.empty()) {
    const ssize_t count = write(file.number(), bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) give_up();
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
}

}  // namespace kestrel::host::lab
