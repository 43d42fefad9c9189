#include "vosh/ChangeChannel.h"

#include <algorithm>

#include <fmt/format.h>

#include "kiv/HashMap.h"
#include "vosh/TableBase.h"

namespace Vosh {

namespace {

// The agent is single-threaded; so is this registry.
Kiv::HashMap<std::string, ChangeChannel*>& channels() {
  static auto* const registry = new Kiv::HashMap<std::string, ChangeChannel*>();
  return *registry;
}

}  // namespace

Kiv::Ptr<ChangeChannel> ChangeChannel::of(std::string_view segmentBaseName,
                                          std::string_view collection) {
  std::string key = fmt::format("{}\n{}", segmentBaseName, collection);
  if (ChangeChannel** existing = channels().find(key)) return Kiv::Ptr<ChangeChannel>(*existing);
  auto* channel = new ChangeChannel(key);
  channels().insert(key, channel);
  return Kiv::Ptr<ChangeChannel>(channel);
}

ChangeChannel::ChangeChannel(std::string key) : key_(std::move(key)) {}

ChangeChannel::~ChangeChannel() { channels().erase(key_); }

void ChangeChannel::readerIs(TableBase* reader) { readers_.push_back(reader); }

void ChangeChannel::readerDel(TableBase* reader) { std::erase(readers_, reader); }

void ChangeChannel::wakeReaders() const {
  for (TableBase* reader : readers_) reader->wake();
}

}  // namespace Vosh
