// The qelmpls tool as a user runs it: exit statuses, error messages, JSON
// output and reading a kept run's tables from another process.

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <set>

#include <nlohmann/json.hpp>

#include "Subprocess.h"
#include "vosh/EntityManager.h"

namespace Cli::Test {
namespace {

const std::string kScenarios = QELMPLS_SCENARIOS;
const std::string kExamples = QELMPLS_EXAMPLES;

class QelmplsToolTest : public ::testing::Test {
 protected:
  std::string base() const {
    return ::testing::TempDir() + "qelmpls-" +
           ::testing::UnitTest::GetInstance()->current_test_info()->name();
  }
  int run(const std::vector<std::string>& args) {
    return Subprocess::run(args, base(), &out_, &err_);
  }
  std::string out_;
  std::string err_;
};

// What is wrong in a scenario is the parser's to say; the tool adds the file and exits 2, as
// it does for a bad command line.
TEST_F(QelmplsToolTest, RefusesABadScenarioNamingItsFileLineAndKey) {
  EXPECT_EQ(run({"run"}), 2);
  EXPECT_EQ(run({"show", "everything", "--prefix", "x"}), 2);
  EXPECT_EQ(run({"run", kScenarios + "/unknown-key.yaml"}), 2);
  EXPECT_NE(err_.find("unknown-key.yaml:9: routes[1].colour: unknown key"), std::string::npos)
      << err_;
  EXPECT_EQ(run({"run", kScenarios + "/bad-address.yaml"}), 2);
  EXPECT_NE(err_.find("bad-address.yaml:5: arp[1].ip: expected an IPv4 or IPv6 address (found "
                      "'10.0.0.256')"),
            std::string::npos)
      << err_;
}

TEST_F(QelmplsToolTest, ModeOptionOverridesTheScenarioAndRefusesAnUnknownMode) {
  EXPECT_EQ(run({"run", kExamples + "/basic.yaml", "--mode", "indirect"}), 2);
  EXPECT_NE(err_.find("--mode: expected direct or mediated (found 'indirect')"), std::string::npos)
      << err_;
  // In the mediated mode no layer-2 record is written, so basic's layer-2
  // expectations cannot hold.
  EXPECT_EQ(run({"run", kExamples + "/basic.yaml", "--mode", "mediated", "--check"}), 1);
  EXPECT_NE(err_.find("l2Adjacencies: expected 3, found 0"), std::string::npos) << err_;
}

TEST_F(QelmplsToolTest, ExitsOneNamingEveryExpectationThatFails) {
  EXPECT_EQ(run({"run", kScenarios + "/wrong-expectation.yaml", "--check"}), 1);
  EXPECT_NE(err_.find(":13: routes.programmed: expected 5, found 1"), std::string::npos) << err_;
  EXPECT_NE(err_.find(":15: routes.\"101\": expected present, found absent"), std::string::npos)
      << err_;
  EXPECT_EQ(err_.find("routes.\"100\""), std::string::npos) << err_;
}

TEST_F(QelmplsToolTest, WritesTheFinalStateAsJsonAndShowsWhatAKeptRunLeftUntilCleaned) {
  const std::string json = base() + ".json";
  const std::string prefix = Vosh::EntityManager::defaultPrefix() + "-show";
  ASSERT_EQ(run({"run", kExamples + "/basic.yaml", "--json", json, "--prefix", prefix, "--keep"}),
            0)
      << err_;
  std::ifstream in(json);
  nlohmann::json state = nlohmann::json::parse(in);
  ASSERT_EQ(state["routes"].size(), 7u);
  for (const auto& route : state["routes"]) EXPECT_EQ(route["state"], "programmed");
  EXPECT_EQ(state["routes"][0]["label"], 100);
  EXPECT_EQ(state["routes"][0]["adjacencyIdType"], "adjIdTypeL2Adjacency");
  EXPECT_EQ(state["routes"][0]["vias"][0]["mac"], "00:00:5e:00:53:01");
  EXPECT_EQ(state["l2Adjacencies"].size(), 3u);
  EXPECT_EQ(state["startup"]["stage"], "mplsSmNormal");
  EXPECT_TRUE(state["decap"].is_array());
  std::remove(json.c_str());

  ASSERT_EQ(run({"show", "routes", "--prefix", prefix}), 0) << err_;
  EXPECT_NE(out_.find("300    0       programmed"), std::string::npos) << out_;
  ASSERT_EQ(run({"show", "l2", "--prefix", prefix}), 0) << err_;
  EXPECT_NE(out_.find("Ethernet3 00:00:5e:00:53:03 vlan 100 label 400"), std::string::npos) << out_;
  ASSERT_EQ(run({"show", "status", "--prefix", prefix}), 0) << err_;
  EXPECT_NE(out_.find("7 programmed"), std::string::npos) << out_;
  ASSERT_EQ(run({"clean", "--prefix", prefix}), 0);
  EXPECT_EQ(run({"show", "status", "--prefix", prefix}), 1);
}

TEST_F(QelmplsToolTest, GeneratesAScaleScenarioThatRunsAndReportsItsOwnCost) {
  const std::string file = base() + ".yaml";
  std::vector<std::string> gen = {"gen",         "--routes", "2000",   "--via-sets", "50",
                                  "--next-hops", "20",       "--ecmp", "2",          "--vlan-share",
                                  "0.25",        "--seed",   "3",      "-o",         "-"};
  ASSERT_EQ(run(gen), 0);
  const std::string written = out_;
  gen.back() = file;
  ASSERT_EQ(run(gen), 0) << err_;
  std::ifstream in(file);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), written);

  const std::string json = base() + ".json";
  ASSERT_EQ(run({"run", file, "--json", json}), 0) << err_;
  EXPECT_NE(err_.find("qelmpls: load "), std::string::npos) << err_;
  std::ifstream jsonIn(json);
  nlohmann::json state = nlohmann::json::parse(jsonIn);
  EXPECT_EQ(state["summary"]["programmed"], 2000);
  // One layer-2 record for each distinct set of resolved vias.
  std::set<std::string> distinctVias;
  for (const auto& route : state["routes"]) distinctVias.insert(route["vias"].dump());
  EXPECT_EQ(state["l2Adjacencies"].size(), distinctVias.size());
  const auto& timing = state["timing"];
  EXPECT_GT(timing["load"].get<double>(), 0.0);
  EXPECT_GT(timing["converge"].get<double>(), 0.0);
  EXPECT_GT(timing["peakRssBytes"].get<uint64_t>(), 0u);
  EXPECT_TRUE(timing["heapBytesPerRoute"].is_number());
  EXPECT_EQ(timing["routes"], 2000);

  EXPECT_EQ(run({"gen", "--routes", "10", "--via-sets", "20", "-o", file}), 2);
  EXPECT_NE(err_.find("qelmpls gen: there cannot be more via sets than routes"), std::string::npos)
      << err_;
  std::remove(file.c_str());
  std::remove(json.c_str());
}

}  // namespace
}  // namespace Cli::Test
