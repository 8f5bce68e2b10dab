#include "Fwk/RingTrace.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "Fwk/Assert.h"
#include "Fwk/RingTraceImage.h"

namespace Fwk::RingTrace {

using namespace RingTraceFormat;

namespace {

// A string's length byte covers any string that fits a slot.
static_assert(kSlotSize - kSlotArgsOffset <= 256);

// Beyond this the image would no longer be a sensible amount of memory to map (1 GiB of ring).
constexpr std::size_t kMaxSlots = std::size_t{1} << 24;

std::size_t checkedImageSize(std::size_t slots) {
   if (slots == 0 || slots > kMaxSlots) {
      throw std::invalid_argument("ring trace slot count " + std::to_string(slots) +
                                  " is out of range 1-" + std::to_string(kMaxSlots));
   }
   return imageSize(slots);
}

[[noreturn]] void refuseFile(const std::string& path, const char* what) {
   throw std::runtime_error("cannot " + std::string(what) + " ring trace file '" + path +
                            "': " + std::strerror(errno));
}

std::uint8_t* mapFile(int fd, std::size_t size) {
   if (::ftruncate(fd, static_cast<off_t>(size)) != 0) {
      return nullptr;
   }
   void* base = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
   return base == MAP_FAILED ? nullptr : static_cast<std::uint8_t*>(base);
}

// Stores `text` in a NUL-padded field; what does not fit is cut at the end, or at the start when
// the tail is the informative part (source paths).
enum class Keep { head, tail };
void storeField(Bytes field, std::string_view text, Keep keep) {
   if (text.size() > field.size()) {
      text = keep == Keep::head ? text.substr(0, field.size())
                                : text.substr(text.size() - field.size());
   }
   std::memcpy(field.data(), text.data(), text.size());
}

bool isIntegerType(ArgType type) {
   return type == ArgType::integer || type == ArgType::signedInteger;
}

bool sameKind(ArgType a, ArgType b) {
   return a == b || (isIntegerType(a) && isIntegerType(b));
}

// Packs the arguments into a slot's argument area and returns how many were written. A string
// gets what is left after reserving the minimum the following arguments need; an argument whose
// kind differs from the registered one ends the record, so that the decoder shows it as missing.
std::uint8_t packArgs(Bytes area, const MessageSite& site, const Arg* args, std::size_t count) {
   const std::size_t n = std::min<std::size_t>({count, site.argCount, kMaxArgs});
   std::size_t reserved = 0;
   for (std::size_t i = 0; i < n; ++i) {
      reserved += isIntegerType(site.argTypes[i]) ? 8 : 1;
   }
   std::size_t pos = 0;
   std::size_t i = 0;
   for (; i < n && sameKind(args[i].type, site.argTypes[i]); ++i) {
      if (isIntegerType(site.argTypes[i])) {
         storeLe(area.subspan(pos, 8), args[i].integer);
         pos += 8;
         reserved -= 8;
         continue;
      }
      reserved -= 1;
      const auto text = args[i].string.substr(0, area.size() - pos - 1 - reserved);
      area[pos] = static_cast<std::uint8_t>(text.size());
      std::memcpy(area.data() + pos + 1, text.data(), text.size());
      pos += 1 + text.size();
   }
   return static_cast<std::uint8_t>(i);
}

struct DefaultHandleSlot {
   std::mutex mutex;
   std::unique_ptr<Handle> owned;
};

// Leaked on purpose: records written by static destructors must not find a destroyed handle.
DefaultHandleSlot& defaultHandleSlot() {
   static auto* slot = new DefaultHandleSlot;
   return *slot;
}

std::atomic<Handle*> gDefaultHandle{nullptr};

}  // namespace

std::unique_ptr<TraceFile> TraceFile::inMemory(std::size_t slots) {
   const auto size = checkedImageSize(slots);
   return std::unique_ptr<TraceFile>(new TraceFile(new std::uint8_t[size](), size, -1, slots));
}

std::unique_ptr<TraceFile> TraceFile::create(const std::string& path, std::size_t slots) {
   const auto size = checkedImageSize(slots);
   const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
   if (fd < 0) {
      refuseFile(path, "create");
   }
   auto* base = mapFile(fd, size);
   if (base == nullptr) {
      const int error = errno;
      ::close(fd);
      errno = error;
      refuseFile(path, "map");
   }
   return std::unique_ptr<TraceFile>(new TraceFile(base, size, fd, slots));
}

TraceFile::TraceFile(std::uint8_t* base, std::size_t size, int fd, std::size_t slots)
    : base_(base), size_(size), fd_(fd), slots_(slots) {
   const Bytes image(base_, size_);
   std::memcpy(image.data() + kMagicOffset, kMagic, sizeof kMagic);
   storeLe<std::uint32_t>(image.subspan(kVersionOffset, 4), kVersion);
   storeLe<std::uint32_t>(image.subspan(kSlotSizeOffset, 4), kSlotSize);
   storeLe<std::uint32_t>(image.subspan(kEntrySizeOffset, 4), kEntrySize);
   storeLe<std::uint32_t>(image.subspan(kMaxMessagesOffset, 4), kMaxMessages);
   storeLe<std::uint32_t>(image.subspan(kMessageCountOffset, 4), 0);
   storeLe<std::uint64_t>(image.subspan(kSlotCountOffset, 8), slots_);
   storeLe<std::uint64_t>(image.subspan(kRecordsWrittenOffset, 8), 0);
}

TraceFile::~TraceFile() {
   if (fd_ < 0) {
      delete[] base_;
      return;
   }
   ::munmap(base_, size_);
   ::close(fd_);
}

bool TraceFile::isRegistered(const MessageSite& site) const noexcept {
   const std::lock_guard lock(mutex_);
   return isRegisteredLocked(site);
}

void TraceFile::registerMessage(MessageSite& site) {
   const std::lock_guard lock(mutex_);
   registerLocked(site);
}

void TraceFile::write(const MessageSite& site, const Arg* args, std::size_t count) noexcept {
   const std::lock_guard lock(mutex_);
   writeLocked(site, args, count);
}

std::uint64_t TraceFile::recordsWritten() const noexcept {
   const std::lock_guard lock(mutex_);
   return loadLe<std::uint64_t>(ConstBytes(base_ + kRecordsWrittenOffset, 8));
}

std::string_view TraceFile::image() const noexcept {
   return {reinterpret_cast<const char*>(base_), size_};
}

void TraceFile::recordSite(MessageSite& site, const Arg* args, std::size_t count) noexcept {
   const std::lock_guard lock(mutex_);
   FWK_ASSERT(site.id >= 0, "msgId_ >= 0");
   if (!isRegisteredLocked(site)) {
      try {
         registerLocked(site);
      } catch (const std::exception&) {
         return;  // the message table is full: the record is lost, the trace stays decodable
      }
   }
   writeLocked(site, args, count);
}

bool TraceFile::isRegisteredLocked(const MessageSite& site) const noexcept {
   return site.id > 0 && static_cast<std::size_t>(site.id) <= sites_.size() &&
          sites_[static_cast<std::size_t>(site.id) - 1] == &site;
}

void TraceFile::registerLocked(MessageSite& site) {
   if (sites_.size() >= kMaxMessages) {
      throw std::length_error("ring trace message table is full (" + std::to_string(kMaxMessages) +
                              " messages); cannot register \"" + site.format + "\" of " +
                              site.file + ":" + std::to_string(site.line));
   }
   sites_.push_back(&site);
   const auto id = static_cast<std::uint32_t>(sites_.size());
   const Bytes entry(base_ + kTableOffset + (id - 1) * kEntrySize, kEntrySize);
   storeLe<std::uint32_t>(entry.subspan(kEntryIdOffset, 4), id);
   storeLe<std::uint32_t>(entry.subspan(kEntryLineOffset, 4),
                          static_cast<std::uint32_t>(site.line));
   const auto argCount = std::min<std::size_t>(site.argCount, kMaxArgs);
   entry[kEntryArgCountOffset] = static_cast<std::uint8_t>(argCount);
   for (std::size_t i = 0; i < argCount; ++i) {
      entry[kEntryArgTypesOffset + i] = static_cast<std::uint8_t>(site.argTypes[i]);
   }
   storeField(entry.subspan(kEntryOperationOffset, kEntryOperationSize), site.operation,
              Keep::head);
   storeField(entry.subspan(kEntryFormatOffset, kEntryFormatSize), site.format, Keep::head);
   storeField(entry.subspan(kEntryFileOffset, kEntryFileSize), site.file, Keep::tail);
   storeLe<std::uint32_t>(Bytes(base_ + kMessageCountOffset, 4), id);
   site.id = static_cast<int>(id);
}

// The slot is complete before the record count moves past it.
void TraceFile::writeLocked(const MessageSite& site, const Arg* args, std::size_t count) noexcept {
   if (!isRegisteredLocked(site)) {
      return;  // a record naming a message this file does not know would make it undecodable
   }
   const Bytes written(base_ + kRecordsWrittenOffset, 8);
   const auto sequence = loadLe<std::uint64_t>(written);
   const Bytes slot(base_ + kRingOffset + (sequence % slots_) * kSlotSize, kSlotSize);
   std::memset(slot.data(), 0, slot.size());
   storeLe<std::uint64_t>(slot.subspan(kSlotSequenceOffset, 8), sequence);
   storeLe<std::uint16_t>(slot.subspan(kSlotIdOffset, 2), static_cast<std::uint16_t>(site.id));
   slot[kSlotArgCountOffset] = packArgs(slot.subspan(kSlotArgsOffset), site, args, count);
   storeLe<std::uint64_t>(written, sequence + 1);
}

Handle* defaultHandle() noexcept {
   return gDefaultHandle.load(std::memory_order_acquire);
}

std::unique_ptr<Handle> defaultHandleIs(std::unique_ptr<Handle> handle) {
   auto& slot = defaultHandleSlot();
   const std::lock_guard lock(slot.mutex);
   gDefaultHandle.store(handle.get(), std::memory_order_release);
   std::swap(slot.owned, handle);
   return handle;
}

void record(MessageSite& site, const Arg* args, std::size_t count) noexcept {
   const auto* handle = defaultHandle();
   if (handle == nullptr || handle->file() == nullptr) {
      return;
   }
   handle->file()->recordSite(site, args, count);
}

}  // namespace Fwk::RingTrace
