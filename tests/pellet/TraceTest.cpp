#include <cstdio>
#include <deque>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "pellet/LevelSettings.h"
#include "pellet/Ring.h"
#include "pellet/Trace.h"

namespace {

using Pellet::levelBit;

std::vector<std::string> messagesOf(const std::vector<Pellet::Record>& records) {
  std::vector<std::string> out;
  for (const Pellet::Record& record : records) out.push_back(record.message);
  return out;
}

// What a trace at `level` writes to stderr.
std::string echoOf(const Pellet::Facility& fac, int level, const std::string& message) {
  testing::internal::CaptureStderr();
  PELLET_TRACE(fac, level, "{}", message);
  return testing::internal::GetCapturedStderr();
}

// Levels a capture turned on stay on while any capture lives, and then are as
// configured again.
TEST(Capture, seesEveryLevelOfItsFacilitiesWithoutPuttingThemIntoTheRings) {
  Pellet::Facility wanted(Pellet::handle("CaptureTests"), "WantedSm");
  Pellet::Facility other(Pellet::handle("CaptureTests"), "OtherSm");
  Pellet::enable("WantedSm", levelBit(4), false);
  {
    Pellet::Capture all;
    {
      Pellet::Capture named{"WantedSm", "LateSm"};
      PELLET_TRACE(wanted, 9, "Delet stale route: {}", 16);
      PELLET_TRACE(other, 0, "route {} programmed", 17);
      Pellet::Facility late(Pellet::handle("CaptureTests"), "LateSm");
      PELLET_TRACE(late, 5, "Delet stale route: {}", 18);
      ASSERT_EQ(named.messages().size(), 2u);
      EXPECT_EQ(named.messages()[1].text, "Delet stale route: 18");
    }
    EXPECT_TRUE(all.contains("Delet stale route: "));
    EXPECT_FALSE(all.contains("absent"));
    EXPECT_EQ(all.count("Delet stale route: "), 2u);
    ASSERT_EQ(all.messages().size(), 3u);
    EXPECT_EQ(all.messages()[0].facility, "WantedSm");
    EXPECT_EQ(all.messages()[0].level, 9);
    EXPECT_EQ(all.messages()[0].text, "Delet stale route: 16");
    EXPECT_TRUE(wanted.handle().records(9).empty());
    EXPECT_TRUE(wanted.on(9));
  }
  EXPECT_FALSE(wanted.on(9));
  EXPECT_FALSE(wanted.on(0));
  EXPECT_TRUE(wanted.on(4));
}

// The lines of a dump that belong to handles whose name starts with `prefix`, without their
// sequence numbers, which depend on what else the process traced; those must increase.
std::vector<std::string> linesOf(const std::string& dump, const std::string& prefix) {
  std::vector<std::string> out;
  std::istringstream in(dump);
  unsigned long long previous = 0;
  for (std::string line; std::getline(in, line);) {
    const unsigned long long sequence = std::stoull(line);
    EXPECT_GT(sequence, previous) << line;
    previous = sequence;
    const std::string rest = line.substr(line.find(' ') + 1);
    if (rest.find(" " + prefix) != std::string::npos) out.push_back(rest);
  }
  return out;
}

// A handle's records merge its levels in trace order; the dump merges the handles too.
TEST(Dump, mergesHandlesAndLevelsInTraceOrderWithIncreasingSequenceToAStreamOrAFile) {
  Pellet::timeSourceIs([] { return 1.25; });
  Pellet::Handle& handleB = Pellet::handle("DumpB");
  Pellet::Facility a(handleB, "DumpBSm");
  Pellet::Facility b(Pellet::handle("DumpA"), "DumpASm");
  Pellet::Facility c(handleB, "DumpBOtherSm");
  PELLET_TRACE(a, 2, "first");
  PELLET_TRACE(b, 0, "second {}", 2);
  PELLET_TRACE(c, 0, "third");
  PELLET_TRACE(b, 1, "fourth");
  Pellet::timeSourceIs(nullptr);

  const std::vector<Pellet::Record> records = handleB.records();
  ASSERT_EQ(messagesOf(records), (std::vector<std::string>{"first", "third"}));
  EXPECT_EQ(records[1].level, 0);
  EXPECT_EQ(records[1].facility, "DumpBOtherSm");
  EXPECT_EQ(records[1].time, 1.25);
  EXPECT_LT(records[0].sequence, records[1].sequence);
  std::ostringstream out;
  Pellet::dump(out);
  EXPECT_EQ(linesOf(out.str(), "Dump"),
            (std::vector<std::string>{
                "1.250000 DumpB DumpBSm 2 first", "1.250000 DumpA DumpASm 0 second 2",
                "1.250000 DumpB DumpBOtherSm 0 third", "1.250000 DumpA DumpASm 1 fourth"}));

  // To a file, the same text; a path it cannot write is reported.
  const std::string path = testing::TempDir() + "pellet_dump.txt";
  ASSERT_TRUE(Pellet::dumpToFile(path));
  std::stringstream written;
  written << std::ifstream(path).rdbuf();
  std::remove(path.c_str());
  EXPECT_EQ(written.str(), out.str());
  EXPECT_FALSE(Pellet::dumpToFile("/nonexistent-directory/pellet_dump.txt"));
}

TEST(Facility, recordsLevelsZeroToTwoByDefaultAndEvaluatesNoArgumentsOfAnOffLevel) {
  Pellet::Facility fac(Pellet::handle("FacilityTests"), "DefaultFac");
  for (int level = 0; level < Pellet::levelCount; ++level) EXPECT_EQ(fac.on(level), level <= 2);
  int evaluations = 0;
  auto costly = [&] { return ++evaluations; };
  PELLET_TRACE(fac, 7, "costly {}", costly());
  EXPECT_EQ(evaluations, 0);
  PELLET_TRACE(fac, 1, "costly {}", costly());
  EXPECT_EQ(evaluations, 1);
}

// A rule for every facility holds for later ones until a rule of their own overrides it.
TEST(Facility, enableSetsExactlyTheGivenLevelsForCopiesAndLaterFacilitiesOfTheName) {
  Pellet::enable("*", levelBit(8), false);
  Pellet::Facility original(Pellet::handle("FacilityTests"), "EnabledFac");
  Pellet::Facility copy = original;
  Pellet::enable("EnabledFac", levelBit(5), false);
  Pellet::Facility later(Pellet::handle("OtherFacilityTests"), "EnabledFac");
  Pellet::Facility again(Pellet::handle("FacilityTests"), "EnabledFac");
  Pellet::Facility other(Pellet::handle("FacilityTests"), "OtherStarFac");
  for (const Pellet::Facility* fac : {&original, &copy, &later, &again}) {
    EXPECT_TRUE(fac->on(5));
    EXPECT_FALSE(fac->on(0));
    EXPECT_FALSE(fac->on(8));
  }
  EXPECT_TRUE(other.on(8));
  PELLET_TRACE(copy, 5, "at five");
  EXPECT_EQ(messagesOf(original.handle().records(5)), std::vector<std::string>{"at five"});
  Pellet::enable("*", Pellet::defaultLevels, false);
  EXPECT_TRUE(original.on(0));
  EXPECT_FALSE(original.on(5));
}

TEST(Facility, echoesTimeFacilityLevelAndMessageOfTheEchoedLevelsOnly) {
  Pellet::Facility fac(Pellet::handle("FacilityTests"), "EchoFac");
  Pellet::enable("EchoFac", levelBit(4), true);
  Pellet::timeSourceIs([] { return 2.5; });
  EXPECT_EQ(echoOf(fac, 4, "hello 7"), "2.500000 EchoFac 4 hello 7\n");
  Pellet::timeSourceIs(nullptr);
  Pellet::Facility configured(Pellet::handle("FacilityTests"), "ConfiguredFac");
  Pellet::configure("ConfiguredFac/3-4");
  EXPECT_EQ(echoOf(configured, 0, "recorded only"), "");
  EXPECT_NE(echoOf(configured, 3, "echoed").find("ConfiguredFac 3 echoed"), std::string::npos);
  EXPECT_EQ(configured.handle().records(0).back().message, "recorded only");
}

// Made again with other sizes, it keeps only the levels whose size is unchanged.
TEST(Handle, isMadeOnceWithSixteenKibPerLevelUnlessGivenSizes) {
  EXPECT_EQ(&Pellet::handle("LookupHandle"), &Pellet::handle("LookupHandle"));
  EXPECT_NE(&Pellet::handle("LookupHandle"), &Pellet::handle("OtherLookupHandle"));
  for (int level = 0; level < Pellet::levelCount; ++level) {
    EXPECT_EQ(Pellet::handle("LookupHandle").capacityBytes(level), 16u * 1024);
  }
  Pellet::Handle& sized =
      Pellet::initializeHandle("SizedHandle", {10, 10, 50, 300, 100, 500, 50, 200, 10, 0});
  EXPECT_EQ(sized.capacityBytes(0), 10u * 1024);
  EXPECT_EQ(sized.capacityBytes(5), 500u * 1024);
  EXPECT_EQ(sized.capacityBytes(9), 0u);
  Pellet::Facility fac(sized, "ResizedFac");
  PELLET_TRACE(fac, 0, "kept");
  PELLET_TRACE(fac, 1, "dropped");
  EXPECT_EQ(&Pellet::initializeHandle("SizedHandle", {10, 2, 50, 300, 100, 500, 50, 200, 10, 0}),
            &sized);
  EXPECT_EQ(messagesOf(sized.records(0)), std::vector<std::string>{"kept"});
  EXPECT_TRUE(sized.records(1).empty());
  EXPECT_EQ(sized.capacityBytes(1), 2u * 1024);
}

struct SettingsCase {
  std::string text;
  std::vector<Pellet::LevelSetting> expected;
  // Empty: no complaint at all.
  std::string complaint;
};

// A bad item is reported and skipped while the rest of the text is kept.
TEST(LevelSettings, takeEveryGoodItemAndReportEachBadOne) {
  const Pellet::LevelMask a = levelBit(0) | levelBit(3) | levelBit(5) | levelBit(6) | levelBit(7);
  std::vector<SettingsCase> cases{
      {"QelMplsSm/0-9", {{"QelMplsSm", Pellet::allLevels}}, ""},
      {"A/0,3,5-7,B/1", {{"A", a}, {"B", levelBit(1)}}, ""},
      {" */2 , 4 ,", {{"*", levelBit(2) | levelBit(4)}}, ""},
      {"", {}, ""},
      {"A/x,4", {{"A", levelBit(4)}}, "ignored trace setting \"A/x\""},
  };
  for (std::string bad :
       {"A", "/3", "A/x", "A/12", "A/10", "A/7-3", "A/-1", "A/", "A/2-", "A/3x"}) {
    cases.push_back(
        {bad + ",Good/2", {{"Good", levelBit(2)}}, "ignored trace setting \"" + bad + "\""});
  }
  for (const SettingsCase& c : cases) {
    std::ostringstream errors;
    EXPECT_EQ(Pellet::parseLevelSettings(c.text, errors), c.expected) << '"' << c.text << '"';
    if (c.complaint.empty()) {
      EXPECT_EQ(errors.str(), "") << c.text;
    } else {
      EXPECT_NE(errors.str().find(c.complaint), std::string::npos) << errors.str();
    }
  }
}

std::vector<std::string> entriesOf(const Pellet::Ring& ring) {
  std::vector<std::string> out;
  ring.forEach([&](std::string_view entry) { out.emplace_back(entry); });
  return out;
}

// Entries of assorted lengths land at every offset, so many straddle the end of the buffer.
TEST(Ring, readsBackEntriesThatStraddleTheEndIntact) {
  const std::size_t capacity = 61;
  Pellet::Ring ring(capacity);
  std::deque<std::string> expected;
  std::size_t expectedBytes = 0;
  for (int i = 0; i < 300; ++i) {
    const std::string head(1 + i % 3, static_cast<char>('a' + i % 26));
    const std::string body(static_cast<std::size_t>(i * 7 % 23), static_cast<char>('A' + i % 26));
    ring.push(head, body);
    expected.push_back(head + body);
    expectedBytes += 4 + head.size() + body.size();
    while (expectedBytes > capacity) {
      expectedBytes -= 4 + expected.front().size();
      expected.pop_front();
    }
    ASSERT_EQ(entriesOf(ring), std::vector<std::string>(expected.begin(), expected.end()))
        << "after push " << i;
    ASSERT_EQ(ring.usedBytes(), expectedBytes);
  }
}

TEST(Ring, cutsABodyLongerThanTheRingAndKeepsNothingWhenEvenTheHeadDoesNotFit) {
  Pellet::Ring ring(20);
  ring.push("hh", std::string(100, 'x'));
  EXPECT_EQ(entriesOf(ring), std::vector<std::string>{"hh" + std::string(14, 'x')});
  EXPECT_EQ(ring.usedBytes(), 20u);
  Pellet::Ring empty(0);
  empty.push("", "x");
  Pellet::Ring tiny(5);
  tiny.push("hh", "");
  EXPECT_EQ(empty.entryCount(), 0u);
  EXPECT_EQ(tiny.entryCount(), 0u);
}

}  // namespace
