/* Writes what the fuzzing of images starts from, small states, ports and collections by chance:
   state_image_corpus <folder> */
#include <cstdio>
#include <fstream>
#include <string>

#include "tests/fuzz/image_input.h"
#include "tests/host/native/support/random_state.h"

namespace kestrel::host {
namespace {

bool Write(const std::string &file, const std::string &image) {
  std::ofstream out(file, std::ios::binary);
  out << InputOfImage(image);
  out.close();
  if (!out) std::fprintf(stderr, "%s cannot be written\n", file.c_str());
  return !out.fail();
}

bool WriteAll(const std::string &folder) {
  RandomConfigs configs(1, {.ports = 2, .uplinks = 2, .lags = 1, .properties = 2, .value = 6});
  bool is_written = true;
  for (int i = 0; i < 60; ++i) {
    const std::string number = std::to_string(i);
    is_written = Write(folder + "/state-" + number, ImageOf(NextStates(configs, 2))) && is_written;
    const PortState port = NextPortState(configs);
    is_written = Write(folder + "/port-" + number, ImageOfPort(port, kNewestVersion)) && is_written;
    is_written = Write(folder + "/collection-" + number, ImageOfProperties(port.properties.in_use, kNewestVersion)) &&
                 is_written;
  }
  return is_written;
}

}  // namespace
}  // namespace kestrel::host

int main(int count, char **arguments) {
  if (count != 2) {
    std::fprintf(stderr, "Usage: state_image_corpus <folder>\n");
    return 2;
  }
  return kestrel::host::WriteAll(arguments[1]) ? 0 : 1;
}
