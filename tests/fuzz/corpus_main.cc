#include <cstdio>
#include <exception>
#include <fstream>
#include <stdexcept>

#include "tests/fuzz/corpus.h"

namespace kestrel::host {

void Corpus::Write(const std::string &name, std::string_view input) const {
  std::ofstream file(folder_ + "/" + name, std::ios::binary);
  file << input;
  file.close();
  if (!file) throw std::runtime_error(name + " cannot be written");
}

}  // namespace kestrel::host

int main(int count, char **arguments) {
  if (count != 2) {
    std::fprintf(stderr, "usage: %s <folder>\n", arguments[0]);
    return 2;
  }
  try {
    kestrel::host::WriteInputs(kestrel::host::Corpus(arguments[1]));
  } catch (const std::exception &error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
  return 0;
}
