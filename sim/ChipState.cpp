#include "sim/ChipState.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <random>
#include <utility>

namespace Sim {

namespace {

constexpr char kMagic[8] = {'L', '3', 'D', 'S', 'I', 'M', 'C', 'S'};
constexpr std::size_t kHeaderSize = 64;
constexpr std::size_t kRowSize = 8;
constexpr std::size_t kHeaderCheckOffset = 60;

// Header field offsets.
constexpr std::size_t kVersionAt = 8, kHeaderSizeAt = 12, kDecapRowsAt = 16, kProfileRowsAt = 20,
                      kRowSizeAt = 24, kIdAt = 32;
constexpr std::size_t kIdSize = 16;

template <class T>
T load(const std::uint8_t* p) {
   T v;
   std::memcpy(&v, p, sizeof v);
   return v;
}
template <class T>
void store(std::uint8_t* p, T v) {
   std::memcpy(p, &v, sizeof v);
}

std::uint32_t crc32(const std::uint8_t* data, std::size_t n) {
   static const auto table = [] {
      std::array<std::uint32_t, 256> t{};
      for (std::uint32_t i = 0; i < 256; ++i) {
         std::uint32_t c = i;
         for (int k = 0; k < 8; ++k) {
            c = (c & 1) ? 0xEDB88320U ^ (c >> 1) : c >> 1;
         }
         t[i] = c;
      }
      return t;
   }();
   std::uint32_t c = 0xFFFFFFFFU;
   for (std::size_t i = 0; i < n; ++i) {
      c = table[(c ^ data[i]) & 0xFF] ^ (c >> 8);
   }
   return c ^ 0xFFFFFFFFU;
}

// CRC-8 (polynomial 0x07) of a row's bytes but its check byte (at 3), salted with the row's table
// and index. Table-driven: every row written and every row of a file opened is checked.
std::uint8_t rowCheck(const std::uint8_t* row, std::uint32_t table, std::uint32_t index) {
   static const auto crcTable = [] {
      std::array<std::uint8_t, 256> t{};
      for (std::uint32_t i = 0; i < 256; ++i) {
         auto c = static_cast<std::uint8_t>(i);
         for (int k = 0; k < 8; ++k) {
            c = static_cast<std::uint8_t>((c & 0x80) ? (c << 1) ^ 0x07 : c << 1);
         }
         t[i] = c;
      }
      return t;
   }();
   std::uint8_t bytes[4 + 3 + 4 + 1];
   std::memcpy(bytes, &index, 4);
   std::memcpy(bytes + 4, row, 3);
   std::memcpy(bytes + 7, row + 4, 4);
   bytes[11] = static_cast<std::uint8_t>(table);
   std::uint8_t c = 0;
   for (std::uint8_t b : bytes) {
      c = crcTable[c ^ b];
   }
   return c;
}

std::size_t imageSize(std::uint32_t decapRows) {
   return kHeaderSize + (std::size_t{decapRows} + ChipState::kProfileRows) * kRowSize;
}

void randomId(std::uint8_t* id) {
   std::random_device source;
   for (std::size_t i = 0; i < kIdSize; i += 4) {
      store<std::uint32_t>(id + i, source());
   }
}

void initialise(std::uint8_t* base, std::uint32_t decapRows) {
   std::memset(base, 0, imageSize(decapRows));
   std::memcpy(base, kMagic, sizeof kMagic);
   randomId(base + kIdAt);
   store<std::uint32_t>(base + kVersionAt, ChipState::kFormatVersion);
   store<std::uint32_t>(base + kHeaderSizeAt, kHeaderSize);
   store<std::uint32_t>(base + kDecapRowsAt, decapRows);
   store<std::uint32_t>(base + kProfileRowsAt, ChipState::kProfileRows);
   store<std::uint32_t>(base + kRowSizeAt, kRowSize);
   const std::uint32_t rows[2] = {decapRows, ChipState::kProfileRows};
   std::uint8_t* row = base + kHeaderSize;
   for (std::uint32_t table = 0; table < 2; ++table) {
      for (std::uint32_t i = 0; i < rows[table]; ++i, row += kRowSize) {
         row[3] = rowCheck(row, table, i);
      }
   }
   store<std::uint32_t>(base + kHeaderCheckOffset, crc32(base, kHeaderCheckOffset));
}

std::string errnoText() {
   return std::strerror(errno);
}

void checkRowCount(const std::string& what, std::uint32_t decapRows) {
   if (decapRows == 0 || decapRows > ChipState::kMaxDecapRows) {
      throw ChipStateError(what + ": a decap table of " + std::to_string(decapRows) +
                           " rows is not supported (1 to " +
                           std::to_string(ChipState::kMaxDecapRows) + ")");
   }
}

// Like rename(), but fails when `to` exists.
int renameNoReplace(const std::string& from, const std::string& to) {
   const int renamed = ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE);
   if (renamed == 0 || (errno != EINVAL && errno != ENOSYS)) {
      return renamed;
   }
   // A file system without the flag: the chip's lock keeps other agents from making the file.
   return ::rename(from.c_str(), to.c_str());
}

// The file's first `size` bytes, shared with the file; null on failure (errno says why).
std::uint8_t* map(int fd, std::size_t size, bool writable) {
   void* base =
       ::mmap(nullptr, size, writable ? PROT_READ | PROT_WRITE : PROT_READ, MAP_SHARED, fd, 0);
   return base == MAP_FAILED ? nullptr : static_cast<std::uint8_t*>(base);
}

}  // namespace

std::optional<std::string> ChipState::check(const void* image, std::size_t size) {
   const auto* base = static_cast<const std::uint8_t*>(image);
   if (size < kHeaderSize || std::memcmp(base, kMagic, sizeof kMagic) != 0) {
      return "not a chip-state file (no chip-state header)";
   }
   if (load<std::uint32_t>(base + kHeaderCheckOffset) != crc32(base, kHeaderCheckOffset)) {
      return "the header is damaged (header check mismatch)";
   }
   const auto version = load<std::uint32_t>(base + kVersionAt);
   if (version != kFormatVersion) {
      return "format version " + std::to_string(version) + " is not supported (expected " +
             std::to_string(kFormatVersion) + ")";
   }
   const auto decapRows = load<std::uint32_t>(base + kDecapRowsAt);
   if (load<std::uint32_t>(base + kHeaderSizeAt) != kHeaderSize ||
       load<std::uint32_t>(base + kRowSizeAt) != kRowSize ||
       load<std::uint32_t>(base + kProfileRowsAt) != kProfileRows || decapRows == 0 ||
       decapRows > kMaxDecapRows) {
      return "the header describes an unsupported layout";
   }
   if (size != imageSize(decapRows)) {
      return "the file is " + std::to_string(size) + " bytes, its header describes " +
             std::to_string(imageSize(decapRows));
   }
   const std::uint32_t rows[2] = {decapRows, kProfileRows};
   const std::uint8_t* row = base + kHeaderSize;
   for (std::uint32_t table = 0; table < 2; ++table) {
      for (std::uint32_t i = 0; i < rows[table]; ++i, row += kRowSize) {
         if (row[3] != rowCheck(row, table, i) || row[0] > 2) {
            return std::string(table == 0 ? "decap" : "profile") + " row " + std::to_string(i) +
                   " is damaged";
         }
      }
   }
   return std::nullopt;
}

ChipState ChipState::create(const std::string& path, std::uint32_t decapRows) {
   checkRowCount(path, decapRows);
   const std::string aside = path + ".new";
   // A kill while an earlier agent made the file leaves this name behind. Unlinking removes a
   // link planted there, never what it points at.
   if (::unlink(aside.c_str()) != 0 && errno != ENOENT) {
      throw ChipStateError(aside + ": cannot remove: " + errnoText());
   }
   const int fd = ::open(aside.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
   if (fd < 0) {
      throw ChipStateError(aside + ": cannot create chip-state file: " + errnoText());
   }
   const auto fail = [&](const std::string& what) {
      const std::string why = errnoText();
      ::close(fd);
      ::unlink(aside.c_str());
      throw ChipStateError(path + ": cannot " + what + ": " + why);
   };
   const std::size_t size = imageSize(decapRows);
   if (::ftruncate(fd, static_cast<off_t>(size)) != 0) {
      fail("size chip-state file");
   }
   std::uint8_t* base = map(fd, size, true);
   if (base == nullptr) {
      fail("map chip-state file");
   }
   initialise(base, decapRows);
   // On disk before its name is: a power cut must not leave an empty file under that name.
   if (::fsync(fd) != 0 || renameNoReplace(aside, path) != 0) {
      ::munmap(base, size);
      fail("put the new chip-state file in place");
   }
   return ChipState(path, base, size, fd, true);
}

ChipState ChipState::open(const std::string& path, bool writable) {
   const int fd = ::open(path.c_str(), (writable ? O_RDWR : O_RDONLY) | O_NOFOLLOW | O_CLOEXEC);
   if (fd < 0 && errno == ELOOP) {
      throw ChipStateError(path + ": is a symbolic link; refused (the agent follows no links)");
   }
   if (fd < 0) {
      throw ChipStateError(path + ": cannot open chip-state file: " + errnoText());
   }
   struct stat st {};
   if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
      ::close(fd);
      throw ChipStateError(path + ": not a regular file");
   }
   const auto size = static_cast<std::size_t>(st.st_size);
   if (size < kHeaderSize) {
      ::close(fd);
      throw ChipStateError(path + ": not a chip-state file (" + std::to_string(size) +
                           " bytes, too short for a header)");
   }
   std::uint8_t* base = map(fd, size, writable);
   if (base == nullptr) {
      const std::string why = errnoText();
      ::close(fd);
      throw ChipStateError(path + ": cannot map chip-state file: " + why);
   }
   if (auto problem = check(base, size)) {
      ::munmap(base, size);
      ::close(fd);
      throw ChipStateError(path + ": " + *problem + "; the file is left as it is");
   }
   return ChipState(path, base, size, fd, writable);
}

ChipState ChipState::inMemory(std::uint32_t decapRows) {
   checkRowCount("in-memory chip", decapRows);
   const std::size_t size = imageSize(decapRows);
   auto* base = static_cast<std::uint8_t*>(::operator new(size));
   initialise(base, decapRows);
   return ChipState("(memory)", base, size, -1, true);
}

ChipState ChipState::copyOf(const ChipState& other) {
   auto* base = static_cast<std::uint8_t*>(::operator new(other.size_));
   std::memcpy(base, other.base_, other.size_);
   return ChipState(other.path_ + " (copy)", base, other.size_, -1, true);
}

ChipState::ChipState(std::string path, std::uint8_t* base, std::size_t size, int fd, bool writable)
    : path_(std::move(path)), base_(base), size_(size), fd_(fd), writable_(writable) {}

ChipState::ChipState(ChipState&& o) noexcept
    : path_(std::move(o.path_)),
      base_(std::exchange(o.base_, nullptr)),
      size_(o.size_),
      fd_(std::exchange(o.fd_, -1)),
      writable_(o.writable_) {}

ChipState& ChipState::operator=(ChipState&& o) noexcept {
   if (this != &o) {
      release();
      path_ = std::move(o.path_);
      base_ = std::exchange(o.base_, nullptr);
      size_ = o.size_;
      fd_ = std::exchange(o.fd_, -1);
      writable_ = o.writable_;
   }
   return *this;
}

ChipState::~ChipState() {
   release();
}

void ChipState::release() noexcept {
   if (base_ == nullptr) {
      return;
   }
   if (fd_ >= 0) {
      ::munmap(base_, size_);
      ::close(fd_);
   } else {
      ::operator delete(base_);
   }
   base_ = nullptr;
}

std::uint32_t ChipState::decapRows() const noexcept {
   return load<std::uint32_t>(base_ + kDecapRowsAt);
}

std::string ChipState::id() const {
   std::string text;
   for (std::size_t i = 0; i < kIdSize; ++i) {
      char digits[3];
      std::snprintf(digits, sizeof digits, "%02x", base_[kIdAt + i]);
      text += digits;
   }
   return text;
}

std::uint8_t* ChipState::rowAddress(std::uint32_t table, std::uint32_t index) const {
   const std::uint32_t rows = table == 0 ? decapRows() : kProfileRows;
   if (index >= rows) {
      throw std::out_of_range(path_ + ": " + (table == 0 ? "decap" : "profile") + " row " +
                              std::to_string(index) + " is outside the table (" +
                              std::to_string(rows) + " rows)");
   }
   const std::size_t first = table == 0 ? 0 : decapRows();
   return base_ + kHeaderSize + (first + index) * kRowSize;
}

// The row's bytes and its check in one aligned 8-byte store: a kill sees the old row or the new
// one, never a mix that fails its check.
void ChipState::rowIs(std::uint32_t table, std::uint32_t index, std::uint8_t (&bytes)[8]) {
   if (!writable_) {
      throw std::logic_error(path_ + ": chip state is open read-only");
   }
   auto* row = reinterpret_cast<std::uint64_t*>(rowAddress(table, index));
   bytes[3] = rowCheck(bytes, table, index);
   std::atomic_ref<std::uint64_t>(*row).store(load<std::uint64_t>(bytes),
                                              std::memory_order_relaxed);
}

DecapRow ChipState::decapRow(std::uint32_t index) const {
   const std::uint8_t* row = rowAddress(0, index);
   return DecapRow{static_cast<RowState>(row[0]),
                   row[1],
                   (row[2] & 1) != 0,
                   (row[2] & 2) != 0,
                   (row[2] & 4) != 0,
                   load<std::uint32_t>(row + 4)};
}

void ChipState::decapRowIs(std::uint32_t index, const DecapRow& r) {
   std::uint8_t row[8] = {
       static_cast<std::uint8_t>(r.state), r.profileIndex,
       static_cast<std::uint8_t>((r.ipv4UcEnable ? 1 : 0) | (r.ipv6UcEnable ? 2 : 0) |
                                 (r.trustDscp ? 4 : 0))};
   store<std::uint32_t>(row + 4, r.vrf);
   rowIs(0, index, row);
}

ProfileRow ChipState::profileRow(std::uint32_t index) const {
   const std::uint8_t* row = rowAddress(1, index);
   return ProfileRow{static_cast<RowState>(row[0]), load<std::uint32_t>(row + 4)};
}

void ChipState::profileRowIs(std::uint32_t index, const ProfileRow& r) {
   std::uint8_t row[8] = {static_cast<std::uint8_t>(r.state)};
   store<std::uint32_t>(row + 4, r.profileId);
   rowIs(1, index, row);
}

void ChipState::sync() {
   if (fd_ >= 0 && writable_) {
      ::msync(base_, size_, MS_SYNC);
   }
}

}  // namespace Sim
