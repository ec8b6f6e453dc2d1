/* What the fuzzing of images starts from: small states, ports and collections by chance. */
#include <string>

#include "tests/fuzz/corpus.h"
#include "tests/fuzz/image_input.h"
#include "tests/host/native/support/random_state.h"

namespace kestrel::host {

void WriteInputs(const Corpus &corpus) {
  const auto write = [&](const std::string &name, std::string_view image) { corpus.Write(name, InputOfImage(image)); };
  RandomConfigs configs(1, {.ports = 2, .uplinks = 2, .lags = 1, .properties = 2, .value = 6});
  for (int i = 0; i < 60; ++i) {
    const std::string number = std::to_string(i);
    write("state-" + number, ImageOf(NextStates(configs, 2)));
    const PortState port = NextPortState(configs);
    write("port-" + number, ImageOfPort(port, kNewestVersion));
    write("collection-" + number, ImageOfProperties(port.properties.in_use, kNewestVersion));
  }
}

}  // namespace kestrel::host
