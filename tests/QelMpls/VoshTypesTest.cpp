#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
#include <vector>

#include "QelMpls/platform/QelMplsVoshTypes.h"

namespace {

using namespace Vosh::Qel;
using Mpls::Hardware::L2Via;

L2Via viaFor(uint32_t n) {
  return L2Via(Bexo::IntfId::ethernet(n), Bexo::EthAddr({0x00, 0x1c, 0x73, 0x00, 0x00, uint8_t(n)}),
               uint16_t(100 + n), Bexo::MplsLabel(1000 + n), n,
               Bexo::IpGenAddr::fromIpv4(0x0a000000u + n));
}

MplsHwL2AdjacencyConfig adjacencyWithVias(MplsHwL2AdjacencyId key, uint32_t vias) {
  MplsHwL2AdjacencyConfig record(key);
  record.versionIs(7);
  for (uint32_t i = 0; i < vias; ++i) record.l2ViaIs(MplsHwL2ViaIndex(i), viaFor(i + 1));
  return record;
}

std::vector<std::byte> serialized(const MplsHwL2AdjacencyConfig& record) {
  std::vector<std::byte> bytes(MplsHwL2AdjacencyConfig::kMaxSerializedSize);
  bytes.resize(record.serialize(bytes.data()));
  return bytes;
}

template <class T>
T fieldAt(const std::vector<std::byte>& bytes, size_t offset) {
  T value;
  std::memcpy(&value, bytes.data() + offset, sizeof value);
  return value;
}

template <class T>
void fieldIs(std::vector<std::byte>& bytes, size_t offset, T value) {
  std::memcpy(bytes.data() + offset, &value, sizeof value);
}

// What the core compares before it acts on a route status: the status's
// version against the route's version counter as the record stores it.
template <class Counter>
bool statusAnswers(const MplsHwRouteStatus& status, Counter routeVersion) {
  return status.version == static_cast<decltype(status.version)>(routeVersion);
}

// ---------------------------------------------------------------------------

TEST(RouteAdjacencyId, aHardwareFecIdReadsBackOnlyAsAHardwareFecId) {
  MplsHwRouteConfig config;
  config.hwFecIdIs(0x0900000000000042ull);
  EXPECT_EQ(config.adjacencyIdType, adjIdTypeHardware);
  EXPECT_EQ(config.hwFecId(), 0x0900000000000042ull);
  EXPECT_EQ(config.l2AdjId(), 0xffffffffffffffffull);
}

TEST(RouteAdjacencyId, aLayer2AdjacencyIndexReadsBackOnlyAsALayer2AdjacencyIndex) {
  MplsHwRouteConfig config;
  config.l2AdjIdIs(17);
  EXPECT_EQ(config.adjacencyIdType, adjIdTypeL2Adjacency);
  EXPECT_EQ(config.l2AdjId(), 17u);
  EXPECT_EQ(config.hwFecId(), 0xffffffffffffffffull);
}

TEST(RouteAdjacencyId, aRecordWithoutAnAdjacencyTypeGivesAllOnesForBoth) {
  MplsHwRouteConfig config;
  config.adjacencyId = 5;
  EXPECT_EQ(config.hwFecId(), 0xffffffffffffffffull);
  EXPECT_EQ(config.l2AdjId(), 0xffffffffffffffffull);
}

TEST(RouteAdjacencyId, theLastSetterDecidesHowTheIdIsRead) {
  MplsHwRouteConfig config;
  config.hwFecIdIs(99);
  config.l2AdjIdIs(3);
  EXPECT_EQ(config.l2AdjId(), 3u);
  EXPECT_EQ(config.hwFecId(), 0xffffffffffffffffull);
}

// ---------------------------------------------------------------------------

TEST(VersionHandshake, aStatusOfVersion255AnswersTheConfigWrittenAtCounter511) {
  const uint64_t routeVersion = 511;
  MplsHwRouteConfig config;
  config.version = static_cast<decltype(config.version)>(routeVersion);
  // The driver echoes the version of the config it acted on.
  MplsHwRouteStatus status;
  status.version = config.version;
  EXPECT_EQ(config.version, 255);
  EXPECT_EQ(status.version, 255);
  EXPECT_TRUE(statusAnswers(status, routeVersion));
}

TEST(VersionHandshake, aStatusEchoingCounter511IsTheSameAnswerAsOneOf255) {
  MplsHwRouteStatus echoed;
  echoed.version = static_cast<decltype(echoed.version)>(511u);
  MplsHwRouteStatus byte;
  byte.version = 255;
  EXPECT_EQ(echoed, byte);
}

TEST(VersionHandshake, aStatusOfAnEarlierVersionIsStale) {
  MplsHwRouteStatus status;
  status.version = 255;
  EXPECT_FALSE(statusAnswers(status, uint64_t{510}));
  EXPECT_FALSE(statusAnswers(status, uint64_t{512}));
  status.version = 0;
  EXPECT_TRUE(statusAnswers(status, uint64_t{256}));
}

TEST(VersionHandshake, aLayer2StatusOf255AnswersTheAdjacencyWrittenAtCounter511) {
  const uint64_t adjacencyVersion = 511;
  MplsHwL2AdjacencyConfig record(1);
  record.versionIs(static_cast<decltype(record.version())>(adjacencyVersion));
  MplsHwL2AdjacencyStatus status{1, mplsHwL2AdjStateProgrammed, record.version(), {}};
  EXPECT_EQ(status.version, 255);
  EXPECT_EQ(status.version, static_cast<decltype(status.version)>(adjacencyVersion));
}

// ---------------------------------------------------------------------------

TEST(Layer2AdjacencyVias, settingVia5OnATwoViaRecordMakesTheCountSix) {
  MplsHwL2AdjacencyConfig record = adjacencyWithVias(1, 2);
  record.l2ViaIs(MplsHwL2ViaIndex(5), viaFor(9));
  EXPECT_EQ(record.l2Vias(), 6u);
  EXPECT_EQ(record.l2Via(MplsHwL2ViaIndex(1)), viaFor(2));
  EXPECT_EQ(record.l2Via(MplsHwL2ViaIndex(3)), L2Via());
  EXPECT_EQ(record.l2Via(MplsHwL2ViaIndex(5)), viaFor(9));
}

TEST(Layer2AdjacencyVias, settingAViaBelowTheCountKeepsTheCount) {
  MplsHwL2AdjacencyConfig record = adjacencyWithVias(1, 4);
  record.l2ViaIs(MplsHwL2ViaIndex(1), viaFor(9));
  EXPECT_EQ(record.l2Vias(), 4u);
  EXPECT_EQ(record.l2Via(MplsHwL2ViaIndex(1)), viaFor(9));
}

TEST(Layer2AdjacencyVias, deletingAMiddleViaEmptiesItAndKeepsTheCount) {
  MplsHwL2AdjacencyConfig record = adjacencyWithVias(1, 3);
  record.l2ViaDel(MplsHwL2ViaIndex(1));
  EXPECT_EQ(record.l2Vias(), 3u);
  EXPECT_EQ(record.l2Via(MplsHwL2ViaIndex(1)), L2Via());
  EXPECT_EQ(record.l2Via(MplsHwL2ViaIndex(2)), viaFor(3));
}

TEST(Layer2AdjacencyVias, deletingTheLastViaLeavesNoEmptyViaAtTheEnd) {
  MplsHwL2AdjacencyConfig record = adjacencyWithVias(1, 4);
  record.l2ViaDel(MplsHwL2ViaIndex(3));
  EXPECT_EQ(record.l2Vias(), 3u);
  record.l2ViaDel(MplsHwL2ViaIndex(1));
  record.l2ViaDel(MplsHwL2ViaIndex(2));
  EXPECT_EQ(record.l2Vias(), 1u);
  EXPECT_EQ(record, adjacencyWithVias(1, 1));
}

TEST(Layer2AdjacencyVias, deletingAViaBeyondTheCountChangesNothing) {
  MplsHwL2AdjacencyConfig record = adjacencyWithVias(1, 2);
  record.l2ViaDel(MplsHwL2ViaIndex(5));
  EXPECT_EQ(record, adjacencyWithVias(1, 2));
}

TEST(Layer2AdjacencyVias, aRecordThatLostItsLastViaEqualsOneThatNeverHadIt) {
  MplsHwL2AdjacencyConfig record = adjacencyWithVias(1, 3);
  record.l2ViaDel(MplsHwL2ViaIndex(2));
  EXPECT_EQ(record, adjacencyWithVias(1, 2));
  EXPECT_NE(record, adjacencyWithVias(1, 3));
}

TEST(Layer2AdjacencyVias, viasSetAfterDeletingAllLeaveNoOldViaBehindThem) {
  MplsHwL2AdjacencyConfig record = adjacencyWithVias(1, 3);
  record.l2ViaDelAll();
  EXPECT_EQ(record.l2Vias(), 0u);
  record.l2ViaIs(MplsHwL2ViaIndex(2), viaFor(9));
  EXPECT_EQ(record.l2Vias(), 3u);
  EXPECT_EQ(record.l2Via(MplsHwL2ViaIndex(0)), L2Via());
  EXPECT_EQ(record.l2Via(MplsHwL2ViaIndex(1)), L2Via());
  std::vector<std::byte> bytes = serialized(record);
  EXPECT_EQ(fieldAt<uint32_t>(bytes, 16 + 0), 0u) << "via 0 still names an interface";
}

TEST(Layer2AdjacencyVias, aViaIndexStopsAt127) {
  EXPECT_EQ(MplsHwL2ViaIndex(127).value(), 127);
  EXPECT_THROW(MplsHwL2ViaIndex(128), std::out_of_range);
}

// ---------------------------------------------------------------------------

TEST(Layer2AdjacencySerialisation, sizesAre16BytesPlus44PerVia) {
  EXPECT_EQ(serialized(adjacencyWithVias(1, 0)).size(), 16u);
  EXPECT_EQ(serialized(adjacencyWithVias(1, 1)).size(), 60u);
  EXPECT_EQ(serialized(adjacencyWithVias(1, 128)).size(), 5648u);
  EXPECT_EQ(adjacencyWithVias(1, 128).serializedSize(), 5648u);
}

TEST(Layer2AdjacencySerialisation, recordsOf0_1And128ViasReadBackEqual) {
  for (uint32_t vias : {0u, 1u, 128u}) {
    MplsHwL2AdjacencyConfig record = adjacencyWithVias(40 + vias, vias);
    std::vector<std::byte> bytes = serialized(record);
    MplsHwL2AdjacencyConfig back;
    ASSERT_TRUE(MplsHwL2AdjacencyConfig::deserialize(bytes.data(), bytes.size(), back)) << vias;
    EXPECT_EQ(back, record) << vias;
    EXPECT_EQ(back.l2Vias(), vias);
  }
}

TEST(Layer2AdjacencySerialisation, aRecordDecodedOverALongerOneKeepsNoneOfItsVias) {
  MplsHwL2AdjacencyConfig back = adjacencyWithVias(7, 5);
  back.versionIs(3);
  const MplsHwL2AdjacencyConfig shorter = adjacencyWithVias(8, 2);
  std::vector<std::byte> bytes = serialized(shorter);
  ASSERT_TRUE(MplsHwL2AdjacencyConfig::deserialize(bytes.data(), bytes.size(), back));
  EXPECT_EQ(back, shorter);
  EXPECT_EQ(back.key(), 8u);
  EXPECT_EQ(back.version(), shorter.version());
  for (uint32_t i = 2; i < 6; ++i) EXPECT_EQ(back.l2Via(MplsHwL2ViaIndex(i)), L2Via()) << i;
  back.l2ViaIs(MplsHwL2ViaIndex(4), viaFor(9));
  EXPECT_EQ(back.l2Via(MplsHwL2ViaIndex(3)), L2Via()) << "exposed again by a later via";
}

TEST(Layer2AdjacencySerialisation, theBytesFollowTheDriversLayout) {
  MplsHwL2AdjacencyConfig record(0x1122334455667788ull);
  record.versionIs(9);
  record.l2ViaIs(MplsHwL2ViaIndex(1), viaFor(2));
  std::vector<std::byte> bytes = serialized(record);
  ASSERT_EQ(bytes.size(), 16u + 2 * 44);
  EXPECT_EQ(fieldAt<uint64_t>(bytes, 0), 0x1122334455667788ull);
  EXPECT_EQ(fieldAt<uint8_t>(bytes, 8), 9);
  EXPECT_EQ(fieldAt<uint8_t>(bytes, 9) | fieldAt<uint8_t>(bytes, 10) | fieldAt<uint8_t>(bytes, 11),
            0);
  EXPECT_EQ(fieldAt<uint32_t>(bytes, 12), 2u);
  const size_t via = 16 + 44;
  const L2Via expected = viaFor(2);
  EXPECT_EQ(fieldAt<uint32_t>(bytes, via + 0), expected.intf.value());
  EXPECT_EQ(fieldAt<Bexo::EthAddr::Bytes>(bytes, via + 4), expected.mac.bytes());
  EXPECT_EQ(fieldAt<uint16_t>(bytes, via + 10), 102);
  EXPECT_EQ(fieldAt<uint32_t>(bytes, via + 12), 1002u);
  EXPECT_EQ(fieldAt<uint32_t>(bytes, via + 16), 2u);
  EXPECT_EQ(fieldAt<uint8_t>(bytes, via + 20), 10);
  EXPECT_EQ(fieldAt<uint8_t>(bytes, via + 23), 2);
  EXPECT_EQ(fieldAt<uint8_t>(bytes, via + 36), Bexo::afIpv4);
}

TEST(Layer2AdjacencySerialisation, aStoredCountAbove128IsCorruptEvenWhenTheLengthMatchesIt) {
  std::vector<std::byte> bytes = serialized(adjacencyWithVias(1, 128));
  bytes.resize(16 + 44 * 129);
  fieldIs<uint32_t>(bytes, 12, 129);
  MplsHwL2AdjacencyConfig back;
  EXPECT_FALSE(MplsHwL2AdjacencyConfig::deserialize(bytes.data(), bytes.size(), back));
}

TEST(Layer2AdjacencySerialisation, aLengthThatDisagreesWithTheCountIsCorrupt) {
  std::vector<std::byte> bytes = serialized(adjacencyWithVias(1, 3));
  fieldIs<uint32_t>(bytes, 12, 2);
  MplsHwL2AdjacencyConfig back;
  EXPECT_FALSE(MplsHwL2AdjacencyConfig::deserialize(bytes.data(), bytes.size(), back));
  EXPECT_FALSE(MplsHwL2AdjacencyConfig::deserialize(bytes.data(), 15, back));
}

// ---------------------------------------------------------------------------
// Bytes of the fixed records that the driver reads or writes and that the
// header's offset checks do not pin down.

template <class R>
std::vector<std::byte> bytesOf(const R& record) {
  std::vector<std::byte> bytes(sizeof record);
  std::memcpy(bytes.data(), &record, sizeof record);
  return bytes;
}

TEST(FixedRecordBytes, theRouteStatusCarriesItsResourceFlagAtByte17) {
  MplsHwRouteStatus status;
  status.version = 0xee;
  status.resourceFlag = 1;
  std::vector<std::byte> bytes = bytesOf(status);
  EXPECT_EQ(fieldAt<uint8_t>(bytes, 16), 0xee);
  EXPECT_EQ(fieldAt<uint8_t>(bytes, 17), 1);
}

TEST(FixedRecordBytes, theRouteSyncMapIs16BytesWithItsSyncIdAtByte8) {
  MplsRouteSyncMap entry{Mpls::RouteKey(Bexo::MplsLabel(16), 2), ::Qel::AdjSyncId{4, 21}};
  std::vector<std::byte> bytes = bytesOf(entry);
  ASSERT_EQ(bytes.size(), 16u);
  EXPECT_EQ(fieldAt<uint32_t>(bytes, 0), 16u);
  EXPECT_EQ(fieldAt<uint8_t>(bytes, 4), 2);
  EXPECT_EQ(fieldAt<uint32_t>(bytes, 8), 4u);
  EXPECT_EQ(fieldAt<uint32_t>(bytes, 12), 21u);
}

// ---------------------------------------------------------------------------

MplsHwRouteConfig sampleRouteConfig() {
  MplsHwRouteConfig config;
  config.routeKey = Mpls::RouteKey(Bexo::MplsLabel(100), 2);
  config.labelAction = Bexo::mplsActionSwap;
  config.payloadType = Mpls::PayloadType::payloadMpls;
  config.addressing = Bexo::addressingNexthop;
  config.l2AdjIdIs(12);
  config.version = 3;
  return config;
}

TEST(TextForms, routeConfig) {
  EXPECT_EQ(sampleRouteConfig().stringValue(),
            "Value('Vosh::Qel::MplsHwRouteConfig', ** {'routeKey': 100/2, 'labelAction': swap, "
            "'payloadType': mpls, 'addressing': nexthop, 'adjacencyIdType': adjIdTypeL2Adjacency, "
            "'adjacencyId': 12, 'version': 3})");
}

TEST(TextForms, routeStatus) {
  MplsHwRouteStatus status;
  status.routeKey = Mpls::RouteKey(Bexo::MplsLabel(100));
  status.state = mplsHwRouteStateUnprogrammed;
  status.reason = mplsHwUnprogReasonAdjacencyFull;
  status.version = 255;
  status.resourceFlag = 1;
  EXPECT_EQ(status.stringValue(),
            "Value('Vosh::Qel::MplsHwRouteStatus', ** {'routeKey': 100, 'state': "
            "mplsHwRouteStateUnprogrammed, 'reason': mplsHwUnprogReasonAdjacencyFull, "
            "'version': 255})");
}

TEST(TextForms, routeSyncMap) {
  MplsRouteSyncMap entry{Mpls::RouteKey(Bexo::MplsLabel(16)), ::Qel::AdjSyncId{4, 21}};
  EXPECT_EQ(entry.stringValue(),
            "Value('Vosh::Qel::MplsRouteSyncMap', ** {'routeKey': 16, 'syncId': 4.21})");
}

TEST(TextForms, layer2AdjacencyConfigListsItsUsedVias) {
  EXPECT_EQ(
      adjacencyWithVias(6, 0).stringValue(),
      "Value('Vosh::Qel::MplsHwL2AdjacencyConfig', ** {'key': 6, 'version': 7, 'l2Via': []})");
  EXPECT_EQ(adjacencyWithVias(6, 2).stringValue(),
            "Value('Vosh::Qel::MplsHwL2AdjacencyConfig', ** {'key': 6, 'version': 7, 'l2Via': "
            "[Ethernet1 mac 00:1c:73:00:00:01 vlan 101 label 1001 weight 1, "
            "Ethernet2 mac 00:1c:73:00:00:02 vlan 102 label 1002 weight 2]})");
}

TEST(TextForms, layer2AdjacencyStatus) {
  MplsHwL2AdjacencyStatus status{6, mplsHwL2AdjStateProgrammed, 7, {}};
  EXPECT_EQ(status.stringValue(),
            "Value('Vosh::Qel::MplsHwL2AdjacencyStatus', ** {'key': 6, 'state': "
            "mplsHwL2AdjStateProgrammed, 'version': 7})");
}

TEST(TextForms, stateDatabaseValues) {
  EXPECT_EQ((::Qel::McastHwId{true, 7}).stringValue(),
            "Value('Qel::McastHwId', ** {'valid': true, 'value': 7})");
  ::Qel::MplsHwRoute route{Mpls::RouteKey(Bexo::MplsLabel(100)), nullptr, 4};
  EXPECT_EQ(route.stringValue(),
            "Value('Qel::MplsHwRoute', ** {'routeKey': 100, 'l2Adjacency': 0, 'version': 4})");
}

// ---------------------------------------------------------------------------

// The names in traces and text forms must follow the numbers the driver sees.
TEST(Enumerations, eachNumberTheDriverSeesCarriesItsOwnName) {
  EXPECT_EQ(stringValue(MplsHwAdjacencyIdType(0)), "adjIdTypeUnknown");
  EXPECT_EQ(stringValue(MplsHwAdjacencyIdType(1)), "adjIdTypeHardware");
  EXPECT_EQ(stringValue(MplsHwAdjacencyIdType(2)), "adjIdTypeL2Adjacency");
  EXPECT_EQ(stringValue(MplsHwRouteState(0)), "mplsHwRouteStateUnknown");
  EXPECT_EQ(stringValue(MplsHwRouteState(1)), "mplsHwRouteStateProgrammed");
  EXPECT_EQ(stringValue(MplsHwRouteState(2)), "mplsHwRouteStateUnprogrammed");
  EXPECT_EQ(stringValue(MplsHwRouteUnprogrammedReason(0)), "mplsHwUnprogReasonSuccess");
  EXPECT_EQ(stringValue(MplsHwRouteUnprogrammedReason(1)), "mplsHwUnprogReasonRouteFull");
  EXPECT_EQ(stringValue(MplsHwRouteUnprogrammedReason(2)), "mplsHwUnprogReasonAdjacencyFull");
  EXPECT_EQ(stringValue(MplsHwRouteUnprogrammedReason(3)), "mplsHwUnprogReasonInterfaceNotReady");
  EXPECT_EQ(stringValue(MplsHwRouteUnprogrammedReason(4)), "mplsHwUnprogReasonInvalidFecId");
  EXPECT_EQ(stringValue(MplsHwL2AdjacencyState(0)), "mplsHwL2AdjStateUnknown");
  EXPECT_EQ(stringValue(MplsHwL2AdjacencyState(1)), "mplsHwL2AdjStateProgrammed");
  EXPECT_EQ(stringValue(MplsHwL2AdjacencyState(2)), "mplsHwL2AdjStateUnprogrammed");
}

TEST(Enumerations, namesParseBackToTheDriversNumbers) {
  EXPECT_EQ(mplsHwRouteUnprogrammedReasonInstance("mplsHwUnprogReasonInvalidFecId"), 4u);
  EXPECT_EQ(mplsHwRouteStateInstance("mplsHwRouteStateUnprogrammed"), 2u);
  EXPECT_EQ(mplsHwL2AdjacencyStateInstance("mplsHwL2AdjStateUnprogrammed"), 2u);
  EXPECT_THROW(mplsHwRouteStateInstance("programmed"), std::invalid_argument);
}

// ---------------------------------------------------------------------------

TEST(EmptyRecords, aDefaultRecordIsEmptyAndAnyFieldMakesItPresent) {
  EXPECT_FALSE(MplsHwRouteConfig());
  EXPECT_FALSE(MplsHwRouteStatus());
  EXPECT_FALSE(MplsHwL2AdjacencyConfig());
  EXPECT_FALSE(MplsHwL2AdjacencyStatus());
  EXPECT_FALSE(MplsRouteSyncMap());

  MplsHwRouteConfig config;
  config.version = 1;
  EXPECT_TRUE(config);
  MplsHwRouteStatus status;
  status.resourceFlag = 1;
  EXPECT_TRUE(status);
  EXPECT_TRUE(MplsHwL2AdjacencyConfig(1));
  EXPECT_TRUE((MplsHwL2AdjacencyStatus{0, mplsHwL2AdjStateProgrammed, 0, {}}));
  EXPECT_TRUE((MplsRouteSyncMap{Mpls::RouteKey(), ::Qel::AdjSyncId{0, 1}}));
}

TEST(McastHwIdOrder, anInvalidIdSortsBeforeEveryValidOne) {
  EXPECT_LT((::Qel::McastHwId{false, 900}), (::Qel::McastHwId{true, 1}));
  EXPECT_LT((::Qel::McastHwId{true, 1}), (::Qel::McastHwId{true, 2}));
  EXPECT_EQ(::Qel::McastHwId::invalid(), (::Qel::McastHwId{false, 0}));
}

}  // namespace
