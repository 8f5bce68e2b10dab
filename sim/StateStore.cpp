#include "sim/StateStore.h"

#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

namespace Sim {

namespace {

constexpr const char* kChipTable =
    "CREATE TABLE chip (id TEXT NOT NULL, decap_rows INTEGER NOT NULL) STRICT";
constexpr const char* kBindingsTable =
    "CREATE TABLE bindings (decap_row INTEGER PRIMARY KEY, key INTEGER NOT NULL) STRICT";
constexpr int kBusyMilliseconds = 2000;
// Bindings per INSERT statement: one statement for many rows costs a third of a row each.
constexpr std::size_t kUpsertsPerStatement = 32;
constexpr std::size_t kChipIdDigits = 32;

// The files SQLite keeps beside a WAL database.
constexpr const char* kCompanions[] = {"-wal", "-shm", "-journal"};

// Adds the time of its scope to a total.
class Timed {
  public:
   explicit Timed(double& total) : total_(total), start_(std::chrono::steady_clock::now()) {}
   ~Timed() {
      total_ += std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
   }
   Timed(const Timed&) = delete;
   Timed& operator=(const Timed&) = delete;

  private:
   double& total_;
   std::chrono::steady_clock::time_point start_;
};

// The store and its companions must be regular files: SQLite is not to follow a link planted in
// their place.
void checkNoLinks(const std::string& path) {
   for (const std::string& file : {path, path + kCompanions[0], path + kCompanions[1],
                                   path + kCompanions[2]}) {
      struct stat st {};
      if (::lstat(file.c_str(), &st) != 0) {
         continue;
      }
      if (S_ISLNK(st.st_mode)) {
         throw StateStoreError(file + ": is a symbolic link; refused (the agent follows no links)");
      }
      if (!S_ISREG(st.st_mode)) {
         throw StateStoreError(file + ": not a regular file");
      }
   }
}

bool isChipId(const std::string& id) {
   return id.size() == kChipIdDigits &&
          id.find_first_not_of("0123456789abcdef") == std::string::npos;
}

std::int64_t stored(std::uint64_t key) { return static_cast<std::int64_t>(key); }

// INSERT OR REPLACE of `count` bindings.
std::string upsertSql(std::size_t count) {
   std::string sql = "INSERT OR REPLACE INTO bindings (decap_row, key) VALUES (?, ?)";
   for (std::size_t i = 1; i < count; ++i) {
      sql += ", (?, ?)";
   }
   return sql;
}

// Binds a binding as the `place`th pair of a statement's parameters.
void bindBinding(sqlite3_stmt* statement, std::size_t place, const Binding& b) {
   const int first = static_cast<int>(2 * place + 1);
   sqlite3_bind_int64(statement, first, b.row);
   sqlite3_bind_int64(statement, first + 1, stored(b.key));
}

}  // namespace

StateStore::StateStore(std::string path, bool readOnly) : path_(std::move(path)), readOnly_(readOnly) {}

StateStore::~StateStore() {
   for (sqlite3_stmt* statement : {upsert_, upsertMany_, dropRow_, dropBinding_}) {
      sqlite3_finalize(statement);
   }
   sqlite3_close(db_);
}

std::unique_ptr<StateStore> StateStore::open(const std::string& path, bool readOnly) {
   checkNoLinks(path);
   struct stat st {};
   if (::lstat(path.c_str(), &st) != 0) {
      if (errno == ENOENT) {
         return nullptr;
      }
      throw StateStoreError(path + ": cannot read the state store: " + std::strerror(errno));
   }
   std::unique_ptr<StateStore> store(new StateStore(path, readOnly));
   const Timed timed(store->seconds_);
   // A reader opens for writing when it may, too: after a kill the WAL's index must be rebuilt
   // before anyone reads, which only a writer may do. It then changes nothing (query_only, and
   // no checkpoint when it closes).
   store->connect(SQLITE_OPEN_READWRITE);
   store->load();
   return store;
}

std::unique_ptr<StateStore> StateStore::create(const std::string& path, const ChipState& chip) {
   // WAL files without their database belong to a store that was removed: SQLite would read
   // them into the new one.
   for (const char* companion : kCompanions) {
      ::unlink((path + companion).c_str());
   }
   std::unique_ptr<StateStore> store(new StateStore(path, false));
   {
      const Timed timed(store->seconds_);
      // Made without waiting for the disk: a kill cannot harm it (nor any store), and the power
      // cut that could, in the moment a new chip gets its store, would leave a store to remove.
      store->connect(SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, "OFF");
   }
   store->unfinished_ = true;
   store->chipIs(chip);  // timed itself
   store->exec("PRAGMA synchronous = NORMAL");
   return store;
}

void StateStore::connect(int flags, const char* synchronous) {
   if (sqlite3_open_v2(path_.c_str(), &db_, flags | SQLITE_OPEN_NOFOLLOW, nullptr) != SQLITE_OK) {
      fail("cannot open the state store");
   }
   sqlite3_extended_result_codes(db_, 1);
   // The file is data, never code: no triggers or views of a tampered file run with our rights.
   sqlite3_db_config(db_, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
   sqlite3_db_config(db_, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
   sqlite3_busy_timeout(db_, kBusyMilliseconds);
   if (readOnly_) {
      sqlite3_db_config(db_, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
      exec("PRAGMA query_only = ON");
      return;
   }
   if (sqlite3_db_readonly(db_, "main") == 1) {
      throw StateStoreError(path_ +
                            ": the state store cannot be written (check its permissions and "
                            "its directory's)");
   }
   exec((std::string("PRAGMA synchronous = ") + synchronous).c_str());
   sqlite3_stmt* mode = prepare("PRAGMA journal_mode = WAL");
   const bool wal = sqlite3_step(mode) == SQLITE_ROW &&
                    std::strcmp(reinterpret_cast<const char*>(sqlite3_column_text(mode, 0)), "wal") == 0;
   sqlite3_finalize(mode);
   if (!wal) {
      fail("cannot put the state store in WAL mode");
   }
}

void StateStore::load() {
   exec("BEGIN");  // one snapshot of all of it
   sqlite3_stmt* version = prepare("PRAGMA user_version");
   const int step = sqlite3_step(version);
   const int schemaVersion = step == SQLITE_ROW ? sqlite3_column_int(version, 0) : -1;
   sqlite3_finalize(version);
   if (step != SQLITE_ROW) {
      fail("cannot read the state store");
   }
   std::vector<std::pair<std::string, std::string>> schema;
   sqlite3_stmt* tables = prepare("SELECT name, sql FROM sqlite_schema ORDER BY name");
   while (sqlite3_step(tables) == SQLITE_ROW) {
      const auto* name = reinterpret_cast<const char*>(sqlite3_column_text(tables, 0));
      const auto* sql = reinterpret_cast<const char*>(sqlite3_column_text(tables, 1));
      schema.emplace_back(name != nullptr ? name : "", sql != nullptr ? sql : "");
   }
   sqlite3_finalize(tables);
   if (schemaVersion == 0 && schema.empty()) {
      unfinished_ = true;
   } else if (schemaVersion != kSchemaVersion) {
      damaged("schema version " + std::to_string(schemaVersion) + " is not supported (expected " +
              std::to_string(kSchemaVersion) + ")");
   } else if (schema != decltype(schema){{"bindings", kBindingsTable}, {"chip", kChipTable}}) {
      damaged("its tables are not those of this agent's state store");
   } else {
      loadChip();
      loadBindings();
   }
   exec("COMMIT");
}

void StateStore::loadChip() {
   sqlite3_stmt* chip = prepare("SELECT id, decap_rows FROM chip");
   std::size_t records = 0;
   while (sqlite3_step(chip) == SQLITE_ROW) {
      const auto* id = reinterpret_cast<const char*>(sqlite3_column_text(chip, 0));
      chipId_ = id != nullptr ? id : "";
      decapRows_ = static_cast<std::uint32_t>(
          std::clamp<sqlite3_int64>(sqlite3_column_int64(chip, 1), 0, ChipState::kMaxDecapRows));
      ++records;
   }
   sqlite3_finalize(chip);
   if (records != 1 || !isChipId(chipId_) || decapRows_ == 0) {
      damaged("its chip record is not one chip id and size");
   }
}

void StateStore::loadBindings() {
   sqlite3_stmt* all = prepare("SELECT decap_row, key FROM bindings ORDER BY decap_row");
   int step = SQLITE_ROW;
   while ((step = sqlite3_step(all)) == SQLITE_ROW) {
      const sqlite3_int64 row = sqlite3_column_int64(all, 0);
      const auto key = static_cast<std::uint64_t>(sqlite3_column_int64(all, 1));
      if (row < 0 || row >= decapRows_) {
         sqlite3_finalize(all);
         damaged("key " + std::to_string(key) + " is bound to row " + std::to_string(row) +
                 ", outside the chip's " + std::to_string(decapRows_) + " decap rows");
      }
      bindings_.push_back(Binding{key, static_cast<std::uint32_t>(row)});
   }
   sqlite3_finalize(all);
   if (step != SQLITE_DONE) {
      fail("cannot read the state store's bindings");
   }
   std::vector<std::uint64_t> keys(bindings_.size());
   std::transform(bindings_.begin(), bindings_.end(), keys.begin(),
                  [](const Binding& b) { return b.key; });
   std::sort(keys.begin(), keys.end());
   if (const auto twice = std::adjacent_find(keys.begin(), keys.end()); twice != keys.end()) {
      damaged("key " + std::to_string(*twice) + " is bound to two rows");
   }
}

void StateStore::checkBelongsTo(const ChipState& chip) const {
   if (unfinished_) {
      return;
   }
   if (chipId_ != chip.id()) {
      throw StateStoreError(path_ + ": the state store of chip " + chipId_ + ", but " +
                            chip.path() + " is chip " + chip.id() +
                            " (a store belongs to one chip)");
   }
   if (decapRows_ != chip.decapRows()) {
      damaged("it gives chip " + chipId_ + " " + std::to_string(decapRows_) +
              " decap rows, its file " + std::to_string(chip.decapRows()));
   }
}

void StateStore::checkFreeForNewChip(const std::string& chipFile) const {
   if (!bindings_.empty()) {
      throw StateStoreError(path_ + ": holds the rows of " + std::to_string(bindings_.size()) +
                            " keys on chip " + chipId_ + ", but " + chipFile +
                            " does not exist: restore the chip file, or remove the store to "
                            "start a new chip");
   }
}

void StateStore::chipIs(const ChipState& chip) {
   if (!unfinished_ && chipId_ == chip.id() && decapRows_ == chip.decapRows()) {
      return;
   }
   const Timed timed(seconds_);
   transaction([&] {
      if (unfinished_) {
         exec(kChipTable);
         exec(kBindingsTable);
         exec(("PRAGMA user_version = " + std::to_string(kSchemaVersion)).c_str());
      }
      exec("DELETE FROM chip");
      sqlite3_stmt* record = prepare("INSERT INTO chip (id, decap_rows) VALUES (?1, ?2)");
      sqlite3_bind_text(record, 1, chip.id().c_str(), -1, SQLITE_TRANSIENT);
      sqlite3_bind_int64(record, 2, chip.decapRows());
      const int step = sqlite3_step(record);
      sqlite3_finalize(record);
      if (step != SQLITE_DONE) {
         fail("cannot write the state store");
      }
   });
   unfinished_ = false;
   chipId_ = chip.id();
   decapRows_ = chip.decapRows();
}

bool StateStore::mustWaitForQueue(std::uint32_t index, std::uint64_t key) const {
   return queuedDropRows_.contains(index) || queuedDropKeys_.contains(key);
}

void StateStore::ownerIs(std::uint32_t index, std::uint64_t key) {
   upserts_.push_back(Binding{key, index});
}

void StateStore::rowDeleted(std::uint32_t index, std::optional<std::uint64_t> owner) {
   queuedDrops_.push_back(index);
   queuedDropRows_.insert(index);
   if (owner) {
      queuedDropKeys_.insert(*owner);
   }
}

void StateStore::commit() {
   if (upserts_.empty() && readyDrops_.empty()) {
      return;
   }
   const Timed timed(seconds_);
   transaction([&] {
      if (upsert_ == nullptr) {
         upsert_ = prepare(upsertSql(1).c_str());
         upsertMany_ = prepare(upsertSql(kUpsertsPerStatement).c_str());
         dropRow_ = prepare("DELETE FROM bindings WHERE decap_row = ?1");
      }
      // Drops first: a row deleted and then given to a key again keeps the new binding.
      for (const std::uint32_t row : readyDrops_) {
         step(dropRow_, {row});
      }
      // In order: a row's later binding replaces its earlier one.
      std::size_t next = 0;
      for (; upserts_.size() - next >= kUpsertsPerStatement; next += kUpsertsPerStatement) {
         for (std::size_t i = 0; i < kUpsertsPerStatement; ++i) {
            bindBinding(upsertMany_, i, upserts_[next + i]);
         }
         step(upsertMany_, {});
      }
      for (; next < upserts_.size(); ++next) {
         bindBinding(upsert_, 0, upserts_[next]);
         step(upsert_, {});
      }
   });
   readyDrops_.clear();
   upserts_.clear();
}

void StateStore::applied() {
   readyDrops_ = std::move(queuedDrops_);
   queuedDrops_.clear();
   queuedDropRows_.clear();
   queuedDropKeys_.clear();
}

void StateStore::finish(const std::function<bool(const Binding&)>& inUse) {
   commit();
   const Timed timed(seconds_);
   std::vector<Binding> stale;
   std::copy_if(bindings_.begin(), bindings_.end(), std::back_inserter(stale),
                [&](const Binding& b) { return !inUse(b); });
   if (!stale.empty()) {
      transaction([&] {
         dropBinding_ = prepare("DELETE FROM bindings WHERE decap_row = ?1 AND key = ?2");
         for (const Binding& b : stale) {
            step(dropBinding_, {b.row, stored(b.key)});
         }
      });
   }
   // Here rather than when the store closes, where nobody would see its time.
   exec("PRAGMA wal_checkpoint(TRUNCATE)");
}

void StateStore::exec(const char* sql) {
   if (sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) != SQLITE_OK) {
      fail(readOnly_ ? "cannot read the state store" : "cannot use the state store");
   }
}

void StateStore::transaction(const std::function<void()>& body) {
   exec("BEGIN IMMEDIATE");
   try {
      body();
      exec("COMMIT");
   } catch (...) {
      sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
      throw;
   }
}

sqlite3_stmt* StateStore::prepare(const char* sql) {
   sqlite3_stmt* statement = nullptr;
   if (sqlite3_prepare_v2(db_, sql, -1, &statement, nullptr) != SQLITE_OK) {
      fail("cannot read the state store");
   }
   return statement;
}

void StateStore::step(sqlite3_stmt* statement, std::initializer_list<std::int64_t> values) {
   int column = 0;
   for (const std::int64_t value : values) {
      sqlite3_bind_int64(statement, ++column, value);
   }
   const int result = sqlite3_step(statement);
   sqlite3_reset(statement);
   if (result != SQLITE_DONE) {
      fail("cannot write the state store");
   }
}

void StateStore::fail(const std::string& what) const {
   const int code = db_ != nullptr ? sqlite3_errcode(db_) : SQLITE_CANTOPEN;
   std::string why = db_ != nullptr ? sqlite3_errmsg(db_) : "out of memory";
   if (const int error = db_ != nullptr ? sqlite3_system_errno(db_) : 0; error != 0) {
      why += std::string(" (") + std::strerror(error) + ")";
   }
   if ((code & 0xff) == SQLITE_CORRUPT || (code & 0xff) == SQLITE_NOTADB) {
      damaged(why);
   }
   throw StateStoreError(path_ + ": " + what + ": " + why);
}

void StateStore::damaged(const std::string& problem) const {
   throw StateStoreError(path_ + ": the state store is damaged: " + problem);
}

}  // namespace Sim
