// The tables of the host itself: its numbers, options, datapath and NICs.
#include <algorithm>
#include <utility>

#include "host/core/base/errors.h"
#include "host/core/base/record_bytes.h"
#include "host/core/storage/host_file_parts.h"
#include "kestrel/constants.h"

namespace kestrel::host {

namespace {

constexpr std::string_view kDatapathPart = "datapath";

/** The value of one runtime option, out of the packed list of it alone. */
std::string OptionValue(const RuntimeOptions &options, std::uint16_t code) {
  return options.Pack({&code, 1}).substr(sizeof(VSRuntimeOptions) + sizeof(VSRuntimeOptionHeader));
}

std::string PackedOption(std::uint16_t code, std::string_view value) {
  VSRuntimeOptionHeader head{};
  head.type = code;
  head.length = static_cast<zel_uint16>(sizeof head + value.size());
  const VSRuntimeOptions list{.totalLength = static_cast<zel_uint32>(sizeof(VSRuntimeOptions) + head.length)};
  return BytesOf(list) + BytesOf(head) + std::string(value);
}

constexpr bool IsNumberOption(std::uint16_t code) { return code < NUM_RUNTIME_INT_OPTIONS; }

template <typename Number>
Number In(std::int64_t value) {
  if (!std::in_range<Number>(value)) throw StatusError(ZEL_INVALID_METADATA);
  return static_cast<Number>(value);
}

}  // namespace

const std::vector<HostFileTables::NumberRow> &HostFileTables::NumberRows() {
  static const std::vector<NumberRow> rows{
      {"time_ns", [](const Host &host) -> std::int64_t { return host.clock_.Now().count(); },
       [](Host &host, std::int64_t value) {
         host.clock_ = VirtualClock();
         host.clock_.Advance(Duration(value));
       }},
      {"next_port", [](const Host &host) -> std::int64_t { return host.next_port_id_; },
       [](Host &host, std::int64_t value) { host.next_port_id_ = In<PortId>(value); }},
      {"next_switch", [](const Host &host) { return static_cast<std::int64_t>(host.next_switch_number_); },
       [](Host &host, std::int64_t value) { host.next_switch_number_ = static_cast<std::uint64_t>(value); }},
      {"mac_ageing_s", [](const Host &host) -> std::int64_t { return host.mac_learning_.agingTime; },
       [](Host &host, std::int64_t value) { host.mac_learning_.agingTime = In<zel_uint32>(value); }},
      {"mac_limit", [](const Host &host) -> std::int64_t { return host.mac_learning_.macLimit; },
       [](Host &host, std::int64_t value) { host.mac_learning_.macLimit = In<zel_uint32>(value); }},
      {"mac_learn_static", [](const Host &host) -> std::int64_t { return host.mac_learning_.learnStatic; },
       [](Host &host, std::int64_t value) { host.mac_learning_.learnStatic = static_cast<zel_Bool>(value != 0); }},
      {"mac_allow_static", [](const Host &host) -> std::int64_t { return host.mac_learning_.staticMACAllow; },
       [](Host &host, std::int64_t value) { host.mac_learning_.staticMACAllow = static_cast<zel_Bool>(value != 0); }},
  };
  return rows;
}

std::vector<std::int64_t> HostFileTables::NumbersOf(const Host &host) {
  std::vector<std::int64_t> numbers;
  for (const NumberRow &row : NumberRows()) numbers.push_back(row.get(host));
  return numbers;
}

void HostFileTables::WriteHost(const Host &host) {
  const std::vector<std::int64_t> numbers = NumbersOf(host);
  const bool is_new = numbers_.empty();
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    if (is_new || numbers_[i] != numbers[i]) statements_->put_number.Run(NumberRows()[i].name, numbers[i]);
  }
  numbers_ = numbers;

  if (is_new || host.options_ != options_) {
    for (std::uint16_t code = 0; code < VS_NUM_RT_OPT; ++code) {
      const std::string value = OptionValue(host.options_, code);
      if (IsNumberOption(code)) {
        statements_->put_option.Run(code, RecordOf<std::uint32_t>(value));
      } else {
        statements_->put_option.Run(code, TextOf(std::string_view(value)));
      }
    }
    options_ = host.options_;
  }

  if (host.datapath_ != datapath_) {
    const std::string state = host.datapath_.Save();
    statements_->put_host_part.Run(kDatapathPart, Blob{state});
    datapath_ = host.datapath_;
  }

  if (host.nics_.Items() == nics_.Items()) return;
  for (const auto &[name, nic] : nics_.Items()) {
    if (!host.nics_.Items().contains(name)) statements_->remove_nic.Run(name);
  }
  for (const auto &[name, nic] : host.nics_.Items()) {
    const auto former = nics_.Items().find(name);
    if (former != nics_.Items().end() && former->second == nic) continue;
    const std::string state = nic.Save();
    statements_->put_nic.Run(name, static_cast<int>(nic.link.state), nic.link.speed, static_cast<int>(nic.link.duplex),
                             nic.is_enabled, Blob{state});
  }
  nics_ = host.nics_;
}

void HostFileTables::ReadHost(Host &host) {
  Statement &numbers = statements_->get_numbers;
  std::vector<bool> is_set(NumberRows().size());
  numbers.Begin();
  while (numbers.Next()) {
    const auto row = std::ranges::find(NumberRows(), numbers.Bytes(0), &NumberRow::name);
    if (row == NumberRows().end()) throw StatusError(ZEL_INVALID_METADATA);
    row->set(host, numbers.Get<std::int64_t>(1));
    is_set[static_cast<std::size_t>(row - NumberRows().begin())] = true;
  }
  if (std::ranges::find(is_set, false) != is_set.end()) throw StatusError(ZEL_INVALID_METADATA);

  Statement &options = statements_->get_options;
  options.Begin();
  while (options.Next()) {
    const auto code = options.Get<std::uint16_t>(0);
    const std::string value =
        IsNumberOption(code) ? BytesOf(options.Get<std::uint32_t>(1)) : options.Text(1) + std::string(1, '\0');
    host.options_.Apply(PackedOption(code, value));
  }

  Statement &parts = statements_->get_host_parts;
  parts.Begin();
  while (parts.Next()) {
    if (parts.Bytes(0) == kDatapathPart) host.datapath_ = EnhancedDatapath::Load(parts.Bytes(1));
  }

  Statement &nics = statements_->get_nics;
  nics.Begin();
  while (nics.Next()) {
    host.nics_.Add(nics.Text(0), Nic::Load(nics.Bytes(1)));
  }
}

}  // namespace kestrel::host
