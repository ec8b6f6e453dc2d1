#include "host/core/storage/torn_file.h"

#include <array>
#include <cstdint>
#include <fstream>
#include <optional>

#include "host/core/storage/host_file_tables.h"

namespace kestrel::host {
namespace {

// Offsets and sizes as SQLite's file format documents them; numbers are big-endian.
constexpr std::uint32_t kLogMagic = 0x377f0682;  // or one more, by the order of bytes of its checksums
constexpr std::streamoff kLogPageSize = 8;
constexpr std::streamoff kLogHeader = 32;
constexpr std::streamoff kFrameHeader = 24;
constexpr std::streamoff kMarkInPage = 68;
constexpr std::uint32_t kJournalMagic = 0xd9d505f9;
constexpr std::streamoff kJournalPages = 16;

std::optional<std::uint32_t> NumberAt(std::ifstream &file, std::streamoff offset) {
  std::array<char, 4> bytes{};
  file.clear();
  if (!file.seekg(offset) || !file.read(bytes.data(), bytes.size())) return std::nullopt;
  std::uint32_t number = 0;
  for (const char byte : bytes) number = number << 8 | static_cast<unsigned char>(byte);
  return number;
}

/** Whether a write-ahead log has a first page of a host file. */
bool IsLogOfHostFile(const std::string &path) {
  std::ifstream log(path, std::ios::binary);
  const std::uint32_t magic = NumberAt(log, 0).value_or(0);
  const std::uint32_t page_size = NumberAt(log, kLogPageSize).value_or(0);
  if ((magic & ~1U) != kLogMagic || page_size == 0) return false;
  for (std::streamoff frame = kLogHeader;; frame += kFrameHeader + std::streamoff{page_size}) {
    const auto page = NumberAt(log, frame);
    if (!page) return false;
    if (*page == 1 && NumberAt(log, frame + kFrameHeader + kMarkInPage) == kHostFileMark) return true;
  }
}

/** Whether a journal takes its file back to an empty one. */
bool IsJournalOfEmptyFile(const std::string &path) {
  std::ifstream journal(path, std::ios::binary);
  return NumberAt(journal, 0) == kJournalMagic && NumberAt(journal, kJournalPages) == 0;
}

}  // namespace

bool IsTornHostFile(const std::string &path) {
  return IsLogOfHostFile(path + "-wal") || IsJournalOfEmptyFile(path + "-journal");
}

}  // namespace kestrel::host
