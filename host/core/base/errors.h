/* How operations of the model fail. */
#pragma once

#include <exception>
#include <stdexcept>
#include <string>
#include <utility>

#include "host/export.h"
#include "kestrel/constants.h"

namespace kestrel::host {

/** An operation was refused, for the reason that its status gives; nothing has changed. */
class KESTREL_HOST_EXPORT StatusError : public std::exception {
 public:
  /** `status` is a failure of constants.def. */
  explicit StatusError(int status) : status_(status) {}
  ~StatusError() override;

  int status() const { return status_; }
  const char *what() const noexcept override;

 private:
  int status_;
};

/** Throws StatusError unless a condition holds. */
inline void Require(bool condition, int status = ZEL_BAD_PARAM) {
  if (!condition) throw StatusError(status);
}

/** The model contradicts itself, so that no status would be honest. `what()` is the message, in UTF-8. */
class KESTREL_HOST_EXPORT FatalError : public std::runtime_error {
 public:
  /** `exception` names the interpreter's class that scripts see. */
  explicit FatalError(const std::string &message, std::string exception = "RuntimeError")
      : std::runtime_error(message), exception_(std::move(exception)) {}
  ~FatalError() override;

  const std::string &exception() const { return exception_; }

 private:
  std::string exception_;
};

}  // namespace kestrel::host
