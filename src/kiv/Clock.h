#pragma once
// Time in seconds as a double. The agent runs on the real monotonic clock;
// tests and scenario runs use a virtual clock that only moves when told, so a
// 600-second time-out costs no wall time.

#include "kiv/Ptr.h"

namespace Kiv {

class Clock : public RefCounted {
 public:
   virtual double now() const = 0;
};

class RealClock : public Clock {
 public:
   double now() const override;
};

class VirtualClock : public Clock {
 public:
   double now() const override { return now_; }
   void nowIs(double t) { now_ = t; }
   void advance(double seconds) { now_ += seconds; }

 private:
   double now_ = 0.0;
};

// Monotonic wall time in seconds, for measuring rather than scheduling.
double monotonicSeconds();

}  // namespace Kiv
