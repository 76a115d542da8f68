// Data-parallel pieces of a kd-tree build on short-lived helper threads. A
// build uses them only where its workers would otherwise sleep, so that the
// helpers take processors nobody else is using.
#pragma once

#include <cstddef>
#include <functional>

// Runs `part(0)` to `part(count - 1)`, part 0 on the calling thread and each
// other part on a helper of its own, and returns when all have ended. A
// helper that cannot be started runs its part on the calling thread instead,
// so every part runs exactly once whatever the system grants. If parts throw,
// the first exception is thrown from here, after every part has ended.
void RunParts(size_t count, const std::function<void(size_t)>& part);
