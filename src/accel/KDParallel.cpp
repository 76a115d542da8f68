#include "accel/KDParallel.h"

#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

void RunParts(size_t count, const std::function<void(size_t)>& part) {
  // A part that throws (an allocation that fails) must not end the process
  // from a helper, nor leave a helper running: the first exception goes on
  // from the calling thread once every part has ended.
  std::exception_ptr failure;
  std::mutex failureLock;
  const auto guarded = [&](size_t i) {
    try {
      part(i);
    } catch (...) {
      std::lock_guard<std::mutex> lock(failureLock);
      if (!failure) failure = std::current_exception();
    }
  };
  std::vector<std::thread> helpers;
  std::vector<size_t> left;
  helpers.reserve(count);
  for (size_t i = 1; i < count; ++i) {
    try {
      helpers.emplace_back(guarded, i);
    } catch (const std::system_error&) {
      left.push_back(i);
    }
  }
  if (count > 0) guarded(0);
  for (size_t i : left) guarded(i);
  for (std::thread& helper : helpers) helper.join();
  if (failure) std::rethrow_exception(failure);
}
