/* A switch to which anything happens: values are set under the keys that it knows, frames come in through its ports,
   links go and come back, time passes. All of it works or is refused; what was set is read as it was set, and the
   state can be taken and put back.

   Input: a row of steps; for what they are see Life::Step. */
#include <array>
#include <string>

#include "host/core/base/errors.h"
#include "host/core/properties/property_table.h"
#include "tests/fuzz/ensure.h"
#include "tests/fuzz/steps.h"
#include "tests/host/native/support/nic_link.h"
#include "tests/host/native/support/test_host.h"

namespace kestrel::host {
namespace {

constexpr std::array<const char *, 6> kPorts{"machine", "service", "free", "u1", "u2", "u3"};

class Life {
 public:
  Life(const std::uint8_t *data, std::size_t size) : steps_(data, size), host_(MakeTestHost()) {}

  void Go() {
    for (int i = 0; i < 64 && !steps_.AtEnd(); ++i) {
      try {
        Step();
      } catch (const StatusError &) {  // NOLINT(bugprone-empty-catch): a refusal is one of the two good ends
      }
    }
    const std::string image = host_->ImageOfState();
    const auto snapshot = host_->Snapshot();
    host_->ReplaceConfig(host_->ImageOfSavedState());
    host_->Restore(*snapshot);
    Ensure(host_->ImageOfState() == image);
  }

 private:
  const char *Port() { return kPorts[steps_.Choice(kPorts.size())]; }

  PropertyOwner OwnerAt(PropertyLevel level) {
    PropertyOwner owner{.switch_name = kAlias, .level = level};
    if (level == PropertyLevel::kPort) owner.port = Port();
    if (level == PropertyLevel::kUplink) owner.uplink = steps_.Byte() % 4;
    return owner;
  }

  void Set() {
    const auto rows = PropertyRows();
    const PropertyRow &row = rows[steps_.Choice(rows.size())];
    const PropertyOwner owner = OwnerAt(row.level);
    const std::string value = steps_.Bytes();
    host_->SetProperty(owner, row.key, {value});
    Ensure(host_->PropertyOf(owner, row.key) == value);
  }

  void Clear() {
    const auto rows = PropertyRows();
    const PropertyRow &row = rows[steps_.Choice(rows.size())];
    host_->ClearProperty(OwnerAt(row.level), row.key, Persistence::kSaved);
  }

  void Send() {
    const char *port = Port();
    const std::string bytes = steps_.Bytes();
    host_->SendFrame(kAlias, port, FrameBytes(reinterpret_cast<const std::uint8_t *>(bytes.data()), bytes.size()));
  }

  void Step() {
    switch (steps_.Choice(8)) {
      case 0:
      case 1:
        Set();
        break;
      case 2:
        Clear();
        break;
      case 3:
        host_->AdvanceClock(std::chrono::milliseconds(20 * steps_.Byte()));
        break;
      case 4:
        SetNicLink(*host_, steps_.Choice(2) == 0 ? "nic-l" : "nic-r", steps_.Choice(2) == 0 ? kUp : kDown);
        break;
      default:
        Send();
        break;
    }
  }

  Steps steps_;
  std::unique_ptr<Host> host_;
};

}  // namespace
}  // namespace kestrel::host

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  kestrel::host::Life(data, size).Go();
  return 0;
}
