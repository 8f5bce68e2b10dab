// Reference-counted entities and the intrusive pointer that holds them. Stands in for the agent
// framework's node base and its smart pointer.
//
// Counting. `refInc`/`refDec` count the holders of an object. In the framework's multi-threaded
// mode the count changes with atomic read-modify-write operations; in single-threaded mode (the
// default) with a plain load and store, so the hot paths pay for no bus lock.
//
// One uncounted holder. A container may hold an object without that hold counting as a use (the
// table's entry-handle collection holding a reference-only handle). The container keeps a real
// reference and flags it with `uncountedHolderIs(true)`; the user count is then the holder count
// minus one. When the user count drops to zero `lastUserGone()` runs while the container still
// keeps the object alive; the object is destroyed exactly when no holder at all is left.
//
// Threads. In multi-threaded mode holds may be taken and dropped on any thread; which release may
// be the last one, and so where `lastUserGone()` runs, is the owner's rule (an entry handle's is
// its table's owning thread: docs/ARCHITECTURE.md, "Threads"). The uncounted-holder flag, which
// every release reads, is atomic; the other flags change only in a last release.
//
// Re-entrancy. While `lastUserGone()` runs, the object holds one guard reference of its own, so
// references taken and dropped inside the hook neither re-enter it nor destroy the object under
// its feet. When the hook returns and no holder is left, the object is deleted.
#pragma once

#include <atomic>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>

namespace Fwk {

enum class ThreadingMode : std::uint8_t { singleThreaded, multiThreaded };

// The process-wide threading switch. Set it once at start-up, before entities are shared.
void threadingModeIs(ThreadingMode mode) noexcept;
ThreadingMode threadingMode() noexcept;

namespace Detail {
extern std::atomic<bool> multiThreaded;
inline bool multiThreadedMode() noexcept {
   return multiThreaded.load(std::memory_order_relaxed);
}
}  // namespace Detail

class PtrInterface {
 public:
   PtrInterface() = default;
   PtrInterface(const PtrInterface&) = delete;
   PtrInterface& operator=(const PtrInterface&) = delete;

   // Takes one hold. Prefer a Ptr, which takes and drops holds itself.
   void refInc() const noexcept {
      if (Detail::multiThreadedMode()) {
         holders_.fetch_add(1, std::memory_order_relaxed);
      } else {
         holders_.store(holders_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
      }
   }
   // Drops one hold: the last user gone runs lastUserGone(), the last holder gone deletes.
   void refDec() const noexcept;

   // Number of users: holders, less the uncounted holder if there is one.
   std::uint32_t refCount() const noexcept {
      return holders_.load(std::memory_order_relaxed) - (uncountedHolder() ? 1U : 0U);
   }
   // Number of holders, the uncounted one included.
   std::uint32_t holderCount() const noexcept { return holders_.load(std::memory_order_relaxed); }

   // Whether one holder is flagged as not counting as a user.
   bool uncountedHolder() const noexcept {
      return uncountedHolder_.load(std::memory_order_relaxed);
   }
   // Marks (or unmarks) one existing holder as not counting as a user. Marking it may drop the
   // user count to zero, which runs `lastUserGone()`.
   void uncountedHolderIs(bool uncounted) noexcept;

   // True once the entity's destructor has begun.
   bool underDestruction() const noexcept { return underDestruction_; }

 protected:
   virtual ~PtrInterface() = default;
   // Runs when the user count reaches zero. The default does nothing: the object is deleted
   // afterwards if nothing holds it any more.
   virtual void lastUserGone() {}
   // First step of every destructor of ours: the entity is being torn down.
   void underDestructionIs() noexcept { underDestruction_ = true; }

 private:
   void runLastUserGone() noexcept;
   std::uint32_t decrement() const noexcept {
      if (Detail::multiThreadedMode()) {
         return holders_.fetch_sub(1, std::memory_order_acq_rel) - 1;
      }
      const std::uint32_t n = holders_.load(std::memory_order_relaxed) - 1;
      holders_.store(n, std::memory_order_relaxed);
      return n;
   }

   mutable std::atomic<std::uint32_t> holders_{0};
   std::atomic<bool> uncountedHolder_{false};
   bool underDestruction_ = false;
   bool inLastUserGone_ = false;

 protected:
   // Spare flag bits for derived framework classes (keeps them out of a padding hole).
   std::uint8_t fwkFlags_ = 0;
};

// The intrusive pointer: each non-null Ptr is one holder of its object. Copies take a hold,
// moves pass it on, destruction and reset drop it.
template <class T>
class Ptr {
 public:
   using element_type = T;

   Ptr() noexcept = default;
   Ptr(std::nullptr_t) noexcept {}  // NOLINT(google-explicit-constructor)
   Ptr(T* p) noexcept : p_(p) {     // NOLINT(google-explicit-constructor)
      if (p_) {
         p_->refInc();
      }
   }
   Ptr(const Ptr& o) noexcept : Ptr(o.p_) {}
   Ptr(Ptr&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
   template <class U>
   requires std::is_convertible_v<U*, T*> Ptr(const Ptr<U>& o)
   noexcept : Ptr(o.get()) {}  // NOLINT(google-explicit-constructor)
   template <class U>
   requires std::is_convertible_v<U*, T*> Ptr(Ptr<U>&& o)
   noexcept : p_(o.release()) {}  // NOLINT(google-explicit-constructor)
   ~Ptr() { reset(); }

   Ptr& operator=(const Ptr& o) noexcept {
      if (this != &o) {
         Ptr(o).swap(*this);
      }
      return *this;
   }
   Ptr& operator=(Ptr&& o) noexcept {
      Ptr(std::move(o)).swap(*this);
      return *this;
   }
   Ptr& operator=(std::nullptr_t) noexcept {
      reset();
      return *this;
   }

   void reset() noexcept {
      if (T* p = std::exchange(p_, nullptr)) {
         p->refDec();
      }
   }
   // Gives up the pointer without releasing its reference.
   T* release() noexcept { return std::exchange(p_, nullptr); }
   // Adopts a pointer whose reference the caller already took.
   static Ptr adopt(T* p) noexcept {
      Ptr r;
      r.p_ = p;
      return r;
   }
   void swap(Ptr& o) noexcept { std::swap(p_, o.p_); }

   T* get() const noexcept { return p_; }
   T* operator->() const noexcept { return p_; }
   T& operator*() const noexcept { return *p_; }
   explicit operator bool() const noexcept { return p_ != nullptr; }

   template <class U>
   bool operator==(const Ptr<U>& o) const noexcept {
      return p_ == o.get();
   }
   bool operator==(std::nullptr_t) const noexcept { return p_ == nullptr; }

 private:
   T* p_ = nullptr;
};

// Creates a T; the returned pointer is its first holder.
template <class T, class... Args>
Ptr<T> make(Args&&... args) {
   return Ptr<T>(new T(std::forward<Args>(args)...));
}

// The object as a T (a dynamic_cast), or null when it is not one.
template <class T, class U>
Ptr<T> ptr_cast(const Ptr<U>& p) noexcept {
   return Ptr<T>(dynamic_cast<T*>(p.get()));
}

}  // namespace Fwk

template <class T>
struct std::hash<Fwk::Ptr<T>> {
   std::size_t operator()(const Fwk::Ptr<T>& p) const noexcept {
      return std::hash<const void*>()(p.get());
   }
};
