#include "runtime/PRBClock.h"

std::atomic<timeval (*)()> PRBClock::source{nullptr};
