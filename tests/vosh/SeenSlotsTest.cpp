#include "vosh/SeenSlots.h"

#include <gtest/gtest.h>

#include <random>

#include "../kiv/NumberedTestKey.h"

namespace {

using KivTest::Key;
using KivTest::kNumbered;

// The compact view, keys by number and the few without one aside, sees
// exactly what the plain one does: slots taken, released, retaken by keys of
// either kind, and dropped by a smaller capacity.
TEST(SeenSlots, keyNumbersRememberWhatKeysThemselvesWould) {
  Vosh::SeenSlots<Key, true> compact;
  Vosh::SeenSlots<Key, false> plain;
  std::mt19937_64 rng(17);
  compact.resize(64);
  plain.resize(64);
  for (int i = 0; i < 10000; ++i) {
    const uint32_t s = static_cast<uint32_t>(rng() % compact.size());
    const uint64_t roll = rng() % 10;
    if (roll < 5) {
      const Key k{roll == 0 ? kNumbered + rng() % 100 : rng() % kNumbered};
      compact.keyIs(s, k);
      plain.keyIs(s, k);
    } else if (roll < 8) {
      compact.release(s);
      plain.release(s);
    } else if (roll < 9) {
      compact.seqIs(s, static_cast<uint32_t>(i));
      plain.seqIs(s, static_cast<uint32_t>(i));
    } else {
      const uint32_t slots = static_cast<uint32_t>(32 + rng() % 64);
      compact.resize(slots);
      plain.resize(slots);
    }
    ASSERT_EQ(compact.size(), plain.size());
    for (uint32_t t = 0; t < plain.size(); ++t) {
      ASSERT_EQ(compact.used(t), plain.used(t)) << t;
      ASSERT_EQ(compact.seq(t), plain.seq(t)) << t;
      if (plain.used(t)) {
        ASSERT_EQ(compact.key(t), plain.key(t)) << t;
      }
    }
  }
}

}  // namespace
