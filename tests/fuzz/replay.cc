/* Runs a fuzz target without a fuzzer over the files of folders, each as it stands, cut short and with bits turned
   over: replay_<target> <folder>... What a fuzzer has once found is kept so. */
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

/** Of a target that knows how to change its inputs. */
extern "C" __attribute__((weak)) std::size_t LLVMFuzzerCustomMutator(std::uint8_t *data, std::size_t size,
                                                                     std::size_t room, unsigned seed);

/** What such a target asks the fuzzer for: to change some bytes. */
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t *data, std::size_t size, std::size_t) {
  if (size != 0) data[size / 2] ^= 0x10;
  return size;
}

namespace {

using Bytes = std::vector<std::uint8_t>;

/** How many places of an input are changed, evenly spread. */
constexpr std::size_t kPlaces = 48;
/** How many bytes an input may grow by. */
constexpr std::size_t kRoom = 64;

std::size_t Run(const Bytes &bytes) {
  LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  return 1;
}

std::size_t RunVariants(const Bytes &bytes) {
  std::size_t runs = Run(bytes);
  const std::size_t step = bytes.size() / kPlaces + 1;
  for (std::size_t place = 0; place < bytes.size(); place += step) {
    Bytes changed = bytes;
    changed[place] ^= static_cast<std::uint8_t>(1U << place % 8);
    runs += Run(changed);
    changed.resize(place);
    runs += Run(changed);
  }
  if (LLVMFuzzerCustomMutator == nullptr) return runs;
  for (unsigned seed = 0; seed < kPlaces; ++seed) {
    Bytes changed = bytes;
    changed.resize(bytes.size() + kRoom);
    changed.resize(LLVMFuzzerCustomMutator(changed.data(), bytes.size(), changed.size(), seed));
    runs += Run(changed);
  }
  return runs;
}

Bytes Contents(const std::filesystem::path &path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

int main(int count, char **folders) {
  std::size_t files = 0;
  std::size_t runs = 0;
  for (int i = 1; i < count; ++i) {
    for (const auto &entry : std::filesystem::directory_iterator(folders[i])) {
      ++files;
      runs += RunVariants(Contents(entry.path()));
    }
  }
  std::printf("%zu files, %zu runs\n", files, runs);
  return files == 0 ? 1 : 0;
}
