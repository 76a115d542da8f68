#include "shading/ShadingCounters.h"

ShadingCounters& ThreadShadingCounters() {
  thread_local ShadingCounters counters;
  return counters;
}
