/* Frames into the host, and frames out of it. */
#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "host/abi/arguments.h"
#include "host/abi/record_block.h"
#include "host/lab/call.h"
#include "host/lab/file_system.h"
#include "host/lab/pcap.h"
#include "host/lab/refusal.h"
#include "kestrel/lab.h"

namespace kestrel::host::lab {
namespace {

/** Frames that were handed out, as packets that are views of the block. */
std::vector<PcapPacket> PacketsOf(const KestrelLabFrame *frames, std::size_t count, std::size_t size) {
  const auto *bytes = reinterpret_cast<const std::uint8_t *>(frames + count);
  std::vector<PcapPacket> packets;
  packets.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    const KestrelLabFrame &frame = frames[i];
    if (frame.offset > size || frame.length > size - frame.offset) {
      throw Refusal(ZEL_BAD_PARAM, "a frame lies beyond the bytes");
    }
    if (frame.time > static_cast<std::uint64_t>(Duration::max().count())) throw StatusError(ZEL_LIMIT_EXCEEDED);
    packets.push_back({Duration(frame.time), {bytes + frame.offset, frame.length}});
  }
  return packets;
}

/** How much time passes before each packet. Throws what could go wrong on the way, once the first is through. */
std::vector<Duration> WaitsOf(const std::vector<PcapPacket> &packets, bool is_timed) {
  std::vector<Duration> waits;
  TimePoint latest = packets.empty() ? TimePoint{0} : packets.front().time;
  Duration all{0};
  for (const PcapPacket &packet : packets) {
    const Frame parsed(packet.bytes);
    const Duration wait = is_timed ? std::max(packet.time - latest, Duration{0}) : Duration{0};
    latest = std::max(latest, packet.time);
    all += wait;  // at most what 32 bits of seconds can tell
    waits.push_back(wait);
  }
  VirtualClock trial = ReadHost().clock();
  trial.Advance(all);
  return waits;
}

}  // namespace
}  // namespace kestrel::host::lab

using namespace kestrel::host;
using namespace kestrel::host::lab;

KESTREL_HOST_EXPORT ZEL_ReturnStatus kestrel_lab_send(const char *switchName, const char *portName,
                                                      const zel_uint8 *bytes, size_t length) {
  return ChangeInLab([&] {
    const auto owner = abi::SwitchName(switchName);
    const auto port = abi::PortName(portName);
    abi::RequirePointer(bytes);
    ChangeHost().SendFrame(owner, port, {bytes, length});
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus kestrel_lab_play(const char *switchName, const char *portName, const char *path,
                                                      zel_Bool timed, zel_uint64 *countOut) {
  return ChangeInLab([&] {
    abi::ClearOutputs(countOut);
    const auto owner = abi::SwitchName(switchName);
    const auto port = abi::PortName(portName);
    abi::RequirePointer(path);
    const std::string file = ReadFile(path);
    const std::vector<PcapPacket> packets = PacketsOfPcap(file);
    const std::vector<Duration> waits = WaitsOf(packets, timed != 0);
    Host &host = ChangeHost();
    for (std::size_t i = 0; i < packets.size(); ++i) {
      host.AdvanceClock(waits[i]);
      host.SendFrame(owner, port, packets[i].bytes);
    }
    abi::SetOutput(countOut, zel_uint64{packets.size()});
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus kestrel_lab_start_capture(const char *switchName, const char *portName,
                                                               zel_Bool incoming) {
  return ChangeInLab([&] {
    ChangeHost().StartCapture(abi::SwitchName(switchName), abi::PortName(portName), {.incoming = incoming != 0});
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus kestrel_lab_stop_capture(const char *switchName, const char *portName) {
  return ChangeInLab([&] { ChangeHost().StopCapture(abi::SwitchName(switchName), abi::PortName(portName)); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus kestrel_lab_take_frames(const char *switchName, const char *portName,
                                                             KestrelLabFrame **framesCell, size_t *countCell,
                                                             size_t *sizeCell, zel_uint64 *droppedCell) {
  return ChangeInLab([&] {
    abi::ClearOutputs(framesCell, countCell, sizeCell, droppedCell);
    const Captured captured = ChangeHost().TakeCapture(abi::SwitchName(switchName), abi::PortName(portName));
    std::vector<KestrelLabFrame> records;
    std::string bytes;
    for (const CapturedFrame &frame : captured.frames) {
      KestrelLabFrame record{};
      record.time = static_cast<zel_uint64>(frame.time.count());
      record.offset = bytes.size();
      record.length = frame.bytes.size();
      record.isIncoming = frame.is_incoming ? 1 : 0;
      records.push_back(record);
      bytes.append(frame.bytes.begin(), frame.bytes.end());
    }
    const std::string_view head(reinterpret_cast<const char *>(records.data()),
                                records.size() * sizeof(KestrelLabFrame));
    abi::RecordBlock block(head.size() + bytes.size());
    block.AppendBytes(head);
    block.AppendBytes(bytes);
    abi::SetOutput(framesCell, block.Release<KestrelLabFrame>());
    abi::SetOutput(countCell, records.size());
    abi::SetOutput(sizeCell, bytes.size());
    abi::SetOutput(droppedCell, zel_uint64{captured.dropped});
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus kestrel_lab_write_pcap(const char *path, const KestrelLabFrame *frames,
                                                            size_t count, size_t size) {
  return WithoutHost([&] {
    abi::RequirePointer(path);
    if (count != 0) abi::RequirePointer(frames);
    WriteFile(path, PcapOf(PacketsOf(frames, count, size)));
  });
}
