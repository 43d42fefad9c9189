#pragma once

// Checked access to a YAML document: every node knows the file, its line and
// its key path, so that whatever is wrong is reported where it is. Maps are
// read against the list of keys they may hold, and a key outside it is an
// error, never silently ignored.

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <yaml-cpp/yaml.h>

#include "bexo/EthAddr.h"
#include "bexo/IntfId.h"
#include "bexo/IpGenAddr.h"

namespace Sim {

class YamlNode {
 public:
  // Reads a file; a syntax error is a ScenarioError at its line.
  static YamlNode load(const std::string& file);
  static YamlNode fromText(const std::string& text, const std::string& file);

  YamlNode(YAML::Node node, std::string file, std::string key, int line);

  const std::string& key() const { return key_; }
  const std::string& file() const { return file_; }
  int line() const { return line_; }

  [[noreturn]] void fail(std::string_view problem) const;
  // "expected <what>", with the text found when the node is a scalar.
  [[noreturn]] void expected(std::string_view what) const;

  bool isNull() const { return !node_ || node_.IsNull(); }
  bool isMap() const { return node_.IsMap(); }
  bool isSequence() const { return node_.IsSequence(); }
  bool isScalar() const { return node_.IsScalar(); }
  // Null, an empty map or an empty sequence.
  bool isEmpty() const;

  // Map access. `allowed` lists every key the map may hold.
  void checkKeys(std::initializer_list<std::string_view> allowed) const;
  std::optional<YamlNode> find(std::string_view key) const;
  YamlNode require(std::string_view key) const;
  // The map's entries in file order: the key's text and its value.
  std::vector<std::pair<std::string, YamlNode>> entries() const;

  // Sequence access; a null node is an empty sequence.
  std::vector<YamlNode> items() const;

  // Scalars.
  std::string text() const;
  bool asBool() const;
  // Decimal or 0x-prefixed hexadecimal, within [min, max].
  uint64_t asUint(uint64_t min, uint64_t max, std::string_view what) const;
  double asSeconds() const;
  uint32_t asLabel() const;
  Bexo::IpGenAddr asIp() const;
  Bexo::EthAddr asMac() const;
  Bexo::IntfId asIntf() const;

 private:
  YamlNode child(const YAML::Node& node, std::string key) const;
  YamlNode valueOf(const YAML::Node& keyNode, const YAML::Node& value, std::string key) const;

  YAML::Node node_;
  std::string file_;
  std::string key_;
  int line_;
};

// Parses "123" or "0x7b" within [min, max]; nothing when it is not such a number.
std::optional<uint64_t> parseUint(std::string_view text, uint64_t min, uint64_t max);

}  // namespace Sim
