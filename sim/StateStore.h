// The agent's state store: an SQLite database beside the chip file (<chip file>.db, WAL mode)
// that keeps between agent lives the id of the chip it belongs to and the decap row each tunnel
// key uses (its binding), so that the next life binds every key to its row and adopts the rows
// whose content is still right without writing them.
//
// Write-ahead. The store is the chip's RowJournal: a key's binding is committed before the chip
// sees its row's write, and a binding goes only in the first commit after its row's delete has
// reached the chip. Whenever the agent is killed, every valued row of the chip therefore has the
// binding of the key it was written for. Commits are batched, one per batch of chip writes.
// They survive the agent's death (synchronous=NORMAL); a power cut, which empties a real chip's
// tables too, may lose the last ones.
//
// Schema version 1 (PRAGMA user_version), STRICT tables:
//   chip(id TEXT, decap_rows INTEGER)                   one row: the chip's id and size
//   bindings(decap_row INTEGER PRIMARY KEY, key INTEGER) a row has at most one key; a key is
//       stored as the signed 64-bit integer of the same bits (printf('%llu', key) shows it)
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <unordered_set>
#include <vector>

#include "sim/ChipState.h"
#include "sim/SimChip.h"

struct sqlite3;
struct sqlite3_stmt;

namespace Sim {

// A state store that cannot be used; the message names the file and the problem.
class StateStoreError : public std::runtime_error {
  public:
   using std::runtime_error::runtime_error;
};

struct Binding {
   std::uint64_t key = 0;
   std::uint32_t row = 0;
};

class StateStore final : public RowJournal {
  public:
   static constexpr int kSchemaVersion = 1;
   static std::string pathFor(const std::string& chipFile) { return chipFile + ".db"; }

   // Opens the store at `path` and checks all of it: it is no symbolic link (nor are its WAL
   // files), it can be read, and written unless `readOnly`, its schema, its chip record, and its
   // bindings (rows inside the chip, no key twice). Returns null when there is none. Throws
   // StateStoreError naming the file and the problem, having changed nothing. A store opened
   // `readOnly` changes nothing either (it may rebuild the WAL's index that a kill left stale).
   static std::unique_ptr<StateStore> open(const std::string& path, bool readOnly);
   // Makes a new store at `path` for `chip` (stale WAL files of a removed store go first).
   static std::unique_ptr<StateStore> create(const std::string& path, const ChipState& chip);
   ~StateStore() override;
   StateStore(const StateStore&) = delete;
   StateStore& operator=(const StateStore&) = delete;

   const std::string& path() const noexcept { return path_; }
   // The bindings read when the store was opened, in row order.
   const std::vector<Binding>& bindings() const noexcept { return bindings_; }
   // Throws StateStoreError unless the store belongs to `chip`. A store whose making was cut
   // short (no schema yet) belongs to none and may be given to any.
   void checkBelongsTo(const ChipState& chip) const;
   // Throws StateStoreError unless the store may be given to a new chip: its own chip's file
   // (`chipFile`) is gone, and it holds no binding that could still matter.
   void checkFreeForNewChip(const std::string& chipFile) const;
   // Gives the store to `chip` (making its schema if needed); nothing to do when it is its.
   void chipIs(const ChipState& chip);

   bool mustWaitForQueue(std::uint32_t index, std::uint64_t key) const override;
   void ownerIs(std::uint32_t index, std::uint64_t key) override;
   void rowDeleted(std::uint32_t index, std::optional<std::uint64_t> owner) override;
   void commit() override;
   void applied() override;

   // At the end of a run, with every write on the chip: commits what is left and drops the
   // bindings read at the start whose key no longer uses that row (`inUse` tells): keys that were
   // not configured again, and whose rows had nothing to delete.
   void finish(const std::function<bool(const Binding&)>& inUse);
   // Time spent in the database since the store was opened.
   double seconds() const noexcept { return seconds_; }

  private:
   StateStore(std::string path, bool readOnly);
   void connect(int flags, const char* synchronous = "NORMAL");
   void load();
   void loadChip();
   void loadBindings();
   void exec(const char* sql);
   void transaction(const std::function<void()>& body);
   sqlite3_stmt* prepare(const char* sql);
   // Binds `values` (when given) to the first parameters, runs the statement and resets it.
   void step(sqlite3_stmt* statement, std::initializer_list<std::int64_t> values);
   [[noreturn]] void fail(const std::string& what) const;
   [[noreturn]] void damaged(const std::string& problem) const;

   std::string path_;
   bool readOnly_;
   sqlite3* db_ = nullptr;
   sqlite3_stmt* upsert_ = nullptr;
   sqlite3_stmt* upsertMany_ = nullptr;
   sqlite3_stmt* dropRow_ = nullptr;
   sqlite3_stmt* dropBinding_ = nullptr;
   bool unfinished_ = false;  // no schema: its making was cut short
   std::string chipId_;
   std::uint32_t decapRows_ = 0;
   std::vector<Binding> bindings_;
   // Journal: bindings to commit; rows whose delete is queued on the chip (and their owners);
   // rows whose delete is on the chip, whose bindings the next commit drops.
   std::vector<Binding> upserts_;
   std::vector<std::uint32_t> queuedDrops_;
   std::unordered_set<std::uint32_t> queuedDropRows_;
   std::unordered_set<std::uint64_t> queuedDropKeys_;
   std::vector<std::uint32_t> readyDrops_;
   double seconds_ = 0;
};

}  // namespace Sim
