/* The inputs that a fuzz target starts from. The program <target>_corpus writes those of <target>_corpus.cc into the
   folder that it is given. */
#pragma once

#include <string>
#include <string_view>

namespace kestrel::host {

class Corpus {
 public:
  explicit Corpus(std::string folder) : folder_(std::move(folder)) {}

  /** Writes an input, of the bytes that it has. Throws std::runtime_error. */
  void Write(const std::string &name, std::string_view input) const;

 private:
  std::string folder_;
};

/** Writes all inputs. Each target has its own. */
void WriteInputs(const Corpus &corpus);

}  // namespace kestrel::host
