#include "allocation.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

/** A block of `head + width * count` bytes whose count field, at `count_offset`, holds `count`. The size is
    computed in 32-bit arithmetic that wraps; a block without room for the count is refused like a failed
    allocation. */
void *make_counted(std::uint32_t head, std::uint32_t width, int count, std::size_t count_offset) {
  const auto size = static_cast<std::int32_t>(head + width * static_cast<std::uint32_t>(count));
  if (size < static_cast<std::int32_t>(count_offset + sizeof count)) return nullptr;
  void *block = std::malloc(static_cast<std::size_t>(size));
  if (block) std::memcpy(static_cast<char *>(block) + count_offset, &count, sizeof count);
  return block;
}

}  // namespace

VSInfo *alloc_vs_info() {
  auto *info = static_cast<VSInfo *>(std::malloc(sizeof(VSInfo)));
  if (!info) std::fputs("malloc failed for VSInfo", stdout);
  return info;
}

void free_vs_info(VSInfo *info) { std::free(info); }

VSUplinkPorts *new_VSUplinkPorts(int n) {
  return static_cast<VSUplinkPorts *>(
      make_counted(sizeof(VSUplinkPorts), sizeof VSUplinkPorts{}.uplinkPortName[0], n, 0));
}

VSUplinkPortIds *new_VSUplinkPortIds(int n) {
  return static_cast<VSUplinkPortIds *>(
      make_counted(sizeof(VSUplinkPortIds), sizeof VSUplinkPortIds{}.uplinkPortId[0], n, 0));
}

VSUplinks *new_VSUplinks(int n) {
  return static_cast<VSUplinks *>(
      make_counted(sizeof(VSUplinks), sizeof(zel_Name), n, offsetof(VSUplinks, numEntries)));
}

VSRuntimeOptions *new_VSRuntimeOptions(int size) {
  return static_cast<VSRuntimeOptions *>(make_counted(0, 1, size, 0));
}
