#include "runtime_options.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>

const char *runtimeOptionNames[] = {
    "IGMPQueryInterval",
    "IGMPV3MaxSrcIPNum",
    "IGMPQueries",
    "IGMPVersion",
    "MLDVersion",
    "MLDV2MaxSrcIPNum",
    "MaxRARPsPerInterval",
    "RARPAdvertisementDuration",
    "ReversePathFwdCheck",
    "ReversePathFwdCheckPromisc",
    "AllowFastPath",
    "TeamPolicyUpDelay",
    "AllowMirrorStats",
    "TeamingNUMAAware",
    "SendIGMPReportToUplink",
    "IGMPRouterIP",
    "MLDRouterIP",
};

static_assert(std::size(runtimeOptionNames) == VS_NUM_RT_OPT);

namespace {

/** The place `distance` bytes behind a record. */
VSRuntimeOptionHeader *behind(void *start, std::size_t distance) {
  return reinterpret_cast<VSRuntimeOptionHeader *>(static_cast<char *>(start) + distance);
}

/** Whether a place lies strictly below the end of a list. Compared as numbers: the two need not be one object's. */
bool below_end(const void *place, const VSRuntimeOptions *options) {
  return reinterpret_cast<std::uintptr_t>(place) < reinterpret_cast<std::uintptr_t>(options) + options->totalLength;
}

/** Writes an entry of `length` bytes if it ends strictly below the list's end. */
VSRuntimeOptionHeader *add_option(VSRuntimeOptions *options, VSRuntimeOptionHeader *entry, int type,
                                  std::uint16_t length, const void *value, std::size_t size) {
  if (!entry) return nullptr;
  VSRuntimeOptionHeader *next = behind(entry, length);
  if (!below_end(next, options)) return nullptr;
  entry->type = static_cast<zel_uint16>(type);
  entry->length = length;
  std::memcpy(entry->data, value, size);
  return next;
}

}  // namespace

int get_runtime_option_type_from_name(char *name) {
  if (!name) return -1;
  const auto *found = std::find_if(std::begin(runtimeOptionNames), std::end(runtimeOptionNames),
                                   [name](const char *known) { return std::strcmp(name, known) == 0; });
  return found == std::end(runtimeOptionNames) ? -1 : static_cast<int>(found - std::begin(runtimeOptionNames));
}

void VSRuntimeOptions_set_options_length(VSRuntimeOptions *options, int length) {
  options->totalLength = static_cast<zel_uint32>(length) + sizeof(VSRuntimeOptions);
}

VSRuntimeOptionHeader *VSRuntimeOptions_get_first_option(VSRuntimeOptions *options) {
  return behind(options, sizeof(VSRuntimeOptions));
}

VSRuntimeOptionHeader *VSRuntimeOptions_get_next_option(VSRuntimeOptions *options, VSRuntimeOptionHeader *entry) {
  if (!entry) return nullptr;
  VSRuntimeOptionHeader *next = behind(entry, entry->length);
  return below_end(next, options) ? next : nullptr;
}

VSRuntimeOptionHeader *VSRuntimeOptions_add_int_option(VSRuntimeOptions *options, VSRuntimeOptionHeader *entry,
                                                       char * /*name*/, int type, int value) {
  return add_option(options, entry, type, sizeof(VSRuntimeOptionHeader) + sizeof value, &value, sizeof value);
}

VSRuntimeOptionHeader *VSRuntimeOptions_add_str_option(VSRuntimeOptions *options, VSRuntimeOptionHeader *entry,
                                                       char * /*name*/, int type, char *value) {
  const std::size_t size = value ? std::strlen(value) + 1 : 0;
  if (size == 0 || size > VS_CHARDEV_MAX_RUNTIME_STRING_OPTION_LENGTH) return nullptr;
  const auto length = static_cast<std::uint16_t>(sizeof(VSRuntimeOptionHeader) + size);
  return add_option(options, entry, type, length, value, size);
}

const char *VSRuntimeOptionHeader_get_option_name(VSRuntimeOptionHeader *entry) {
  return entry->type < VS_NUM_RT_OPT ? runtimeOptionNames[entry->type] : nullptr;
}

kestrel_OptionValue VSRuntimeOptionHeader_get_option_value(VSRuntimeOptionHeader *entry) {
  if (entry->type >= NUM_RUNTIME_INT_OPTIONS) return {reinterpret_cast<const char *>(entry->data), 0};
  zel_uint32 number;
  std::memcpy(&number, entry->data, sizeof number);
  return {nullptr, number};
}
