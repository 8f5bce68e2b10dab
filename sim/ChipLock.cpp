#include "sim/ChipLock.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <set>
#include <utility>

namespace Sim {

namespace {

std::string errnoText() { return std::strerror(errno); }

using FileId = std::pair<dev_t, ino_t>;

// The lock files this process has locked: opening and closing another descriptor of one would
// silently drop the process's lock on it.
std::set<FileId>& lockedFiles() {
   static std::set<FileId> files;
   return files;
}

FileId identity(const struct stat& st) { return {st.st_dev, st.st_ino}; }

std::string processName(pid_t pid) {
   std::ifstream comm("/proc/" + std::to_string(pid) + "/comm");
   std::string name;
   std::getline(comm, name);
   return name.empty() ? "" : " (" + name + ")";
}

struct flock wholeFile(short type) {
   struct flock lock {};
   lock.l_type = type;
   lock.l_whence = SEEK_SET;
   return lock;
}

// The process holding a lock that conflicts with `type`, or 0 when there is none any more.
pid_t holder(int fd, short type) {
   struct flock probe = wholeFile(type);
   if (::fcntl(fd, F_GETLK, &probe) != 0 || probe.l_type == F_UNLCK) {
      return 0;
   }
   return probe.l_pid;
}

}  // namespace

ChipLock::ChipLock(std::string chipFile, Mode mode) : chipFile_(std::move(chipFile)), mode_(mode) {
   const std::string path = pathFor(chipFile_);
   struct stat st {};
   if (::lstat(path.c_str(), &st) == 0 && lockedFiles().contains(identity(st))) {
      throw std::logic_error(path + ": this process holds the chip's lock already");
   }
   const int access = exclusive() ? O_RDWR : O_RDONLY;
   fd_ = ::open(path.c_str(), access | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0644);
   if (fd_ < 0 && !exclusive() && (errno == EACCES || errno == EROFS) &&
       ::access(path.c_str(), F_OK) != 0) {
      return;  // no lock file and no way to make one: no agent can run in this directory
   }
   if (fd_ < 0) {
      throw std::runtime_error(path + ": cannot open the chip's lock file: " +
                               (errno == ELOOP ? "it is a symbolic link, refused" : errnoText()));
   }
   if (::fstat(fd_, &st) != 0 || !S_ISREG(st.st_mode)) {
      ::close(fd_);
      fd_ = -1;
      throw std::runtime_error(path + ": the chip's lock file is not a regular file");
   }
   file_ = identity(st);
   lockedFiles().insert(file_);
   const short type = exclusive() ? F_WRLCK : F_RDLCK;
   const struct flock lock = wholeFile(type);
   while (::fcntl(fd_, F_SETLK, &lock) != 0) {
      const int error = errno;
      const bool held = error == EAGAIN || error == EACCES;
      const pid_t pid = held ? holder(fd_, type) : 0;
      if (held && pid == 0) {
         continue;  // the holder let go in between
      }
      release();
      if (pid == 0) {
         throw std::runtime_error(path + ": cannot lock the chip: " + std::strerror(error));
      }
      std::string message = chipFile_;
      message += exclusive() ? " is in use by process " : " is being changed by process ";
      message += std::to_string(pid) + processName(pid) + ", which holds " + path;
      message += exclusive() ? " (one agent per chip); nothing was done"
                             : "; try again when that run has ended";
      throw ChipInUse(message);
   }
}

ChipLock::~ChipLock() { release(); }

void ChipLock::release() noexcept {
   if (fd_ < 0) {
      return;
   }
   lockedFiles().erase(file_);
   ::close(fd_);  // drops the lock
   fd_ = -1;
}

}  // namespace Sim
