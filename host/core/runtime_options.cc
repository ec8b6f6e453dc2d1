#include "host/core/runtime_options.h"

#include <arpa/inet.h>

#include <utility>

#include "host/core/base/errors.h"
#include "host/core/base/record_bytes.h"
#include "kestrel/constants.h"

namespace kestrel::host {
namespace {

struct NumberOption {
  std::uint32_t least;
  std::uint32_t most;
  std::uint32_t standard;
};

constexpr NumberOption kFlagOn{0, 1, 1};
constexpr NumberOption kFlagOff{0, 1, 0};

/** By code. Intervals and durations are in seconds, delays in milliseconds. */
constexpr auto kNumbers = [] {
  std::array<NumberOption, NUM_RUNTIME_INT_OPTIONS> options{};
  options[VS_RT_OPT_IGMP_QUERY_INTERVAL] = {1, 31744, 125};  // as far as a query's code for it reaches
  options[VS_RT_OPT_IGMP_V3_MAX_SRC_IP_NUM] = {1, 128, 10};
  options[VS_RT_OPT_IGMP_QUERIES] = {1, 10, 2};
  options[VS_RT_OPT_IGMP_VERSION] = {1, 3, 3};
  options[VS_RT_OPT_MLD_VERSION] = {1, 2, 2};
  options[VS_RT_OPT_MLD_V2_MAX_SRC_IP_NUM] = {1, 128, 10};
  options[VS_RT_OPT_MAX_RARPS_PER_INTERVAL] = {1, 65535, 128};
  options[VS_RT_OPT_RARP_ADVERTISEMENT_DURATION] = {1, 3600, 60};
  options[VS_RT_OPT_REVERSE_PATH_FWD_CHECK] = kFlagOn;
  options[VS_RT_OPT_REVERSE_PATH_FWD_CHECK_PROMISC] = kFlagOff;
  options[VS_RT_OPT_ALLOW_FAST_PATH] = kFlagOn;
  options[VS_RT_OPT_TEAM_POLICY_UP_DELAY] = {0, 300000, 100};
  options[VS_RT_OPT_ALLOW_MIRROR_STATS] = kFlagOn;
  options[VS_RT_OPT_TEAMING_NUMA_AWARE] = kFlagOff;
  options[VS_RT_OPT_SEND_IGMP_REPORT_TO_UPLINK] = kFlagOn;
  return options;
}();

/** The addresses that queries come from. An empty text leaves the choice to the switch. */
constexpr int kFamilies[] = {AF_INET, AF_INET6};
static_assert(VS_RT_OPT_IGMP_ROUTER_IP == NUM_RUNTIME_INT_OPTIONS && VS_RT_OPT_MLD_ROUTER_IP == VS_NUM_RT_OPT - 1);

constexpr bool IsNumber(std::uint16_t code) { return code < NUM_RUNTIME_INT_OPTIONS; }

std::uint32_t NumberIn(std::uint16_t code, std::string_view value) {
  const auto number = RecordOf<std::uint32_t>(value);
  Require(number >= kNumbers[code].least && number <= kNumbers[code].most);
  return number;
}

std::string TextIn(std::size_t index, std::string_view value) {
  Require(!value.empty() && value.size() <= VS_CHARDEV_MAX_RUNTIME_STRING_OPTION_LENGTH);
  const std::string text(TextOf(value));
  Require(text.size() == value.size() - 1);
  in6_addr address;
  Require(text.empty() || inet_pton(kFamilies[index], text.c_str(), &address) == 1);
  return text;
}

}  // namespace

RuntimeOptions::RuntimeOptions() {
  for (std::size_t i = 0; i < numbers_.size(); ++i) numbers_[i] = kNumbers[i].standard;
}

std::string RuntimeOptions::Pack(std::span<const std::uint16_t> codes) const {
  std::string packed(sizeof(VSRuntimeOptions), '\0');
  for (const std::uint16_t code : codes) {
    Require(code < VS_NUM_RT_OPT);
    std::string value;
    if (IsNumber(code)) {
      value = BytesOf(numbers_[code]);
    } else {
      value = texts_[code - NUM_RUNTIME_INT_OPTIONS];
      value.push_back('\0');
    }
    VSRuntimeOptionHeader head{};
    head.type = code;
    head.length = static_cast<zel_uint16>(sizeof head + value.size());
    packed += BytesOf(head) + value;
    if (packed.size() > VS_CHARDEV_MAX_RUNTIME_OPTIONS_LENGTH) throw StatusError(ZEL_LIMIT_EXCEEDED);
  }
  const VSRuntimeOptions record{.totalLength = static_cast<zel_uint32>(packed.size())};
  return packed.replace(0, sizeof record, BytesOf(record));
}

void RuntimeOptions::Apply(std::string_view packed) {
  RuntimeOptions changed = *this;
  Require(RecordAt<VSRuntimeOptions>(packed, 0).totalLength == packed.size());
  for (std::size_t place = sizeof(VSRuntimeOptions); place < packed.size();) {
    const auto head = RecordAt<VSRuntimeOptionHeader>(packed, place);
    Require(head.type < VS_NUM_RT_OPT && head.length > sizeof head && head.length <= packed.size() - place);
    const std::string_view value = packed.substr(place + sizeof head, head.length - sizeof head);
    if (IsNumber(head.type)) {
      changed.numbers_[head.type] = NumberIn(head.type, value);
    } else {
      const std::size_t index = head.type - NUM_RUNTIME_INT_OPTIONS;
      changed.texts_[index] = TextIn(index, value);
    }
    place += head.length;
  }
  *this = std::move(changed);
}

}  // namespace kestrel::host
