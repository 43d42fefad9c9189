#include "sim/ScenarioParser.h"

#include <algorithm>
#include <map>
#include <tuple>

#include <fmt/format.h>

#include "QelMpls/core/QelMplsState.h"
#include "bexo/MplsLabelAction.h"
#include "bexo/MplsLabelStack.h"
#include "sim/Report.h"
#include "sim/ScenarioError.h"
#include "sim/YamlNode.h"

namespace Sim {

namespace {

constexpr uint64_t kMaxVlan = 4094;
constexpr size_t kMaxVrfName = 31;

const std::map<std::string_view, Mpls::LfibViaType>& viaTypeNames() {
  using T = Mpls::LfibViaType;
  static const std::map<std::string_view, T> names = {
      {"mplsIp", T::viaTypeMplsIp},
      {"externalFec", T::viaTypeExternalFec},
      {"ipLookup", T::viaTypeIpLookup},
      {"vlan", T::viaTypeVlan},
      {"evpnVlanFlood", T::viaTypeEvpnVlanFlood},
      {"evpnVlanAware", T::viaTypeEvpnVlanAware},
      {"evpnVlanAwareFlood", T::viaTypeEvpnVlanAwareFlood},
      {"mplsPseudowire", T::viaTypeMplsPseudowire},
  };
  return names;
}

Mpls::PayloadType parsePayload(const YamlNode& node) {
  using P = Mpls::PayloadType;
  const std::string text = node.text();
  if (text == "ipv4") return P::payloadIpv4;
  if (text == "ipv6") return P::payloadIpv6;
  if (text == "mpls") return P::payloadMpls;
  if (text == "autoDecide") return P::payloadAutoDecide;
  node.expected("ipv4, ipv6, mpls or autoDecide");
}

void refuseUnsupported(const YamlNode& node, std::string_view what) {
  if (!node.isEmpty()) node.fail(fmt::format("not supported yet ({})", what));
}

// The part of the scenario that later sections refer to: which via set ids
// exist and of which type. Steps add to it in file order.
class ViaSetRegistry {
 public:
  void define(const ViaSetSpec& viaSet, const YamlNode& node) {
    auto [it, inserted] = types_.try_emplace(viaSet.id, viaSet.type);
    if (!inserted && it->second != viaSet.type) {
      node.fail(fmt::format("via set {} was defined with another type; a via set keeps its type",
                            viaSet.id));
    }
  }
  bool has(uint32_t id) const { return types_.contains(id); }

 private:
  std::map<uint32_t, Mpls::LfibViaType> types_;
};

class Parser {
 public:
  explicit Parser(const std::string& file) { scenario_.file = file; }

  Scenario parse(const YamlNode& root) {
    if (root.isNull()) root.expected("a scenario (a map of sections)");
    root.checkKeys({"mode", "routing", "interfaces", "arp", "fdb", "vrfs", "dot1qMaps",
                    "pseudowires", "viaSets", "routes", "pwRoutes", "platform", "steps", "expect"});
    if (auto mode = root.find("mode")) parseMode(*mode);
    if (auto routing = root.find("routing")) {
      RoutingSpec given = parseRouting(*routing);
      scenario_.mplsRouting = given.mpls.value_or(true);
      scenario_.allowDefaultRoute = given.allowDefaultRoute.value_or(false);
    }
    scenario_.inputs = parseSections(root, /*initial=*/true);
    if (auto platform = root.find("platform")) {
      PlatformSpec given = parsePlatform(*platform);
      scenario_.driver.apply(given.driver);
      scenario_.fecAllocator.apply(given.fecAllocator);
    }
    if (auto steps = root.find("steps")) parseSteps(*steps);
    if (auto expect = root.find("expect")) scenario_.expect = parseExpect(*expect);
    return std::move(scenario_);
  }

 private:
  void parseMode(const YamlNode& node) {
    const std::string text = node.text();
    scenario_.modeLine = node.line();
    if (text == "direct") {
      scenario_.mode = ProgrammingMode::direct;
    } else if (text == "mediated") {
      scenario_.mode = ProgrammingMode::mediated;
    } else {
      node.expected("direct or mediated");
    }
  }

  static RoutingSpec parseRouting(const YamlNode& node) {
    node.checkKeys({"mpls", "allowDefaultRoute"});
    RoutingSpec given;
    if (auto v = node.find("mpls")) given.mpls = v->asBool();
    if (auto v = node.find("allowDefaultRoute")) given.allowDefaultRoute = v->asBool();
    return given;
  }

  // The input sections of the top level or of a `set` step.
  InputSections parseSections(const YamlNode& node, bool initial) {
    if (!initial) {
      node.checkKeys({"interfaces", "arp", "fdb", "vrfs", "dot1qMaps", "pseudowires", "viaSets",
                      "routes", "pwRoutes"});
    }
    if (auto v = node.find("dot1qMaps")) refuseUnsupported(*v, "802.1Q tag maps");
    if (auto v = node.find("pseudowires")) refuseUnsupported(*v, "pseudowire connectors");
    if (auto v = node.find("pwRoutes")) refuseUnsupported(*v, "the pseudowire LFIB");
    InputSections out;
    if (auto v = node.find("interfaces")) {
      for (const YamlNode& item : v->items()) out.interfaces.push_back(parseInterface(item));
    }
    if (auto v = node.find("arp")) {
      for (const YamlNode& item : v->items()) out.arp.push_back(parseArp(item));
    }
    if (auto v = node.find("fdb")) {
      for (const YamlNode& item : v->items()) out.fdb.push_back(parseFdb(item));
    }
    if (auto v = node.find("vrfs")) {
      for (const YamlNode& item : v->items()) out.vrfs.push_back(parseVrfName(item));
    }
    if (auto v = node.find("viaSets")) {
      std::vector<std::pair<uint32_t, YamlNode>> backups;
      for (const YamlNode& item : v->items()) {
        ViaSetSpec viaSet = parseViaSet(item);
        checkUniqueViaSet(out.viaSets, viaSet, item);
        viaSets_.define(viaSet, item);
        if (viaSet.backup != 0) backups.emplace_back(viaSet.backup, *item.find("backup"));
        out.viaSets.push_back(std::move(viaSet));
      }
      // A backup may be defined further down the same list.
      for (const auto& [id, backupNode] : backups) {
        if (!viaSets_.has(id)) backupNode.expected("the id of a via set defined under viaSets");
      }
    }
    if (auto v = node.find("routes")) {
      std::vector<std::pair<RouteRange, int>> lines;
      for (const YamlNode& item : v->items()) {
        RouteRange range = parseRoute(item, /*keyOnly=*/false);
        lines.emplace_back(range, item.line());
        out.routes.push_back(range);
      }
      checkNoOverlap(lines, *v);
    }
    return out;
  }

  InputKeys parseKeys(const YamlNode& node) {
    node.checkKeys({"interfaces", "arp", "fdb", "vrfs", "dot1qMaps", "pseudowires", "viaSets",
                    "routes", "pwRoutes"});
    if (auto v = node.find("dot1qMaps")) refuseUnsupported(*v, "802.1Q tag maps");
    if (auto v = node.find("pseudowires")) refuseUnsupported(*v, "pseudowire connectors");
    if (auto v = node.find("pwRoutes")) refuseUnsupported(*v, "the pseudowire LFIB");
    InputKeys out;
    if (auto v = node.find("interfaces")) {
      for (const YamlNode& item : v->items()) {
        item.checkKeys({"name"});
        out.interfaces.push_back(item.require("name").asIntf());
      }
    }
    if (auto v = node.find("arp")) {
      for (const YamlNode& item : v->items()) {
        item.checkKeys({"ip", "interface"});
        out.arp.emplace_back(item.require("ip").asIp(), item.require("interface").asIntf());
      }
    }
    if (auto v = node.find("fdb")) {
      for (const YamlNode& item : v->items()) {
        item.checkKeys({"vlan", "mac"});
        out.fdb.emplace_back(parseVlan(item.require("vlan")), item.require("mac").asMac());
      }
    }
    if (auto v = node.find("vrfs")) {
      for (const YamlNode& item : v->items()) out.vrfs.push_back(parseVrfName(item));
    }
    if (auto v = node.find("viaSets")) {
      for (const YamlNode& item : v->items()) {
        item.checkKeys({"id"});
        out.viaSets.push_back(parseViaSetId(item.require("id")));
      }
    }
    if (auto v = node.find("routes")) {
      for (const YamlNode& item : v->items()) out.routes.push_back(parseRoute(item, true));
    }
    return out;
  }

  static uint16_t parseVlan(const YamlNode& node) {
    return static_cast<uint16_t>(node.asUint(1, kMaxVlan, "a VLAN id from 1 to 4094"));
  }

  static std::string parseVrfName(const YamlNode& node) {
    std::string name = node.isScalar() ? node.text() : std::string();
    if (name.empty() || name.size() > kMaxVrfName)
      node.expected("a VRF name of 1 to 31 characters");
    return name;
  }

  static uint32_t parseViaSetId(const YamlNode& node) {
    return static_cast<uint32_t>(
        node.asUint(1, ViaSetSpec::kMaxId, "a via set id from 1 to 33554431"));
  }

  static InterfaceSpec parseInterface(const YamlNode& node) {
    node.checkKeys({"name", "vlan", "hwSupported"});
    YamlNode nameNode = node.require("name");
    InterfaceSpec given;
    given.name = nameNode.asIntf();
    if (auto v = node.find("hwSupported")) given.hwSupported = v->asBool();
    std::optional<YamlNode> vlan = node.find("vlan");
    if (given.name.isVlan()) {
      given.vlan = given.name.vlanId();
      if (vlan && parseVlan(*vlan) != given.vlan) {
        vlan->expected(fmt::format("the VLAN of {} ({}) or nothing", given.name, given.vlan));
      }
    } else if (given.name.isEthernet()) {
      if (!vlan) {
        throw ScenarioError(node.file(), node.line(), node.key() + ".vlan",
                            "missing (a routed port needs its internal VLAN)");
      }
      given.vlan = parseVlan(*vlan);
      given.routedPort = true;
    } else {
      nameNode.expected("an Ethernet port or a Vlan interface");
    }
    return given;
  }

  static ArpSpec parseArp(const YamlNode& node) {
    node.checkKeys({"ip", "interface", "mac"});
    ArpSpec given;
    given.key = Arp::Table::ArpKey(node.require("ip").asIp(), node.require("interface").asIntf());
    given.mac = node.require("mac").asMac();
    return given;
  }

  static FdbSpec parseFdb(const YamlNode& node) {
    node.checkKeys({"vlan", "mac", "port"});
    FdbSpec given;
    given.key = Bridging::HostKey(parseVlan(node.require("vlan")), node.require("mac").asMac());
    given.port = node.require("port").asIntf();
    return given;
  }

  static void checkUniqueViaSet(const std::vector<ViaSetSpec>& earlier, const ViaSetSpec& viaSet,
                                const YamlNode& node) {
    for (const ViaSetSpec& e : earlier) {
      if (e.id == viaSet.id)
        node.require("id").fail(fmt::format("via set {} is defined twice", e.id));
    }
  }

  ViaSetSpec parseViaSet(const YamlNode& node) {
    node.checkKeys({"id", "type", "backup", "usableAsPrimary", "vias"});
    ViaSetSpec given;
    given.id = parseViaSetId(node.require("id"));
    YamlNode typeNode = node.require("type");
    auto type = viaTypeNames().find(typeNode.text());
    if (type == viaTypeNames().end()) {
      typeNode.expected(
          "mplsIp, externalFec, ipLookup, vlan, evpnVlanFlood, evpnVlanAware, "
          "evpnVlanAwareFlood or mplsPseudowire");
    }
    given.type = type->second;
    if (auto v = node.find("backup")) {
      given.backup = parseViaSetId(*v);
      if (given.backup == given.id) v->expected("the id of another via set");
    }
    if (auto v = node.find("usableAsPrimary")) given.usableAsPrimary = v->asBool();
    std::vector<YamlNode> vias = node.require("vias").items();
    if (vias.size() > Mpls::kMaxViasPerSet) node.require("vias").expected("at most 128 vias");
    for (const YamlNode& via : vias) given.vias.push_back(parseVia(via, given.type));
    return given;
  }

  static ViaSpec parseVia(const YamlNode& node, Mpls::LfibViaType type) {
    using T = Mpls::LfibViaType;
    ViaSpec via;
    switch (type) {
      case T::viaTypeMplsIp:
        node.checkKeys({"nexthop", "interface", "action", "labels", "payload", "weight"});
        via.nextHop = node.require("nexthop").asIp();
        via.intf = node.require("interface").asIntf();
        via.labelOperation = parseLabelOperation(node);
        if (auto v = node.find("payload")) via.payload = parsePayload(*v);
        if (auto v = node.find("weight")) {
          via.weight = static_cast<uint32_t>(v->asUint(1, UINT32_MAX, "a weight of 1 or more"));
        }
        break;
      case T::viaTypeExternalFec:
        node.checkKeys({"fecId"});
        via.fecId = node.require("fecId").asUint(1, UINT64_MAX, "a FEC id (decimal or 0x...)");
        break;
      case T::viaTypeIpLookup:
        node.checkKeys({"vrf", "payload"});
        via.vrf = parseVrfName(node.require("vrf"));
        via.payload = Mpls::PayloadType::payloadAutoDecide;
        if (auto v = node.find("payload")) via.payload = parsePayload(*v);
        break;
      case T::viaTypeVlan:
      case T::viaTypeEvpnVlanFlood:
        node.checkKeys({"vlan"});
        via.vlan = parseVlan(node.require("vlan"));
        break;
      case T::viaTypeEvpnVlanAware:
      case T::viaTypeEvpnVlanAwareFlood:
        node.checkKeys({"dot1qMap"});
        node.require("dot1qMap").fail("not supported yet (802.1Q tag maps)");
      case T::viaTypeMplsPseudowire: {
        node.checkKeys({"pwInterface"});
        YamlNode pw = node.require("pwInterface");
        via.pwIntf = pw.asIntf();
        if (!Bexo::PseudowireIntfId::isPseudowireIntfId(via.pwIntf)) {
          pw.expected("a pseudowire interface like Pseudowire1");
        }
        break;
      }
      default:
        node.fail("via type without vias");
    }
    return via;
  }

  static Bexo::UnboundedMplsLabelOperation parseLabelOperation(const YamlNode& node) {
    YamlNode actionNode = node.require("action");
    Bexo::MplsLabelAction action{};
    if (!actionNode.isScalar() || !Bexo::parse(actionNode.text(), action)) {
      actionNode.expected("push, pop or swap");
    }
    Bexo::MplsLabelStack stack;
    if (auto labels = node.find("labels")) {
      std::vector<YamlNode> items = labels->items();
      if (items.size() > Bexo::MplsLabelStack::maxStackSize) labels->expected("at most 12 labels");
      for (const YamlNode& label : items) stack.labelAppend(Bexo::MplsLabel(label.asLabel()));
    }
    return Bexo::UnboundedMplsLabelOperation(action, stack);
  }

  // "1000-1999" or a single label.
  static std::pair<uint32_t, uint32_t> parseLabelRange(const YamlNode& node) {
    const std::string text = node.isScalar() ? node.text() : std::string();
    const size_t dash = text.find('-');
    if (dash == std::string::npos) {
      uint32_t label = node.asLabel();
      return {label, label};
    }
    auto first = parseUint(std::string_view(text).substr(0, dash), 0, Bexo::MplsLabel::maxValue);
    auto last = parseUint(std::string_view(text).substr(dash + 1), 0, Bexo::MplsLabel::maxValue);
    if (!first || !last || *first > *last) {
      node.expected("a label range FIRST-LAST with FIRST <= LAST <= 1048575");
    }
    return {static_cast<uint32_t>(*first), static_cast<uint32_t>(*last)};
  }

  RouteRange parseRoute(const YamlNode& node, bool keyOnly) {
    if (keyOnly) {
      node.checkKeys({"label", "labels", "source"});
    } else {
      node.checkKeys({"label", "labels", "source", "viaSet"});
    }
    std::optional<YamlNode> label = node.find("label");
    std::optional<YamlNode> labels = node.find("labels");
    if (label && labels) labels->fail("give either label or labels, not both");
    if (!label && !labels) {
      throw ScenarioError(node.file(), node.line(), node.key() + ".label",
                          "missing (a route needs label or labels)");
    }
    RouteRange range;
    if (label) {
      range.first = range.last = label->asLabel();
    } else {
      std::tie(range.first, range.last) = parseLabelRange(*labels);
    }
    if (auto v = node.find("source")) {
      range.source = static_cast<Mpls::LfibSource>(v->asUint(0, 255, "a source from 0 to 255"));
    }
    if (keyOnly) return range;
    YamlNode viaSet = node.require("viaSet");
    range.viaSet = parseViaSetId(viaSet);
    if (!viaSets_.has(range.viaSet)) viaSet.expected("the id of a via set defined under viaSets");
    return range;
  }

  static void checkNoOverlap(std::vector<std::pair<RouteRange, int>> ranges,
                             const YamlNode& section) {
    std::sort(ranges.begin(), ranges.end(), [](const auto& a, const auto& b) {
      if (a.first.source != b.first.source) return a.first.source < b.first.source;
      return a.first.first < b.first.first;
    });
    for (size_t i = 1; i < ranges.size(); ++i) {
      const auto& [prev, prevLine] = ranges[i - 1];
      const auto& [cur, curLine] = ranges[i];
      if (prev.source == cur.source && cur.first <= prev.last) {
        throw ScenarioError(
            section.file(), std::max(prevLine, curLine), section.key(),
            fmt::format("route {} is defined twice (lines {} and {})", cur.routeKey(cur.first),
                        std::min(prevLine, curLine), std::max(prevLine, curLine)));
      }
    }
  }

  static PlatformSpec parsePlatform(const YamlNode& node) {
    node.checkKeys({"driver", "fecAllocator", "mcastProgrammer", "decapHelper"});
    if (auto v = node.find("mcastProgrammer")) refuseUnsupported(*v, "the multicast programmer");
    if (auto v = node.find("decapHelper")) refuseUnsupported(*v, "the decapsulation helper");
    PlatformSpec given;
    if (auto v = node.find("driver"); v && !v->isNull()) given.driver = parseDriver(*v);
    if (auto v = node.find("fecAllocator"); v && !v->isNull()) {
      given.fecAllocator = parseFecAllocator(*v);
    }
    return given;
  }

  static DriverSpec parseDriver(const YamlNode& driver) {
    DriverSpec given;
    driver.checkKeys({"routeCapacity", "l2AdjCapacity", "answerDelay", "answer", "fail"});
    if (auto v = driver.find("routeCapacity")) {
      given.routeCapacity = v->asUint(0, UINT64_MAX, "a number of routes");
    }
    if (auto v = driver.find("l2AdjCapacity")) {
      given.l2AdjCapacity = v->asUint(0, UINT64_MAX, "a number of layer-2 adjacencies");
    }
    if (auto v = driver.find("answerDelay")) given.answerDelay = v->asSeconds();
    if (auto v = driver.find("answer")) given.answer = v->asBool();
    if (auto fail = driver.find("fail")) {
      fail->checkKeys({"labels"});
      std::set<uint32_t> labels;
      if (auto v = fail->find("labels")) {
        for (const YamlNode& label : v->items()) labels.insert(label.asLabel());
      }
      given.failLabels = std::move(labels);
    }
    return given;
  }

  static FecAllocatorSpec parseFecAllocator(const YamlNode& node) {
    node.checkKeys({"answerDelay", "answer", "capacity"});
    FecAllocatorSpec given;
    if (auto v = node.find("answerDelay")) given.answerDelay = v->asSeconds();
    if (auto v = node.find("answer")) given.answer = v->asBool();
    if (auto v = node.find("capacity")) {
      given.capacity = v->asUint(0, UINT64_MAX, "a number of hardware FEC ids");
    }
    return given;
  }

  void parseSteps(const YamlNode& node) {
    double previous = 0.0;
    for (const YamlNode& item : node.items()) {
      item.checkKeys({"at", "set", "delete", "routing", "restart", "platform"});
      Step step;
      step.line = item.line();
      YamlNode at = item.require("at");
      step.at = at.asSeconds();
      if (step.at < previous) {
        at.expected(fmt::format("a time no earlier than the step before ({})", previous));
      }
      previous = step.at;
      if (auto v = item.find("delete")) step.del = parseKeys(*v);
      if (auto v = item.find("set")) step.set = parseSections(*v, false);
      if (auto v = item.find("routing")) step.routing = parseRouting(*v);
      if (auto v = item.find("platform")) step.platform = parsePlatform(*v);
      if (auto v = item.find("restart")) {
        if (!v->isScalar() || v->text() != "agent") v->expected("agent");
        step.restartAgent = true;
      }
      if (!step.del && !step.set && !step.routing && !step.platform && !step.restartAgent) {
        item.fail("expected one of set, delete, routing, restart, platform");
      }
      scenario_.steps.push_back(std::move(step));
    }
  }

  static Expectations parseExpect(const YamlNode& node) {
    node.checkKeys({"routes", "l2Adjacencies", "decap", "log", "counters"});
    Expectations out;
    if (auto v = node.find("counters")) {
      for (const auto& [name, value] : v->entries()) {
        if (!isReportCounter(name)) {
          value.fail(fmt::format("unknown counter '{}' (one of {})", name, reportCounterList()));
        }
        out.counters.push_back({name, value.asUint(0, UINT64_MAX, "a count"), value.line()});
      }
    }
    if (auto v = node.find("decap")) refuseUnsupported(*v, "decapsulation expectations");
    if (auto v = node.find("l2Adjacencies")) {
      out.l2Adjacencies = v->asUint(0, UINT64_MAX, "a number of layer-2 adjacencies");
      out.l2AdjacenciesLine = v->line();
    }
    if (auto v = node.find("log")) {
      out.logLine = v->line();
      for (const YamlNode& name : v->items()) out.log.push_back(name.text());
    }
    if (auto routes = node.find("routes")) {
      for (const auto& [name, value] : routes->entries()) {
        if (name == "programmed") {
          out.programmed = value.asUint(0, UINT64_MAX, "a number of routes");
          out.programmedLine = value.line();
        } else if (name == "unprogrammed") {
          out.unprogrammed = value.asUint(0, UINT64_MAX, "a number of routes");
          out.unprogrammedLine = value.line();
        } else {
          out.routes.push_back(parseRouteExpect(name, value));
        }
      }
    }
    return out;
  }

  static RouteExpect parseRouteExpect(const std::string& name, const YamlNode& node) {
    RouteExpect expect;
    expect.line = node.line();
    try {
      expect.key = Mpls::RouteKey::fromString(name);
    } catch (const std::invalid_argument&) {
      node.fail("expected programmed, unprogrammed or a route key like \"100\" or \"101/2\"");
    }
    if (node.isScalar()) {
      if (node.text() != "absent") {
        node.expected("absent or a map with state, reason, l2, adjIdType, hwFecId");
      }
      expect.absent = true;
      return expect;
    }
    node.checkKeys({"state", "reason", "l2", "adjIdType", "hwFecId"});
    if (auto v = node.find("adjIdType")) {
      expect.adjIdType = v->text();
      if (*expect.adjIdType != "hardware" && *expect.adjIdType != "l2Adjacency") {
        v->expected("hardware or l2Adjacency");
      }
    }
    if (auto v = node.find("hwFecId")) {
      expect.hwFecId = v->text();
      if (*expect.hwFecId != "valid" && *expect.hwFecId != "invalid") {
        expect.hwFecId = std::to_string(v->asUint(0, UINT64_MAX, "valid, invalid or a number"));
      }
    }
    if (auto v = node.find("state")) {
      expect.state = v->text();
      if (*expect.state != "programmed" && *expect.state != "unprogrammed") {
        v->expected("programmed or unprogrammed");
      }
    }
    if (auto v = node.find("reason")) {
      expect.reason = v->text();
      const auto& names = Qel::UnprogrammedReasonNames_;
      if (std::find(names.begin(), names.end(), *expect.reason) == names.end()) {
        v->expected(
            "an unprogrammed reason (none, routeFull, adjacencyFull, interfaceNotReady, "
            "invalidFecId, viaSetNotSane, nexthopUnresolved, noAdjacency, hwPending)");
      }
    }
    if (auto v = node.find("l2")) {
      std::vector<L2ViaExpect> vias;
      for (const YamlNode& item : v->items()) {
        item.checkKeys({"mac", "vlan", "interface", "label", "weight"});
        L2ViaExpect via;
        if (auto f = item.find("mac")) via.mac = f->asMac();
        if (auto f = item.find("vlan")) via.vlan = parseVlan(*f);
        if (auto f = item.find("interface")) via.intf = f->asIntf();
        if (auto f = item.find("label")) via.label = f->asLabel();
        if (auto f = item.find("weight")) {
          via.weight = static_cast<uint32_t>(f->asUint(1, UINT32_MAX, "a weight of 1 or more"));
        }
        vias.push_back(via);
      }
      expect.l2 = std::move(vias);
    }
    return expect;
  }

  Scenario scenario_;
  ViaSetRegistry viaSets_;
};

}  // namespace

Scenario parseScenarioFile(const std::string& file) {
  return Parser(file).parse(YamlNode::load(file));
}

Scenario parseScenarioText(const std::string& text, const std::string& file) {
  return Parser(file).parse(YamlNode::fromText(text, file));
}

}  // namespace Sim
