/* Refusals of the laboratory, which say more than their status does. */
#pragma once

#include <string>

#include "host/core/base/errors.h"
#include "host/export.h"

namespace kestrel::host::lab {

class KESTREL_HOST_EXPORT Refusal : public StatusError {
 public:
  /** `why` is a sentence without a full stop, in UTF-8. */
  Refusal(int status, std::string why);
  ~Refusal() override;

  const char *what() const noexcept override { return why_.c_str(); }

 private:
  std::string why_;
};

}  // namespace kestrel::host::lab
