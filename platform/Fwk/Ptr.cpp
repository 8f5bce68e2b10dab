#include "Fwk/Ptr.h"

namespace Fwk {

namespace Detail {
std::atomic<bool> multiThreaded{false};
}

void threadingModeIs(ThreadingMode mode) noexcept {
   Detail::multiThreaded.store(mode == ThreadingMode::multiThreaded, std::memory_order_relaxed);
}

ThreadingMode threadingMode() noexcept {
   return Detail::multiThreadedMode() ? ThreadingMode::multiThreaded
                                      : ThreadingMode::singleThreaded;
}

void PtrInterface::refDec() const noexcept {
   // Once the count has dropped, another thread may release the last holder and delete the
   // object: read the flag first, and touch the object only when this release may end its use.
   const bool uncounted = uncountedHolder();
   const std::uint32_t left = decrement();
   if (left > (uncounted ? 1U : 0U)) {
      return;
   }
   if (underDestruction_) {
      return;  // references taken and dropped by a destructor's own steps
   }
   const bool lastUser = uncountedHolder() ? left == 1 : left == 0;
   if (lastUser && !inLastUserGone_) {
      const_cast<PtrInterface*>(this)->runLastUserGone();
   } else if (left == 0 && !inLastUserGone_) {
      delete this;
   }
}

void PtrInterface::uncountedHolderIs(bool uncounted) noexcept {
   if (uncounted == uncountedHolder()) {
      return;
   }
   uncountedHolder_.store(uncounted, std::memory_order_relaxed);
   if (uncounted && holderCount() == 1 && !inLastUserGone_) {
      runLastUserGone();
   }
}

void PtrInterface::runLastUserGone() noexcept {
   refInc();  // the guard reference
   inLastUserGone_ = true;
   lastUserGone();
   inLastUserGone_ = false;
   if (decrement() == 0) {
      delete this;
   }
}

}  // namespace Fwk
