// host_ref.h: one reference to a library object, released on scope exit.
//
// Example:
//   lmxhost::Ref<Image> image;
//   Status sts = allocator->CreateImage(&info, 0, nullptr, image.Out());
#pragma once

#include <utility>

namespace lmxhost {

template <class T>
class Ref {
 public:
  Ref() = default;
  explicit Ref(T* object) : object_(object) {}
  ~Ref() { Reset(); }
  Ref(const Ref&) = delete;
  Ref& operator=(const Ref&) = delete;
  Ref(Ref&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  Ref& operator=(Ref&& other) noexcept {
    if (this != &other) {
      Reset();
      object_ = std::exchange(other.object_, nullptr);
    }
    return *this;
  }

  T* Get() const { return object_; }
  T* operator->() const { return object_; }
  explicit operator bool() const { return object_ != nullptr; }
  // For factory calls that write a new object: the old one is released first.
  T** Out() {
    Reset();
    return &object_;
  }
  void Reset() {
    if (object_) std::exchange(object_, nullptr)->Release();
  }

 private:
  T* object_ = nullptr;
};

}  // namespace lmxhost
