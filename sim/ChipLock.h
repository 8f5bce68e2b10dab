// One agent per chip. An agent's run holds its chip's lock exclusively for its whole life; plan
// and dump hold it shared, so they never read a chip that a run is changing. The lock is a POSIX
// record lock on <chip file>.lock, which the kernel drops when the holder ends, however it ends:
// a killed agent never leaves its chip locked.
#pragma once

#include <sys/types.h>

#include <stdexcept>
#include <string>
#include <utility>

namespace Sim {

// The lock is held by another process; the message names the chip and that process.
class ChipInUse : public std::runtime_error {
  public:
   using std::runtime_error::runtime_error;
};

class ChipLock {
  public:
   enum class Mode { shared, exclusive };

   static std::string pathFor(const std::string& chipFile) { return chipFile + ".lock"; }

   // Takes the lock without waiting (the lock file is made if missing, never through a symbolic
   // link). Throws ChipInUse when another process holds it in a conflicting mode, and
   // std::runtime_error when the lock file cannot be used. A shared lock in a directory where the
   // lock file cannot be made is not needed (no agent can run there) and is not taken.
   // Record locks belong to the process, so one process takes one lock per chip at a time
   // (a second one is refused with std::logic_error).
   ChipLock(std::string chipFile, Mode mode);
   ~ChipLock();
   ChipLock(const ChipLock&) = delete;
   ChipLock& operator=(const ChipLock&) = delete;

   const std::string& chipFile() const noexcept { return chipFile_; }
   bool exclusive() const noexcept { return mode_ == Mode::exclusive; }

  private:
   void release() noexcept;

   std::string chipFile_;
   Mode mode_;
   int fd_ = -1;
   std::pair<dev_t, ino_t> file_{};
};

}  // namespace Sim
