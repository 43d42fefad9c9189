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

template <class R>
std::vector<std::byte> bytesOf(const R& record) {
  std::vector<std::byte> bytes(sizeof record);
  std::memcpy(bytes.data(), &record, sizeof record);
  return bytes;
}

template <class T>
T fieldAt(const std::vector<std::byte>& bytes, size_t offset) {
  T value;
  std::memcpy(&value, bytes.data() + offset, sizeof value);
  return value;
}

bool decodes(const std::vector<std::byte>& bytes, MplsHwL2AdjacencyConfig& into) {
  return MplsHwL2AdjacencyConfig::deserialize(bytes.data(), bytes.size(), into);
}

TEST(RouteAdjacencyId, theLastSetterDecidesHowTheIdReadsAndTheOtherReadsAllOnes) {
  constexpr uint64_t kNone = 0xffffffffffffffffull;
  MplsHwRouteConfig config;
  config.adjacencyId = 5;
  EXPECT_EQ(config.hwFecId(), kNone);
  EXPECT_EQ(config.l2AdjId(), kNone);
  config.hwFecIdIs(0x0900000000000042ull);
  EXPECT_EQ(config.adjacencyIdType, adjIdTypeHardware);
  EXPECT_EQ(config.hwFecId(), 0x0900000000000042ull);
  EXPECT_EQ(config.l2AdjId(), kNone);
  config.l2AdjIdIs(17);
  EXPECT_EQ(config.adjacencyIdType, adjIdTypeL2Adjacency);
  EXPECT_EQ(config.l2AdjId(), 17u);
  EXPECT_EQ(config.hwFecId(), kNone);
}

// The count always ends on the last used via: a via set past it exposes the
// slots between as empty, a deleted last via takes emptied ones before it.
TEST(Layer2AdjacencyVias, theCountEndsOnTheLastUsedVia) {
  MplsHwL2AdjacencyConfig record = adjacencyWithVias(1, 2);
  record.l2ViaIs(MplsHwL2ViaIndex(5), viaFor(9));
  EXPECT_EQ(record.l2Vias(), 6u);
  EXPECT_EQ(record.l2Via(MplsHwL2ViaIndex(1)), viaFor(2));
  EXPECT_EQ(record.l2Via(MplsHwL2ViaIndex(3)), L2Via());
  EXPECT_EQ(record.l2Via(MplsHwL2ViaIndex(5)), viaFor(9));
  record.l2ViaIs(MplsHwL2ViaIndex(1), viaFor(8));
  EXPECT_EQ(record.l2Vias(), 6u) << "a via below the count keeps it";
  EXPECT_EQ(record.l2Via(MplsHwL2ViaIndex(1)), viaFor(8));

  record = adjacencyWithVias(1, 4);
  record.l2ViaDel(MplsHwL2ViaIndex(1));
  EXPECT_EQ(record.l2Vias(), 4u) << "a middle via is emptied in place";
  EXPECT_EQ(record.l2Via(MplsHwL2ViaIndex(1)), L2Via());
  EXPECT_EQ(record.l2Via(MplsHwL2ViaIndex(2)), viaFor(3));
  record.l2ViaDel(MplsHwL2ViaIndex(7));
  EXPECT_EQ(record.l2Vias(), 4u) << "a via beyond the count changes nothing";
  record.l2ViaDel(MplsHwL2ViaIndex(3));
  EXPECT_EQ(record.l2Vias(), 3u);
  record.l2ViaDel(MplsHwL2ViaIndex(2));
  EXPECT_EQ(record, adjacencyWithVias(1, 1)) << "equal to one that never had the others";
  EXPECT_NE(record, adjacencyWithVias(1, 2));
  record.l2ViaDel(MplsHwL2ViaIndex(0));
  EXPECT_EQ(record.l2Vias(), 0u);

  record = adjacencyWithVias(1, 3);
  record.l2ViaDelAll();
  EXPECT_EQ(record.l2Vias(), 0u);
  record.l2ViaIs(MplsHwL2ViaIndex(2), viaFor(9));
  EXPECT_EQ(record.l2Vias(), 3u);
  EXPECT_EQ(record.l2Via(MplsHwL2ViaIndex(0)), L2Via()) << "no old via behind a new one";
  EXPECT_EQ(record.l2Via(MplsHwL2ViaIndex(1)), L2Via());
  EXPECT_EQ(fieldAt<uint32_t>(serialized(record), 16), 0u) << "via 0 still names an interface";

  EXPECT_EQ(MplsHwL2ViaIndex(127).value(), 127);
  EXPECT_THROW(MplsHwL2ViaIndex(128), std::out_of_range);
}

TEST(Layer2AdjacencySerialisation, recordsOf0_1And128ViasTake16BytesPlus44PerViaAndReadBack) {
  for (uint32_t vias : {0u, 1u, 128u}) {
    MplsHwL2AdjacencyConfig record = adjacencyWithVias(40 + vias, vias);
    std::vector<std::byte> bytes = serialized(record);
    EXPECT_EQ(bytes.size(), 16u + 44 * vias);
    EXPECT_EQ(record.serializedSize(), bytes.size());
    MplsHwL2AdjacencyConfig back;
    ASSERT_TRUE(decodes(bytes, back)) << vias;
    EXPECT_EQ(back, record) << vias;
  }
}

TEST(Layer2AdjacencySerialisation, aRecordDecodedOverALongerOneKeepsNoneOfItsVias) {
  MplsHwL2AdjacencyConfig back = adjacencyWithVias(7, 5);
  back.versionIs(3);
  const MplsHwL2AdjacencyConfig shorter = adjacencyWithVias(8, 2);
  ASSERT_TRUE(decodes(serialized(shorter), back));
  EXPECT_EQ(back, shorter);
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
  EXPECT_EQ(fieldAt<uint32_t>(bytes, via + 0), viaFor(2).intf.value());
  EXPECT_EQ(fieldAt<Bexo::EthAddr::Bytes>(bytes, via + 4), viaFor(2).mac.bytes());
  EXPECT_EQ(fieldAt<uint16_t>(bytes, via + 10), 102);
  EXPECT_EQ(fieldAt<uint32_t>(bytes, via + 12), 1002u);
  EXPECT_EQ(fieldAt<uint32_t>(bytes, via + 16), 2u);
  EXPECT_EQ(fieldAt<uint8_t>(bytes, via + 20), 10);
  EXPECT_EQ(fieldAt<uint8_t>(bytes, via + 23), 2);
  EXPECT_EQ(fieldAt<uint8_t>(bytes, via + 36), Bexo::afIpv4);

  // Bytes of the fixed records that the header's offset checks leave open.
  MplsHwRouteStatus status;
  status.version = 0xee;
  status.resourceFlag = 1;
  EXPECT_EQ(fieldAt<uint8_t>(bytesOf(status), 16), 0xee);
  EXPECT_EQ(fieldAt<uint8_t>(bytesOf(status), 17), 1);
  std::vector<std::byte> sync =
      bytesOf(MplsRouteSyncMap{Mpls::RouteKey(Bexo::MplsLabel(16), 2), ::Qel::AdjSyncId{4, 21}});
  ASSERT_EQ(sync.size(), 16u);
  EXPECT_EQ(fieldAt<uint32_t>(sync, 0), 16u);
  EXPECT_EQ(fieldAt<uint8_t>(sync, 4), 2);
  EXPECT_EQ(fieldAt<uint32_t>(sync, 8), 4u);
  EXPECT_EQ(fieldAt<uint32_t>(sync, 12), 21u);
}

TEST(Layer2AdjacencySerialisation, aCountAbove128OrDisagreeingWithTheLengthIsCorrupt) {
  MplsHwL2AdjacencyConfig back;
  std::vector<std::byte> bytes = serialized(adjacencyWithVias(1, 128));
  bytes.resize(16 + 44 * 129);
  const uint32_t tooMany = 129;
  std::memcpy(bytes.data() + 12, &tooMany, 4);
  EXPECT_FALSE(decodes(bytes, back)) << "even when the length matches the count";

  bytes = serialized(adjacencyWithVias(1, 3));
  const uint32_t two = 2;
  std::memcpy(bytes.data() + 12, &two, 4);
  EXPECT_FALSE(decodes(bytes, back));
  EXPECT_FALSE(MplsHwL2AdjacencyConfig::deserialize(bytes.data(), 15, back));
  EXPECT_EQ(back, MplsHwL2AdjacencyConfig()) << "a corrupt record leaves the target alone";
}

// Traces and the driver's dump show records in these forms.
TEST(TextForms, aLayer2AdjacencyListsItsUsedViasAndARouteNamesItsAdjacencyKind) {
  EXPECT_EQ(
      adjacencyWithVias(6, 0).stringValue(),
      "Value('Vosh::Qel::MplsHwL2AdjacencyConfig', ** {'key': 6, 'version': 7, 'l2Via': []})");
  EXPECT_EQ(adjacencyWithVias(6, 2).stringValue(),
            "Value('Vosh::Qel::MplsHwL2AdjacencyConfig', ** {'key': 6, 'version': 7, 'l2Via': "
            "[Ethernet1 mac 00:1c:73:00:00:01 vlan 101 label 1001 weight 1, "
            "Ethernet2 mac 00:1c:73:00:00:02 vlan 102 label 1002 weight 2]})");
  MplsHwRouteConfig config;
  config.routeKey = Mpls::RouteKey(Bexo::MplsLabel(100), 2);
  config.labelAction = Bexo::mplsActionSwap;
  config.payloadType = Mpls::PayloadType::payloadMpls;
  config.addressing = Bexo::addressingNexthop;
  config.l2AdjIdIs(12);
  config.version = 3;
  EXPECT_EQ(config.stringValue(),
            "Value('Vosh::Qel::MplsHwRouteConfig', ** {'routeKey': 100/2, 'labelAction': swap, "
            "'payloadType': mpls, 'addressing': nexthop, 'adjacencyIdType': adjIdTypeL2Adjacency, "
            "'adjacencyId': 12, 'version': 3})");
}

// A record is present once any field differs from a default one.
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

}  // namespace
