/* Telling that something has changed, for what is derived from it. */
#pragma once

#include <cstdint>

#include "host/export.h"

namespace kestrel::host {

/** The revision of something, for what is derived from it: every change takes a number that nothing has had, and so
   does a copy, which lies elsewhere than what was derived may point. It is no part of what it stands for, so all
   revisions are equal. */
class KESTREL_HOST_EXPORT Revision {
 public:
  Revision() noexcept { Renew(); }
  Revision(const Revision & /*other*/) noexcept : Revision() {}
  // NOLINTNEXTLINE(bugprone-unhandled-self-assignment): an assignment is a change, whatever is assigned
  Revision &operator=(const Revision & /*other*/) noexcept {
    Renew();
    return *this;
  }
  ~Revision() = default;

  void Renew() noexcept;
  std::uint64_t number() const { return number_; }

  bool operator==(const Revision & /*other*/) const { return true; }

 private:
  std::uint64_t number_ = 0;
};

}  // namespace kestrel::host
