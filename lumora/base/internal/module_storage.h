// Storage for objects that live from module start to module stop.
//
// Unlike std::optional or std::unique_ptr at namespace scope, this holder is
// trivially destructible, so the compiler registers no exit-time destructor
// for it: the object lives exactly as long as the module's own start and stop
// say, whatever order the linker gives static destructors across files.
#pragma once

#include <new>
#include <utility>

namespace lumora::internal {

template <typename T>
class TmoduleStorage {
 public:
  constexpr TmoduleStorage() = default;
  TmoduleStorage(const TmoduleStorage&) = delete;
  TmoduleStorage& operator=(const TmoduleStorage&) = delete;

  template <typename... Args>
  T& emplace(Args&&... args) {
    reset();
    T* object = ::new (static_cast<void*>(fBytes)) T(std::forward<Args>(args)...);
    fLive = true;
    return *object;
  }
  void reset() {
    T* object = get();
    if (!object) return;
    fLive = false;
    object->~T();
  }
  bool has_value() const { return fLive; }
  explicit operator bool() const { return fLive; }
  T* get() { return fLive ? std::launder(reinterpret_cast<T*>(fBytes)) : nullptr; }
  const T* get() const {
    return fLive ? std::launder(reinterpret_cast<const T*>(fBytes)) : nullptr;
  }
  T* operator->() { return get(); }
  T& operator*() { return *get(); }

 private:
  alignas(T) unsigned char fBytes[sizeof(T)] = {};
  bool fLive = false;
};

}  // namespace lumora::internal
