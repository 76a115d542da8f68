#include "accel/KDParallel.h"

#include <system_error>
#include <thread>
#include <vector>

void RunParts(size_t count, const std::function<void(size_t)>& part) {
  std::vector<std::thread> helpers;
  std::vector<size_t> left;
  helpers.reserve(count);
  for (size_t i = 1; i < count; ++i) {
    try {
      helpers.emplace_back(part, i);
    } catch (const std::system_error&) {
      left.push_back(i);
    }
  }
  if (count > 0) part(0);
  for (size_t i : left) part(i);
  for (std::thread& helper : helpers) helper.join();
}
