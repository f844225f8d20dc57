// One counted reference to an object, with one owner.
#ifndef KESD_CLIENT_OBJECT_REF_H_
#define KESD_CLIENT_OBJECT_REF_H_

#include <utility>

#include "ipc/object.h"

namespace kes {

class ObjectRef {  // releases the reference that it holds; {nullptr, nullptr} holds none
 public:
  ObjectRef() = default;
  // Takes over one reference.
  explicit ObjectRef(const Object& owned) : object(owned) {}
  ObjectRef(ObjectRef&& other) noexcept : object(std::exchange(other.object, kNone)) {}
  ObjectRef& operator=(ObjectRef&& other) noexcept {
    if (this != &other) {
      Reset();
      object = std::exchange(other.object, kNone);
    }
    return *this;
  }
  ~ObjectRef() { Reset(); }

  const Object& Get() const { return object; }
  explicit operator bool() const { return object.invoke != nullptr; }

  void Reset() {
    const Object old = std::exchange(object, kNone);
    if (old.invoke != nullptr) ObjectRelease(old);
  }

 private:
  static constexpr Object kNone{nullptr, nullptr};

  Object object = kNone;
};

}  // namespace kes

#endif  // KESD_CLIENT_OBJECT_REF_H_
