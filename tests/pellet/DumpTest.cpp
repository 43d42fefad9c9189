#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "pellet/Trace.h"

namespace {

// The lines of a dump that belong to handles whose name starts with `prefix`, without their
// sequence numbers, which depend on what else the process traced.
std::vector<std::string> linesOf(const std::string& dump, const std::string& prefix) {
  std::vector<std::string> out;
  std::istringstream in(dump);
  for (std::string line; std::getline(in, line);) {
    const std::string rest = line.substr(line.find(' ') + 1);
    if (rest.find(" " + prefix) != std::string::npos) out.push_back(rest);
  }
  return out;
}

TEST(DumpOrder, mergesHandlesAndLevelsInTraceOrder) {
  Pellet::timeSourceIs([] { return 1.25; });
  Pellet::Facility a(Pellet::handle("DumpB"), "DumpBSm");
  Pellet::Facility b(Pellet::handle("DumpA"), "DumpASm");
  PELLET_TRACE(a, 2, "first");
  PELLET_TRACE(b, 0, "second {}", 2);
  PELLET_TRACE(a, 0, "third");
  PELLET_TRACE(b, 1, "fourth");
  Pellet::timeSourceIs(nullptr);

  std::ostringstream out;
  Pellet::dump(out);
  EXPECT_EQ(linesOf(out.str(), "Dump"),
            (std::vector<std::string>{
                "1.250000 DumpB DumpBSm 2 first", "1.250000 DumpA DumpASm 0 second 2",
                "1.250000 DumpB DumpBSm 0 third", "1.250000 DumpA DumpASm 1 fourth"}));
}

TEST(DumpOrder, numbersLinesWithIncreasingSequence) {
  Pellet::Facility fac(Pellet::handle("SequenceHandle"), "SequenceSm");
  for (int i = 0; i < 5; ++i) PELLET_TRACE(fac, i % 3, "line {}", i);
  std::ostringstream out;
  Pellet::dump(out);
  std::istringstream in(out.str());
  unsigned long long previous = 0;
  for (std::string line; std::getline(in, line);) {
    const unsigned long long sequence = std::stoull(line);
    EXPECT_GT(sequence, previous) << line;
    previous = sequence;
  }
}

TEST(DumpToFile, writesWhatDumpWrites) {
  Pellet::Facility fac(Pellet::handle("FileHandle"), "FileSm");
  PELLET_TRACE(fac, 0, "to the file");
  const std::string path = testing::TempDir() + "pellet_dump.txt";
  ASSERT_TRUE(Pellet::dumpToFile(path));
  std::ostringstream expected;
  Pellet::dump(expected);
  std::ifstream in(path);
  std::stringstream written;
  written << in.rdbuf();
  std::remove(path.c_str());
  EXPECT_EQ(written.str(), expected.str());
  EXPECT_NE(written.str().find("FileSm 0 to the file"), std::string::npos);
}

TEST(DumpToFile, reportsAPathItCannotWrite) {
  EXPECT_FALSE(Pellet::dumpToFile("/nonexistent-directory/pellet_dump.txt"));
}

}  // namespace
