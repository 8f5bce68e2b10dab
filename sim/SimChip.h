// The simulated switch chip: its tables' rows (ChipState), counters of the hardware operations,
// which rows each phase touched, asynchronous write completions that the agent's loop delivers,
// in order or not, as the chip's options say, and the write queue that lets the agent record
// durably which key a decap row belongs to before the chip sees the row's write.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <random>
#include <string>
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
   // Whether take() would give a completion.
   bool ready(const AckPolicy& policy, bool flush) const noexcept {
      return !queue_.empty() && (flush || queue_.size() > policy.holdBack);
   }

  private:
   std::deque<T> queue_;
};

// What the agent makes durable before the chip sees a decap row's write: the key each row
// belongs to (its state store). The chip calls it as it queues row writes and commits it before
// it applies them (SimChip::journalIs).
class RowJournal {
  public:
   virtual ~RowJournal() = default;
   // Whether recording `key` as the owner of row `index` must wait until the writes queued so far
   // are on the chip: it would displace an owner whose row's delete is still queued.
   virtual bool mustWaitForQueue(std::uint32_t index, std::uint64_t key) const = 0;
   // Row `index` is about to be written for `key`.
   virtual void ownerIs(std::uint32_t index, std::uint64_t key) = 0;
   // Row `index`, owned by `owner` if known, is about to be deleted; its record may go once the
   // delete is on the chip.
   virtual void rowDeleted(std::uint32_t index, std::optional<std::uint64_t> owner) = 0;
   // Makes every record so far durable; throws when it cannot.
   virtual void commit() = 0;
   // The writes that the last commit covered are on the chip.
   virtual void applied() = 0;
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

   // Row operations, counted and recorded. `owner` is the key the decap row is written for.
   void decapRowIs(std::uint32_t index, const DecapRow& row,
                   std::optional<std::uint64_t> owner = std::nullopt);
   void decapRowDel(std::uint32_t index, std::optional<std::uint64_t> owner = std::nullopt);
   void profileRowIs(std::uint32_t index, const ProfileRow& row);
   void profileRowDel(std::uint32_t index);
   // Rows as the chip holds them, queued writes included (reading a row with a queued write
   // applies the queue first, as a chip orders a read after the writes before it).
   DecapRow decapRow(std::uint32_t index);
   ProfileRow profileRow(std::uint32_t index);

   // With a journal, row writes (of both tables, in their order) are queued and reach the chip
   // state `batch` at a time, each batch only after journal->commit(): a kill at any moment
   // leaves a chip state that the journal's durable records cover. Without one (nullptr),
   // writes reach the chip state at once.
   void journalIs(RowJournal* journal, std::size_t batch);
   // Commits the journal and applies every queued write. When the commit fails, the chip applies
   // nothing more, ever: failure() says why, and the agent stops at its next step.
   void applyQueued();
   const std::optional<std::string>& failure() const noexcept { return failure_; }

   std::uint8_t decapTouch(std::uint32_t index) const noexcept { return touched_.at(index); }
   void resetTouched();

   // The chip the plug-in's Util drives: the one the agent opened last.
   static SimChip* current() noexcept;

  private:
   struct QueuedWrite {
      std::uint32_t index;
      bool profile;  // a profile row (else a decap row)
      DecapRow decap;
      ProfileRow profileRow;
   };
   void putProfileRow(std::uint32_t index, const ProfileRow& row);
   void queue(const QueuedWrite& write);
   std::vector<bool>& queuedRows(bool profile) { return profile ? queuedProfile_ : queuedDecap_; }

   ChipState state_;
   Counters counters_;
   std::vector<std::uint8_t> touched_;
   std::mt19937_64 rng_{1};
   RowJournal* journal_ = nullptr;
   std::size_t batch_ = 0;
   std::vector<QueuedWrite> queue_;
   std::vector<bool> queuedDecap_;    // rows with a write in queue_
   std::vector<bool> queuedProfile_;
   std::optional<std::string> failure_;
};

}  // namespace Sim
