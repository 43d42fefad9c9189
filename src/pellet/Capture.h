#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace Pellet {

// Turns on every level of the chosen facilities (all of them when none are named) for as long
// as it lives, and keeps the messages so a test can assert on the ones that are the only sign
// of a behaviour. Captures add to the configured levels without changing them, so nothing is
// left to restore by hand; the rings do not see the extra levels.
class Capture {
 public:
  struct Message {
    std::string facility;
    int level;
    std::string text;
  };

  Capture();
  explicit Capture(std::initializer_list<std::string_view> facilities);
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;
  ~Capture();

  const std::vector<Message>& messages() const { return messages_; }
  // Whether any message contains `text`.
  bool contains(std::string_view text) const;
  // How many messages contain `text`.
  std::size_t count(std::string_view text) const;
  void clear() { messages_.clear(); }

 private:
  friend class Registry;

  bool wants(std::string_view facility) const;
  void collect(std::string_view facility, int level, std::string_view text);

  std::vector<std::string> facilities_;
  std::vector<Message> messages_;
};

}  // namespace Pellet
