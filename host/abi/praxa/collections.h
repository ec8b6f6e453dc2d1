/* Collections of properties: what callers build or are given outside of any switch. They belong to the process. */
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <memory_resource>
#include <string>
#include <string_view>

#include "host/core/properties/property.h"
#include "kestrel/state_store.h"

namespace kestrel::host::abi {

/** Memory from a caller's functions. */
class CallersMemory : public std::pmr::memory_resource {
 public:
  CallersMemory(DVSData_MemAlloc allocate, DVSData_MemFree release) : allocate_(allocate), release_(release) {}

 private:
  /** Throws std::bad_alloc where the caller has none. */
  void *do_allocate(std::size_t size, std::size_t alignment) override;
  void do_deallocate(void *memory, std::size_t size, std::size_t alignment) override;
  bool do_is_equal(const std::pmr::memory_resource &other) const noexcept override { return this == &other; }

  DVSData_MemAlloc allocate_;
  DVSData_MemFree release_;
};

/** Properties in a caller's memory. */
class Collection {
 public:
  Collection(DVSData_MemAlloc allocate, DVSData_MemFree release) : memory_(allocate, release), properties_(&memory_) {}
  Collection(const Collection &) = delete;
  Collection &operator=(const Collection &) = delete;

  /** Puts a property in, or replaces it. Throws StatusError ZEL_INVALID_NAME, ZEL_NAME_TOO_LONG and
      ZEL_LIMIT_EXCEEDED as a switch would, ZEL_BAD_PARAM for an unknown type. */
  void Update(std::string_view key, std::string_view value, std::uint32_t type);
  /** A copy. */
  PropertySet Properties() const;

 private:
  struct Item {
    std::pmr::string value;
    std::uint32_t type;
  };

  CallersMemory memory_;
  std::pmr::map<std::pmr::string, Item, std::less<>> properties_;
};

/** Takes a collection in and gives its handle, which is a number in the shape of a pointer and is not used again. */
DVSDataHandle KeepCollection(std::unique_ptr<Collection> collection);
/** Throws StatusError ZEL_INVALID_HANDLE. */
Collection &CollectionOf(DVSDataHandle handle);
/** No effect for what is no handle of one. */
void DropCollection(DVSDataHandle handle) noexcept;

}  // namespace kestrel::host::abi
