/* Images that nobody wrote: refused by name, or the state that they give is written as the same image again. */
#include <cstdint>
#include <random>
#include <string>
#include <string_view>

#include "host/core/host.h"
#include "host/core/images/port_image.h"
#include "host/core/images/state_image.h"
#include "tests/fuzz/ensure.h"
#include "tests/fuzz/image_input.h"
#include "tests/fuzz/image_spans.h"
#include "tests/host/native/support/status_of.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t *data, std::size_t size, std::size_t room);

namespace kestrel::host {
namespace {

constexpr LinkStatus kLink{ZEL_LINK_STATE_UP, 1000, ZEL_LINK_DUPLEX_FULL};

/** A host with a switch of its own, a client in it, and the NICs of some switches. */
void Furnish(Host &host, const std::vector<SwitchState> &switches) {
  host.AddNic("nic", kLink);
  for (const SwitchState &each : switches) {
    for (const Uplink &uplink : each.in_use.uplinks().Items()) {
      const std::string *nic = each.in_use.NicOf(uplink.id);
      if (nic != nullptr && *nic != "nic") host.AddNic(*nic, kLink);
    }
  }
  host.AddSwitch({.id = "id1", .portset = "DvsPortset-1", .alias = "dvs-1", .max_ports = 16});
  host.AddPort("dvs-1", "port");
  host.AddUplink("dvs-1", "uplink", "up");
  host.Connect("dvs-1", "port", {.type = VS_PORT_CLIENT_VNIC, .name = "vm"});
  host.Connect("dvs-1", "up", {.type = VS_PORT_CLIENT_UPLINK, .name = "nic"});
}

void TakeState(const std::string &image, std::uint32_t version) {
  std::vector<SwitchState> switches;
  const int status = StatusOf([&] { switches = StateOfImage(image); });
  Ensure(status == ZEL_OK || status == ZEL_INVALID_METADATA);
  Host host;
  Furnish(host, switches);
  const std::string before = host.ImageOfState(), saved_before = host.ImageOfSavedState();
  Ensure(StatusOf([&] { host.InitState(image); }) == status);
  if (status != ZEL_OK) {
    Ensure(StatusOf([&] { host.ReplaceConfig(image); }) == status);
    Ensure(host.ImageOfState() == before && host.ImageOfSavedState() == saved_before);
    return;
  }
  const std::string after = host.ImageOfState();
  Ensure(version != kNewestVersion || after == image);
  const std::string saved = host.ImageOfSavedState();
  host.AdvanceClock(std::chrono::seconds(1000));
  host.Sanitize();
  host.InitState(after);
  Ensure(host.ImageOfState() == after && host.ImageOfSavedState() == saved);

  const int replaced = StatusOf([&] { host.ReplaceConfig(before); });
  Ensure(replaced == ZEL_OK || host.ImageOfState() == after);
  host.LoadConfig();
  Ensure(StatusOf([&] { host.InitState(before); }) == ZEL_OK);
  Ensure(host.ImageOfState() == before && host.ImageOfSavedState() == saved_before);
}

void TakePort(const std::string &image, std::uint32_t version) {
  PortState port;
  const int status = StatusOf([&] { port = PortOfImage(image); });
  Ensure(status == ZEL_OK || status == ZEL_INVALID_METADATA);
  const OpenedImage opened = OpenImage(image);
  if (status == ZEL_OK && version == kNewestVersion) {
    Ensure(opened.kind == ImageKind::kPort ? ImageOfPort(port, version) == image
                                           : ImageOfProperties(port.properties.in_use, version) == image);
  }
  Host host;
  Furnish(host, {});
  const std::string before = host.ImageOfState();
  const int added = StatusOf([&] { host.AddPortOfImage("dvs-1", "new", image); });
  Ensure(status == ZEL_OK || added == status);
  if (added != ZEL_OK) {
    Ensure(host.ImageOfState() == before);
    return;
  }
  PortState replicated = port;
  Ensure(PortOfImage(host.ImageOfPortInUse("dvs-1", "new")).external_id == replicated.external_id);
  const std::string after = host.ImageOfState();
  host.InitState(after);
  Ensure(host.ImageOfState() == after);
}

void Run(std::string_view input) {
  // As it is, which the frame refuses.
  const int status = StatusOf([&] { OpenImage(input); });
  Ensure(status == ZEL_INVALID_METADATA || status == ZEL_VERSION_MISMATCH_MAJOR || status == ZEL_CHECKSUM_MISMATCH ||
         status == ZEL_VERSION_MISMATCH_MINOR || status == ZEL_OK);
  if (input.size() < kImageInputHead) return;
  const std::string image = ImageOfInput(input);
  if (KindOfInput(input) == ImageKind::kState) {
    TakeState(image, VersionOfInput(input));
  } else {
    TakePort(image, VersionOfInput(input));
  }
}

/** Changes one text or section, or how often it is there, so that all lengths still hold. */
bool MutateSpan(std::string &input, std::size_t room, std::minstd_rand &random) {
  std::string body = input.substr(kImageInputHead);
  const std::vector<ImageSpan> spans = SpansOf(KindOfInput(input), body);
  if (spans.empty()) return false;
  const ImageSpan &span = spans[random() % spans.size()];
  const std::size_t head = span.is_section ? 8 : 4;
  const std::string whole = body.substr(span.start - head, head + span.size);
  switch (random() % 5) {
    case 0:
      if (!span.is_section) return false;
      Grow(body, span, -static_cast<std::ptrdiff_t>(whole.size()));
      body.erase(span.start - head, whole.size());
      break;
    case 1:
      if (!span.is_section) return false;
      Grow(body, span, static_cast<std::ptrdiff_t>(whole.size()));
      body.insert(span.start + span.size, whole);
      break;
    case 2: {
      // Another one's content, such as the name of something else.
      const ImageSpan &other = spans[random() % spans.size()];
      Replace(body, span, std::string(body.substr(other.start, other.size)));
      break;
    }
    default: {
      std::string bytes = body.substr(span.start, span.size);
      bytes.resize(span.size + 16);
      bytes.resize(LLVMFuzzerMutate(reinterpret_cast<std::uint8_t *>(bytes.data()), span.size, bytes.size()));
      Replace(body, span, bytes);
    }
  }
  if (kImageInputHead + body.size() > room) return false;
  input.replace(kImageInputHead, std::string::npos, body);
  return true;
}

}  // namespace
}  // namespace kestrel::host

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  kestrel::host::Run({reinterpret_cast<const char *>(data), size});
  return 0;
}

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t *data, std::size_t size, std::size_t room,
                                               unsigned int seed) {
  std::minstd_rand random(seed);
  std::string input(reinterpret_cast<const char *>(data), size);
  if (size <= kestrel::host::kImageInputHead || random() % 4 == 0 || !kestrel::host::MutateSpan(input, room, random)) {
    return LLVMFuzzerMutate(data, size, room);
  }
  input.copy(reinterpret_cast<char *>(data), input.size());
  return input.size();
}
