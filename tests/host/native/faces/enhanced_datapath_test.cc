#include <cstring>
#include <string>
#include <vector>

#include "kestrel/runtime_queries.h"
#include "tests/host/native/support/face_test.h"

namespace kestrel::host {
namespace {

class EnhancedDatapathFace : public FaceTest {
 protected:
  static ZEL_ReturnStatus Portsets(const std::vector<std::string> &names, int mode, zel_uint32 switch_mode = 0) {
    std::vector<char> bytes(sizeof(RTMIOCtlQuery) + names.size() * sizeof(RTM_Portset));
    auto *query = reinterpret_cast<RTMIOCtlQuery *>(bytes.data());
    query->numPortsets = static_cast<zel_uint32>(names.size());
    for (std::size_t i = 0; i < names.size(); ++i) {
      names[i].copy(query->rtmPs[i].psName, sizeof query->rtmPs[i].psName);
      query->rtmPs[i].ensSwitchMode = switch_mode;
    }
    // Callers pass any number. NOLINTNEXTLINE(clang-analyzer-optin.core.EnumCastOutOfRange)
    return VSZEL_RTMOp(query, static_cast<RTMIOCtlMode>(mode));
  }
  static ZEL_ReturnStatus Modules(const std::string &portset, const std::vector<std::int32_t> &modules, int mode) {
    std::vector<char> bytes(sizeof(RTMModIOCtlQuery) + modules.size() * sizeof(RTM_ModInfo));
    auto *query = reinterpret_cast<RTMModIOCtlQuery *>(bytes.data());
    query->numMod = static_cast<zel_uint32>(modules.size());
    portset.copy(query->psName, sizeof query->psName);
    for (std::size_t i = 0; i < modules.size(); ++i) query->rtmModId[i].ModID = modules[i];
    // NOLINTNEXTLINE(clang-analyzer-optin.core.EnumCastOutOfRange)
    return VSZEL_RTMModOp(query, static_cast<RTMIOCtlMode>(mode));
  }
};

constexpr int kOn = RTM_IOCCMD_ENS_ACTIVATE;
constexpr int kOff = RTM_IOCCMD_ENS_DEACTIVATE;

TEST_F(EnhancedDatapathFace, IsActivatedPortsetByPortset) {
  EXPECT_EQ(Portsets({kPortset}, kOff), ZEL_IS_DISABLED);
  EXPECT_EQ(Portsets({kPortset}, kOn, 2), ZEL_OK);
  ASSERT_NE(host().datapath().Find(kPortset), nullptr);
  EXPECT_EQ(host().datapath().Find(kPortset)->switch_mode, 2U);
  EXPECT_EQ(Portsets({kPortset}, kOn), ZEL_IS_ENABLED);
  EXPECT_EQ(Portsets({kPortset}, kOff), ZEL_OK);
  EXPECT_EQ(host().datapath().Find(kPortset), nullptr);
}

TEST_F(EnhancedDatapathFace, RefusesARequestAsAWhole) {
  EXPECT_EQ(VSZEL_RTMOp(nullptr, RTM_IOCCMD_ENS_ACTIVATE), ZEL_BAD_PARAM);
  EXPECT_EQ(Portsets({}, kOn), ZEL_BAD_PARAM);
  EXPECT_EQ(Portsets({kPortset}, 2), ZEL_BAD_PARAM);
  EXPECT_EQ(Portsets({kPortset, "nowhere"}, kOn), ZEL_NOT_FOUND);
  EXPECT_EQ(Portsets({kAlias}, kOn), ZEL_NOT_FOUND) << "an alias is no portset";
  EXPECT_EQ(Portsets({std::string(128, 'x')}, kOn), ZEL_NAME_TOO_LONG);
  EXPECT_EQ(Portsets({kPortset, kPortset}, kOn), ZEL_EXISTS);
  EXPECT_EQ(host().datapath().Find(kPortset), nullptr);
}

TEST_F(EnhancedDatapathFace, ModulesNeedThePortset) {
  EXPECT_EQ(Modules(kPortset, {5}, kOn), ZEL_NOT_READY);
  ASSERT_EQ(Portsets({kPortset}, kOn), ZEL_OK);
  EXPECT_EQ(Modules(kPortset, {5, 7}, kOn), ZEL_OK);
  EXPECT_EQ(Modules(kPortset, {8, 7}, kOn), ZEL_IS_ENABLED);
  EXPECT_EQ(Modules(kPortset, {9, 9}, kOn), ZEL_EXISTS);
  EXPECT_EQ(Modules(kPortset, {5}, kOff), ZEL_OK);
  EXPECT_EQ(Modules(kPortset, {5}, kOff), ZEL_IS_DISABLED);
  EXPECT_EQ(host().datapath().Find(kPortset)->modules, std::set<std::int32_t>{7});
  EXPECT_EQ(Portsets({kPortset}, kOff), ZEL_OK);
  ASSERT_EQ(Portsets({kPortset}, kOn), ZEL_OK);
  EXPECT_TRUE(host().datapath().Find(kPortset)->modules.empty()) << "they go with the portset";
}

TEST_F(EnhancedDatapathFace, APortBelongsToOneWorld) {
  const PortId port = IdOfPort(host(), "machine");
  EXPECT_EQ(VSZEL_RTMPortOp(3, 4711, 1), ZEL_NOT_FOUND);
  EXPECT_EQ(VSZEL_RTMPortOp(0, port, 1), ZEL_INVALID_WORLD);
  EXPECT_EQ(VSZEL_RTMPortOp(3, port, 0), ZEL_NOT_FOUND);
  EXPECT_EQ(VSZEL_RTMPortOp(3, port, 1), ZEL_OK);
  EXPECT_EQ(VSZEL_RTMPortOp(3, port, 1), ZEL_EXISTS);
  EXPECT_EQ(VSZEL_RTMPortOp(4, port, 1), ZEL_BUSY);
  EXPECT_EQ(VSZEL_RTMPortOp(4, port, 0), ZEL_NOT_FOUND);
  EXPECT_EQ(host().datapath().WorldOf(port), 3);
  host().Disconnect(kAlias, "machine");
  host().RemovePort(kAlias, "machine");
  EXPECT_EQ(host().datapath().WorldOf(port), 0);
}

TEST_F(EnhancedDatapathFace, IsSavedAndLoaded) {
  ASSERT_EQ(Portsets({kPortset}, kOn, 3), ZEL_OK);
  ASSERT_EQ(Modules(kPortset, {-1, 7}, kOn), ZEL_OK);
  ASSERT_EQ(VSZEL_RTMPortOp(3, IdOfPort(host(), "free"), 1), ZEL_OK);
  const std::string saved = host().datapath().Save();
  const auto loaded = EnhancedDatapath::Load(saved);
  EXPECT_EQ(loaded.Save(), saved);
  EXPECT_EQ(*loaded.Find(kPortset), *host().datapath().Find(kPortset));
  EXPECT_EQ(loaded.WorldOf(IdOfPort(host(), "free")), 3);
  EXPECT_THROW(EnhancedDatapath::Load(saved.substr(0, saved.size() - 1)), StatusError);
}

}  // namespace
}  // namespace kestrel::host
