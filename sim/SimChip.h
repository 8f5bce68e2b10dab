// The simulated switch chip: its tables' rows (ChipState), counters of the hardware operations,
// which rows each phase touched, and asynchronous write completions that the agent's loop
// delivers, in order or not, as the chip's options say.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <random>
#include <vector>

#include "sim/ChipState.h"

namespace Sim {

// How queued write completions are delivered: `window` 1 delivers them in order; a larger window
// delivers a random one (seeded) of the first `window`; `holdBack` keeps that many queued until
// a flush, to delay them.
struct AckPolicy {
   std::size_t window = 1;
   std::size_t holdBack = 0;
   std::uint64_t seed = 1;
};

// Write completions a table's chip side has not delivered yet.
class WriteCompletions {
  public:
   virtual ~WriteCompletions() = default;
   virtual std::size_t pendingAcks() const = 0;
   // Delivers up to `limit` completions under the chip's policy (all of them with `flush`, also
   // those held back). Returns how many reached the table.
   virtual std::size_t deliverAcks(std::size_t limit, bool flush = false) = 0;
};

// A queue of completions taken under an AckPolicy.
template <class T>
class CompletionQueue {
  public:
   void push(const T& completion) { queue_.push_back(completion); }
   std::size_t size() const noexcept { return queue_.size(); }
   void clear() noexcept { queue_.clear(); }
   // The next completion to deliver, or nothing when the policy holds the rest back.
   std::optional<T> take(const AckPolicy& policy, bool flush, std::mt19937_64& rng) {
      if (queue_.empty() || (!flush && queue_.size() <= policy.holdBack)) {
         return std::nullopt;
      }
      const std::size_t window = std::min(std::max<std::size_t>(policy.window, 1), queue_.size());
      const std::size_t pick = window == 1 ? 0 : std::uniform_int_distribution<std::size_t>(0, window - 1)(rng);
      T completion = queue_[pick];
      queue_.erase(queue_.begin() + static_cast<std::ptrdiff_t>(pick));
      return completion;
   }
   // Puts a completion back at the front (its table cannot take it yet).
   void putBack(const T& completion) { queue_.push_front(completion); }

  private:
   std::deque<T> queue_;
};

class SimChip {
  public:
   // What the chip did, per table.
   struct Counters {
      std::uint64_t decapWrites = 0;
      std::uint64_t decapDeletes = 0;
      std::uint64_t profileWrites = 0;
      std::uint64_t profileDeletes = 0;
   };
   // What happened to one decap row since the last resetTouched().
   enum Touch : std::uint8_t { untouched = 0, written = 1, deleted = 2 };

   explicit SimChip(ChipState state);
   ~SimChip();
   SimChip(const SimChip&) = delete;
   SimChip& operator=(const SimChip&) = delete;

   ChipState& state() noexcept { return state_; }
   const ChipState& state() const noexcept { return state_; }
   Counters& counters() noexcept { return counters_; }
   const Counters& counters() const noexcept { return counters_; }

   AckPolicy ackPolicy;
   std::mt19937_64& rng() noexcept { return rng_; }
   void ackPolicyIs(const AckPolicy& policy) {
      ackPolicy = policy;
      rng_.seed(policy.seed);
   }

   // Row operations, counted and recorded.
   void decapRowIs(std::uint32_t index, const DecapRow& row);
   void decapRowDel(std::uint32_t index);
   void profileRowIs(std::uint32_t index, const ProfileRow& row);
   void profileRowDel(std::uint32_t index);

   std::uint8_t decapTouch(std::uint32_t index) const noexcept { return touched_.at(index); }
   void resetTouched();

   // The chip the plug-in's Util drives: the one the agent opened last.
   static SimChip* current() noexcept;

  private:
   ChipState state_;
   Counters counters_;
   std::vector<std::uint8_t> touched_;
   std::mt19937_64 rng_{1};
};

}  // namespace Sim
