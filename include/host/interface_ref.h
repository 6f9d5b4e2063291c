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
  InterfaceRef() = default;
  InterfaceRef(std::shared_ptr<IObject> object, T* iface)
      : object_(std::move(object)), iface_(iface) {}

  /// The interface `T` of `object`; empty when the object is null or lacks it.
  static InterfaceRef FromObject(std::shared_ptr<IObject> object) {
    T* iface = object ? static_cast<T*>(object->QueryInterface(T::kInterfaceName)) : nullptr;
    return InterfaceRef(std::move(object), iface);
  }

  bool IsEmpty() const { return !object_ || !iface_; }
  explicit operator bool() const { return !IsEmpty(); }

  T* operator->() const {
    if (IsEmpty()) DoThrowNullPtrException(T::kInterfaceName);
    return iface_;
  }
  T* Get() const { return iface_; }
  const std::shared_ptr<IObject>& Object() const { return object_; }

  /// Another interface of the same object; an empty reference (object kept) when it lacks it.
  /// Raises the null-pointer exception when this reference has no object.
  template <class U>
  InterfaceRef<U> Query() const {
    if (!object_) DoThrowNullPtrException(T::kInterfaceName);
    return InterfaceRef<U>(object_, static_cast<U*>(object_->QueryInterface(U::kInterfaceName)));
  }

  void Reset() {
    object_.reset();
    iface_ = nullptr;
  }

 private:
  std::shared_ptr<IObject> object_;
  T* iface_ = nullptr;
};

}  // namespace host
