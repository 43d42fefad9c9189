#include "sim/YamlNode.h"

#include <charconv>
#include <cmath>
#include <fstream>
#include <sstream>

#include <fmt/format.h>

#include "bexo/MplsLabel.h"
#include "sim/ScenarioError.h"

namespace Sim {

namespace {

int lineOf(const YAML::Node& node, int fallback) {
  if (!node) return fallback;
  const YAML::Mark mark = node.Mark();
  return mark.is_null() ? fallback : mark.line + 1;
}

std::string joinKey(const std::string& parent, std::string_view key) {
  if (parent.empty()) return std::string(key);
  return fmt::format("{}.{}", parent, key);
}

std::string list(std::initializer_list<std::string_view> names) {
  std::string out;
  for (std::string_view n : names) {
    if (!out.empty()) out += ", ";
    out += n;
  }
  return out;
}

}  // namespace

std::optional<uint64_t> parseUint(std::string_view text, uint64_t min, uint64_t max) {
  int base = 10;
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    base = 16;
    text.remove_prefix(2);
  }
  uint64_t value = 0;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value, base);
  if (ec != std::errc() || end != text.data() + text.size() || text.empty()) return std::nullopt;
  if (value < min || value > max) return std::nullopt;
  return value;
}

YamlNode YamlNode::load(const std::string& file) {
  std::ifstream in(file);
  if (!in) throw ScenarioError(file, 0, "", "cannot be read");
  std::stringstream text;
  text << in.rdbuf();
  return fromText(text.str(), file);
}

YamlNode YamlNode::fromText(const std::string& text, const std::string& file) {
  try {
    return YamlNode(YAML::Load(text), file, "", 1);
  } catch (const YAML::ParserException& e) {
    throw ScenarioError(file, e.mark.line + 1, "", fmt::format("not valid YAML: {}", e.msg));
  }
}

YamlNode::YamlNode(YAML::Node node, std::string file, std::string key, int line)
    : node_(std::move(node)), file_(std::move(file)), key_(std::move(key)), line_(line) {}

YamlNode YamlNode::child(const YAML::Node& node, std::string key) const {
  return YamlNode(node, file_, std::move(key), lineOf(node, line_));
}

// A value that is a block of its own, or nothing, is reported at its key:
// that is where a reader looks for it.
YamlNode YamlNode::valueOf(const YAML::Node& keyNode, const YAML::Node& value,
                           std::string key) const {
  YamlNode out = child(value, std::move(key));
  bool block =
      value && (value.IsMap() || value.IsSequence()) && value.Style() == YAML::EmitterStyle::Block;
  if (!value || value.Mark().is_null() || value.IsNull() || block) {
    out.line_ = lineOf(keyNode, line_);
  }
  return out;
}

void YamlNode::fail(std::string_view problem) const {
  throw ScenarioError(file_, line_, key_, std::string(problem));
}

void YamlNode::expected(std::string_view what) const {
  if (isScalar()) fail(fmt::format("expected {} (found '{}')", what, node_.Scalar()));
  if (isNull()) fail(fmt::format("expected {} (found nothing)", what));
  fail(fmt::format("expected {}", what));
}

bool YamlNode::isEmpty() const {
  if (isNull()) return true;
  if (isMap() || isSequence()) return node_.size() == 0;
  return false;
}

void YamlNode::checkKeys(std::initializer_list<std::string_view> allowed) const {
  if (!isMap()) expected(fmt::format("a map with keys {}", list(allowed)));
  std::vector<std::string> seen;
  for (auto it = node_.begin(); it != node_.end(); ++it) {
    std::string name = it->first.Scalar();
    YamlNode keyNode = child(it->first, joinKey(key_, name));
    bool known = false;
    for (std::string_view a : allowed) known = known || a == name;
    if (!known) keyNode.fail(fmt::format("unknown key (expected one of: {})", list(allowed)));
    for (const std::string& s : seen) {
      if (s == name) keyNode.fail("key given twice");
    }
    seen.push_back(std::move(name));
  }
}

std::optional<YamlNode> YamlNode::find(std::string_view key) const {
  if (!isMap()) return std::nullopt;
  for (auto it = node_.begin(); it != node_.end(); ++it) {
    if (it->first.Scalar() == key) {
      return valueOf(it->first, it->second, joinKey(key_, key));
    }
  }
  return std::nullopt;
}

YamlNode YamlNode::require(std::string_view key) const {
  if (std::optional<YamlNode> value = find(key)) return *value;
  throw ScenarioError(file_, line_, joinKey(key_, key), "missing");
}

std::vector<std::pair<std::string, YamlNode>> YamlNode::entries() const {
  std::vector<std::pair<std::string, YamlNode>> out;
  if (isNull()) return out;
  if (!isMap()) expected("a map");
  for (auto it = node_.begin(); it != node_.end(); ++it) {
    std::string name = it->first.Scalar();
    YamlNode value = valueOf(it->first, it->second, joinKey(key_, name));
    out.emplace_back(std::move(name), std::move(value));
  }
  return out;
}

std::vector<YamlNode> YamlNode::items() const {
  std::vector<YamlNode> out;
  if (isNull()) return out;
  if (!isSequence()) expected("a list");
  size_t index = 0;
  for (const YAML::Node& item : node_) {
    out.push_back(child(item, fmt::format("{}[{}]", key_, index++)));
  }
  return out;
}

std::string YamlNode::text() const {
  if (!isScalar()) expected("a single value");
  return node_.Scalar();
}

bool YamlNode::asBool() const {
  bool value = false;
  if (!isScalar() || !YAML::convert<bool>::decode(node_, value)) expected("true or false");
  return value;
}

uint64_t YamlNode::asUint(uint64_t min, uint64_t max, std::string_view what) const {
  std::optional<uint64_t> value = isScalar() ? parseUint(node_.Scalar(), min, max) : std::nullopt;
  if (!value) expected(what);
  return *value;
}

double YamlNode::asSeconds() const {
  double value = 0;
  if (!isScalar() || !YAML::convert<double>::decode(node_, value) || !std::isfinite(value) ||
      value < 0) {
    expected("a number of seconds, 0 or more");
  }
  return value;
}

uint32_t YamlNode::asLabel() const {
  return static_cast<uint32_t>(
      asUint(0, Bexo::MplsLabel::maxValue, "an MPLS label from 0 to 1048575"));
}

Bexo::IpGenAddr YamlNode::asIp() const {
  Bexo::IpGenAddr addr;
  if (!isScalar() || !Bexo::IpGenAddr::parse(node_.Scalar(), addr)) {
    expected("an IPv4 or IPv6 address");
  }
  return addr;
}

Bexo::EthAddr YamlNode::asMac() const {
  Bexo::EthAddr mac;
  if (!isScalar() || !Bexo::EthAddr::parse(node_.Scalar(), mac)) {
    expected("a MAC address like \"00:00:5e:00:53:01\"");
  }
  return mac;
}

Bexo::IntfId YamlNode::asIntf() const {
  Bexo::IntfId intf;
  if (!isScalar() || !Bexo::IntfId::parse(node_.Scalar(), intf)) {
    expected("an interface name like Ethernet1 or Vlan100");
  }
  return intf;
}

}  // namespace Sim
