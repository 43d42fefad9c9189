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

bool decodes(const std::vector<std::byte>& bytes, MplsHwL2AdjacencyConfig& into) {
  return MplsHwL2AdjacencyConfig::deserialize(bytes.data(), bytes.size(), into);
}

// The count always ends on the last used via: a via set past it exposes the
// slots between as empty, a deleted last via takes emptied ones before it.
TEST(Layer2AdjacencyVias, theCountEndsOnTheLastUsedVia) {
  MplsHwL2AdjacencyConfig record = adjacencyWithVias(1, 2);
  record.l2ViaIs(MplsHwL2ViaIndex(5), viaFor(9));
  EXPECT_EQ(record.l2Vias(), 6u);
  EXPECT_EQ(record.l2Via(MplsHwL2ViaIndex(3)), L2Via());
  record.l2ViaIs(MplsHwL2ViaIndex(1), viaFor(8));
  EXPECT_EQ(record.l2Vias(), 6u) << "a via below the count keeps it";

  record = adjacencyWithVias(1, 4);
  record.l2ViaDel(MplsHwL2ViaIndex(1));
  EXPECT_EQ(record.l2Vias(), 4u) << "a middle via is emptied in place";
  EXPECT_EQ(record.l2Via(MplsHwL2ViaIndex(1)), L2Via());
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

  EXPECT_EQ(MplsHwL2ViaIndex(127).value(), 127);
  EXPECT_THROW(MplsHwL2ViaIndex(128), std::out_of_range);
}

// Each record is decoded over the longer one before it, whose vias past the
// new count must read as empty, even once a later via exposes them again.
TEST(Layer2AdjacencySerialisation, recordsOf128_1And0ViasTake16BytesPlus44PerViaAndReadBack) {
  MplsHwL2AdjacencyConfig back;
  for (uint32_t vias : {128u, 1u, 0u}) {
    MplsHwL2AdjacencyConfig record = adjacencyWithVias(40 + vias, vias);
    std::vector<std::byte> bytes = serialized(record);
    EXPECT_EQ(bytes.size(), 16u + 44 * vias);
    EXPECT_EQ(record.serializedSize(), bytes.size());
    ASSERT_TRUE(decodes(bytes, back)) << vias;
    EXPECT_EQ(back, record) << vias;
    for (uint32_t i = vias; i < 6; ++i) EXPECT_EQ(back.l2Via(MplsHwL2ViaIndex(i)), L2Via()) << i;
  }
  back.l2ViaIs(MplsHwL2ViaIndex(4), viaFor(9));
  EXPECT_EQ(back.l2Via(MplsHwL2ViaIndex(3)), L2Via()) << "exposed again by a later via";
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

// Traces and the driver's dump list a layer-2 adjacency's used vias.
TEST(TextForms, aLayer2AdjacencyListsItsUsedVias) {
  EXPECT_EQ(adjacencyWithVias(6, 2).stringValue(),
            "Value('Vosh::Qel::MplsHwL2AdjacencyConfig', ** {'key': 6, 'version': 7, 'l2Via': "
            "[Ethernet1 mac 00:1c:73:00:00:01 vlan 101 label 1001 weight 1, "
            "Ethernet2 mac 00:1c:73:00:00:02 vlan 102 label 1002 weight 2]})");
}

// A record is present once any field differs from a default one.
TEST(EmptyRecords, aDefaultRecordIsEmptyAndAnyFieldMakesItPresent) {
  EXPECT_FALSE(MplsHwRouteConfig());
  EXPECT_FALSE(MplsHwRouteStatus());
  EXPECT_FALSE(MplsHwL2AdjacencyConfig());
  EXPECT_FALSE(MplsHwL2AdjacencyStatus());
  MplsHwRouteConfig config;
  config.version = 1;
  EXPECT_TRUE(config);
  MplsHwRouteStatus status;
  status.resourceFlag = 1;
  EXPECT_TRUE(status);
  EXPECT_TRUE(MplsHwL2AdjacencyConfig(1));
  EXPECT_TRUE((MplsHwL2AdjacencyStatus{0, mplsHwL2AdjStateProgrammed, 0, {}}));
}

}  // namespace
