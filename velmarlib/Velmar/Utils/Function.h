// Function: a copyable callable on the module's memory.
//
//   Function<bool(const Row&)> filter([port](const Row& row) { return row.port == port; });
//   if (!filter) return false;   // no memory for what it captured
#pragma once

#include <cstddef>
#include <functional>
#include <new>
#include <type_traits>
#include <utility>

#include "Velmar/Collections/ModuleMemory.h"

namespace Velmar::Utils {

template <class Signature>
class Function;

// Lifetime: holds a copy of the callable, inside the object when it is small, else on the module's memory.
// Threads: thread-compatible. Errors: construction and CopyFrom that find no memory leave an empty Function.
template <class Result, class... Arguments>
class Function<Result(Arguments...)> {
 public:
  Function() = default;

  // A null pointer to a function gives an empty Function.
  template <class Callable, class = std::enable_if_t<!std::is_same_v<std::decay_t<Callable>, Function> &&
                                                     std::is_invocable_r_v<Result, Callable&, Arguments...>>>
  Function(Callable callable) {  // NOLINT(google-explicit-constructor): any fitting callable converts
    if constexpr (std::is_pointer_v<Callable> || std::is_member_pointer_v<Callable>) {
      if (callable == nullptr) {
        return;
      }
    }
    Assign(std::move(callable));
  }

  Function(const Function& other) { CopyFrom(other); }
  Function(Function&& other) noexcept { TakeFrom(other); }
  Function& operator=(const Function& other) {
    if (this != &other) {
      CopyFrom(other);
    }
    return *this;
  }
  Function& operator=(Function&& other) noexcept {
    if (this != &other) {
      Reset();
      TakeFrom(other);
    }
    return *this;
  }
  ~Function() { Reset(); }

  // False, and empty, when there is no memory. Copying an empty Function is true.
  bool CopyFrom(const Function& other) {
    if (this == &other) {
      return true;
    }
    Reset();
    return other.operations_ == nullptr || other.operations_->copy(other, *this);
  }

  void Reset() {
    if (operations_ != nullptr) {
      operations_->destroy(*this);
      operations_ = nullptr;
      object_ = nullptr;
    }
  }

  explicit operator bool() const { return operations_ != nullptr; }

  // Must not be empty.
  Result operator()(Arguments... arguments) const {
    return operations_->call(object_, std::forward<Arguments>(arguments)...);
  }

 private:
  static constexpr std::size_t kInlineSize = 4 * sizeof(void*);

  static constexpr bool FitsArea(std::size_t size, std::size_t alignment) {
    return size <= kInlineSize && alignment <= alignof(std::max_align_t);
  }

  struct Operations {
    Result (*call)(void* object, Arguments&&... arguments);
    bool (*copy)(const Function& from, Function& to);
    void (*move)(Function& from, Function& to);
    void (*destroy)(Function& self);
  };

  template <class Callable>
  static constexpr bool kFitsInline =
      FitsArea(sizeof(Callable), alignof(Callable)) && std::is_nothrow_move_constructible_v<Callable>;

  template <class Callable>
  struct Instance {
    static Result Call(void* object, Arguments&&... arguments) {
      if constexpr (std::is_void_v<Result>) {
        std::invoke(*static_cast<Callable*>(object), std::forward<Arguments>(arguments)...);
      } else {
        return std::invoke(*static_cast<Callable*>(object), std::forward<Arguments>(arguments)...);
      }
    }
    static bool Copy(const Function& from, Function& to) {
      return to.Assign(Callable(*static_cast<const Callable*>(from.object_)));
    }
    static void Move(Function& from, Function& to) {
      if constexpr (kFitsInline<Callable>) {
        to.object_ = ::new (static_cast<void*>(to.area_)) Callable(std::move(*static_cast<Callable*>(from.object_)));
        static_cast<Callable*>(from.object_)->~Callable();
      } else {
        to.object_ = from.object_;
      }
    }
    static void Destroy(Function& self) {
      if constexpr (kFitsInline<Callable>) {
        static_cast<Callable*>(self.object_)->~Callable();
      } else {
        Collections::Delete(static_cast<Callable*>(self.object_));
      }
    }
    static constexpr Operations kOperations{&Call, &Copy, &Move, &Destroy};
  };

  template <class Callable>
  bool Assign(Callable&& callable) {
    using Stored = std::decay_t<Callable>;
    if constexpr (kFitsInline<Stored>) {
      object_ = ::new (static_cast<void*>(area_)) Stored(std::forward<Callable>(callable));
    } else {
      static_assert(alignof(Stored) <= alignof(std::max_align_t), "module memory is aligned for ordinary objects only");
      object_ = Collections::New<Stored>(std::forward<Callable>(callable));
    }
    if (object_ == nullptr) {
      return false;
    }
    operations_ = &Instance<Stored>::kOperations;
    return true;
  }

  void TakeFrom(Function& other) {
    if (other.operations_ != nullptr) {
      other.operations_->move(other, *this);
      operations_ = other.operations_;
      other.operations_ = nullptr;
      other.object_ = nullptr;
    }
  }

  const Operations* operations_ = nullptr;
  void* object_ = nullptr;
  alignas(std::max_align_t) unsigned char area_[kInlineSize];
};

}  // namespace Velmar::Utils
