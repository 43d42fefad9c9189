#include "kiv/Clock.h"

#include <time.h>

namespace Kiv {

double monotonicSeconds() {
   timespec ts;
   clock_gettime(CLOCK_MONOTONIC, &ts);
   return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

double RealClock::now() const { return monotonicSeconds(); }

}  // namespace Kiv
