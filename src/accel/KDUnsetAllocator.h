// An allocator for the build's large scratch arrays.
#pragma once

#include <memory>
#include <new>
#include <utility>

// Storage whose new elements are left unset: the build sizes its event lists
// and its corner scratch first and then writes every slot it keeps, so
// zeroing them would be a wasted pass over memory.
template <typename T>
struct KDUnsetAllocator : std::allocator<T> {
  template <typename U>
  struct rebind {
    using other = KDUnsetAllocator<U>;
  };
  template <typename U>
  void construct(U* at) noexcept {
    ::new (static_cast<void*>(at)) U;
  }
  template <typename U, typename... Args>
  void construct(U* at, Args&&... args) {
    ::new (static_cast<void*>(at)) U(std::forward<Args>(args)...);
  }
};
