/* Writes what sessions of every kind send to a pcap file, and what each was told to send, one JSON object a line.
 *
 * usage: host_mirror_samples <pcap> <expectations> */
#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "host/core/mirroring/mirroring.h"
#include "tests/host/native/support/ip_frames.h"
#include "tests/host/native/support/mirror_sessions.h"

using namespace kestrel::host;

namespace {

constexpr VlanId kVlan = 20;
constexpr VlanId kCarrier = 700;
constexpr zel_uint32 kSnap = 90;

class Pcap {
 public:
  explicit Pcap(const char *path) : file_(path, std::ios::binary) {
    for (const std::uint32_t number : {0xa1b2c3d4U, 0x00040002U, 0U, 0U, 0x40000U, 1U}) Put(number);
  }

  /** The number of the frame in the file, from 1. */
  int Add(const Octets &frame) {
    const auto size = static_cast<std::uint32_t>(frame.size());
    for (const std::uint32_t number : {static_cast<std::uint32_t>(++count_), 0U, size, size}) Put(number);
    file_.write(reinterpret_cast<const char *>(frame.data()), static_cast<std::streamsize>(size));
    return count_;
  }
  bool IsGood() { return file_.flush().good(); }

 private:
  void Put(std::uint32_t number) { file_.write(reinterpret_cast<const char *>(&number), sizeof number); }

  std::ofstream file_;
  int count_ = 0;
};

/** A session, the frame that it is to mirror, and in which direction. */
struct Sample {
  std::string collector;
  DVMirrorEncapType encap;
  TestPacket packet;
  bool keeps_tag, has_carrier, is_cut, is_out;
  zel_uint32 key;
};

std::vector<Sample> Samples() {
  const TestPacket packets[] = {
      {}, {.source = "2001:db8::1", .destination = "2001:db8::2"}, {.size = 1900}, {.tags = {{.vlan = kVlan}}}};
  std::vector<Sample> samples;
  for (const char *collector : {"192.0.2.7", "2001:db8::7"}) {
    for (const auto encap : {DVMIRROR_ENCAP_GRE, DVMIRROR_ENCAP_ERSPAN2, DVMIRROR_ENCAP_ERSPAN3}) {
      for (const TestPacket &packet : packets) {
        for (unsigned bits = 0; bits < 16; ++bits) {
          samples.push_back({.collector = collector,
                             .encap = encap,
                             .packet = packet,
                             .keeps_tag = (bits & 1) != 0,
                             .has_carrier = (bits & 2) != 0,
                             .is_cut = (bits & 4) != 0 && packet.size > kSnap,
                             .is_out = (bits & 8) != 0,
                             .key = (bits & 1) != 0 ? 0xdeadbeefU : 0});
        }
      }
    }
  }
  return samples;
}

TestSession SessionOf(const Sample &sample, std::size_t number) {
  return {.type = VS_DVMIRROR_SESSIONTYPE_ERMIRROR_SRC,
          .flags = (sample.keeps_tag ? VS_DVMIRROR_FLAG_DST_ORIG_VLAN : 0) |
                   (sample.has_carrier ? VS_DVMIRROR_FLAG_DST_ENCAP : 0),
          .to = {EntityOfAddress(sample.collector), EntityOfStation(Station(7))},
          .encap_vlan = kCarrier,
          .snap = sample.is_cut ? kSnap : 0,
          .encap = sample.encap,
          .gre_key = sample.key,
          .erspan_id = static_cast<zel_uint16>(number)};
}

/** The expectations of a sample whose copies are the frames `first` to `last` of the file. */
std::string Expectations(const Sample &sample, std::size_t number, int first, int last, PortId port) {
  std::ostringstream line;
  line << std::boolalpha << R"({"first": )" << first << R"(, "last": )" << last << R"(, "collector": ")"
       << sample.collector << R"(", "encapsulation": )" << sample.encap << R"(, "key": )" << sample.key
       << R"(, "session": )" << number << R"(, "vlan": )" << kVlan << R"(, "carrier": )"
       << (sample.has_carrier ? kCarrier : 0) << R"(, "port": )" << (port & 0xfffff) << R"(, "keeps_tag": )"
       << sample.keeps_tag << R"(, "is_cut": )" << sample.is_cut << R"(, "is_out": )" << sample.is_out
       << R"(, "source": ")" << sample.packet.source << R"(", "destination": ")" << sample.packet.destination
       << R"(", "size": )" << sample.packet.size << "}\n";
  return line.str();
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 3) {
    std::cerr << "usage: " << argv[0] << " <pcap> <expectations>\n";
    return 2;
  }
  const auto host = MakeTestHost();
  auto &owner = const_cast<Switch &>(std::as_const(*host).FindSwitch(kAlias));
  Pcap pcap(argv[1]);
  std::ofstream expectations(argv[2]);
  std::size_t number = 0;
  for (const Sample &sample : Samples()) {
    SetPortSessions(*host, "machine", {});
    SetPortSessions(*host, "machine", {SessionOf(sample, ++number)});
    const Octets frame = FrameOf(sample.packet);
    const Port &port = owner.config.PortNamed("machine");
    int first = 0, last = 0;
    for (const MirrorCopy &copy : MirrorCopies(
             *host, owner, port, sample.is_out ? MirrorDirection::kOut : MirrorDirection::kIn, kVlan, Frame(frame))) {
      last = pcap.Add(copy.bytes);
      if (first == 0) first = last;
    }
    expectations << Expectations(sample, number, first, last, port.id);
  }
  return pcap.IsGood() && expectations.flush().good() ? 0 : 1;
}
