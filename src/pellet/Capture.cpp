#include "pellet/Capture.h"

#include <algorithm>

#include "pellet/Registry.h"

namespace Pellet {

Capture::Capture() { Registry::instance().captureIs(*this); }

Capture::Capture(std::initializer_list<std::string_view> facilities)
    : facilities_(facilities.begin(), facilities.end()) {
  Registry::instance().captureIs(*this);
}

Capture::~Capture() { Registry::instance().captureDel(*this); }

bool Capture::contains(std::string_view text) const { return count(text) > 0; }

std::size_t Capture::count(std::string_view text) const {
  return static_cast<std::size_t>(std::count_if(
      messages_.begin(), messages_.end(),
      [&](const Message& message) { return message.text.find(text) != std::string::npos; }));
}

bool Capture::wants(std::string_view facility) const {
  return facilities_.empty() ||
         std::find(facilities_.begin(), facilities_.end(), facility) != facilities_.end();
}

void Capture::collect(std::string_view facility, int level, std::string_view text) {
  messages_.push_back(Message{std::string(facility), level, std::string(text)});
}

}  // namespace Pellet
