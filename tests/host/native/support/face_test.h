/* Testing the C functions over a host that the test knows. */
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <string>

#include "host/core/process_host.h"
#include "tests/host/native/support/test_host.h"

namespace kestrel::host {

/** The C functions answer from MakeTestHost's host. */
class FaceTest : public testing::Test {
 protected:
  FaceTest() { BeginAnew(); }
  ~FaceTest() override { InstallProcessHost(nullptr); }

  /** With a host as it was at first. */
  void BeginAnew() {
    auto made = MakeTestHost();
    host_ = made.get();
    InstallProcessHost(std::move(made));
  }

  Host &host() { return *host_; }

 private:
  Host *host_;
};

struct FreeRecord {
  void operator()(void *record) const { std::free(record); }
};

/** A record that a function handed out. */
template <typename Record>
using Owned = std::unique_ptr<Record, FreeRecord>;

/** What a cell holds before a call, so that a call that leaves it alone is seen. */
template <typename Record>
Record *Stale() {
  return reinterpret_cast<Record *>(0x5a5a);
}

/** A field of fixed width, as text and with all that follows its end. */
template <typename Byte, std::size_t width>
std::string Bytes(const Byte (&field)[width]) {
  return {reinterpret_cast<const char *>(field), width};
}

/** The bytes that a field of `width` holds for `text`. */
inline std::string Padded(std::string text, std::size_t width) {
  text.resize(width, '\0');
  return text;
}

}  // namespace kestrel::host
