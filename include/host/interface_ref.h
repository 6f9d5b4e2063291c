// Host objects and references to their interfaces.
#pragma once

#include <memory>
#include <string_view>
#include <utility>

#include "host/null_pointer.h"

namespace host {

/// A host object: reference-counted through `std::shared_ptr`, asked for its interfaces by name.
/// Every interface type declares `static constexpr const char* kInterfaceName`.
class IObject {
 public:
  virtual ~IObject() = default;
  /// The interface called `interfaceName`, or null when the object does not have it.
  virtual void* QueryInterface(std::string_view interfaceName) noexcept = 0;
};

/// A counted reference to one interface of a host object. It is empty when either the object or
/// the interface pointer is null. Calling through an empty reference, or querying one, raises the
/// host's null-pointer exception naming the interface.
template <class T>
class InterfaceRef {
 public:
  /// An empty reference.
  InterfaceRef() = default;
  /// A reference that shares ownership of `object` and calls through `iface`, which must belong
  /// to it; empty when either is null.
  InterfaceRef(std::shared_ptr<IObject> object, T* iface)
      : object_(std::move(object)), iface_(iface) {}

  /// The interface `T` of `object`; empty when the object is null or lacks it.
  static InterfaceRef FromObject(std::shared_ptr<IObject> object) {
    T* iface = object ? static_cast<T*>(object->QueryInterface(T::kInterfaceName)) : nullptr;
    return InterfaceRef(std::move(object), iface);
  }

  /// True when the object or the interface pointer is null.
  bool IsEmpty() const { return !object_ || !iface_; }
  /// True when not empty.
  explicit operator bool() const { return !IsEmpty(); }

  /// The interface; raises the null-pointer exception when the reference is empty.
  T* operator->() const {
    if (IsEmpty()) DoThrowNullPtrException(T::kInterfaceName);
    return iface_;
  }
  /// The interface pointer, null when there is none; the object keeps it alive, not the caller.
  T* Get() const { return iface_; }
  /// The object behind the interface, null when there is none.
  const std::shared_ptr<IObject>& Object() const { return object_; }

  /// Another interface of the same object; an empty reference (object kept) when it lacks it.
  /// Raises the null-pointer exception when this reference has no object.
  template <class U>
  InterfaceRef<U> Query() const {
    if (!object_) DoThrowNullPtrException(T::kInterfaceName);
    return InterfaceRef<U>(object_, static_cast<U*>(object_->QueryInterface(U::kInterfaceName)));
  }

  /// Drops the reference, making it empty.
  void Reset() {
    object_.reset();
    iface_ = nullptr;
  }

 private:
  std::shared_ptr<IObject> object_;
  T* iface_ = nullptr;
};

}  // namespace host
