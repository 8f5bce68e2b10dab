// Binary ring-buffer trace: short fixed-format records written into a ring of fixed-size slots,
// held in memory or in a memory-mapped file, and decoded back to text offline.
//
// Each call site that writes records owns a message site whose identifier starts at 0 (not
// registered). On its first record into a trace file the site registers its message (format with
// "{}" / "{:x}" placeholders, argument types, operation name, source position) with that file and
// keeps the identifier the file gave it. Records carry the identifier, a sequence number and the
// arguments (integers as 8 bytes, strings truncated to what fits the slot).
//
// File layout (all integers little-endian, the layout is fixed by RingTraceFormat below):
//   header | message table (kMaxMessages entries) | ring (slotCount slots of kSlotSize bytes)
// Strings in the message table are NUL-padded fields (a field filled to the end has no NUL); a
// source path that does not fit keeps its tail. A slot holds its sequence number, the message
// identifier (0: never written), the number of arguments written, then the arguments.
// The decoder reads a file (or memory image) and prints every record still in the ring, oldest
// first, with its message's format filled in.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace Fwk::RingTrace {

// Integers travel as 8 bytes; `signedInteger` only tells the decoder to print them with a sign.
enum class ArgType : std::uint8_t { string = 1, integer = 2, signedInteger = 3 };

constexpr std::size_t kSlotSize = 64;
constexpr std::size_t kMaxMessages = 256;
constexpr std::size_t kMaxArgs = 6;

namespace RingTraceFormat {
constexpr char kMagic[8] = {'L', '3', 'R', 'I', 'N', 'G', 'T', 'R'};
constexpr std::uint32_t kVersion = 1;

// Header fields (byte offsets from the start of the image).
constexpr std::size_t kHeaderSize = 64;
constexpr std::size_t kMagicOffset = 0;            // 8 bytes
constexpr std::size_t kVersionOffset = 8;          // u32
constexpr std::size_t kSlotSizeOffset = 12;        // u32, kSlotSize
constexpr std::size_t kEntrySizeOffset = 16;       // u32, kEntrySize
constexpr std::size_t kMaxMessagesOffset = 20;     // u32, kMaxMessages
constexpr std::size_t kMessageCountOffset = 24;    // u32
constexpr std::size_t kSlotCountOffset = 32;       // u64
constexpr std::size_t kRecordsWrittenOffset = 40;  // u64, also the next sequence number

// Message table entry (offsets within the entry); entry i holds identifier i + 1.
constexpr std::size_t kEntrySize = 256;
constexpr std::size_t kEntryIdOffset = 0;        // u32
constexpr std::size_t kEntryLineOffset = 4;      // u32
constexpr std::size_t kEntryArgCountOffset = 8;  // u8
constexpr std::size_t kEntryArgTypesOffset = 9;  // kMaxArgs x u8
constexpr std::size_t kEntryOperationOffset = 16;
constexpr std::size_t kEntryOperationSize = 48;
constexpr std::size_t kEntryFormatOffset = 64;
constexpr std::size_t kEntryFormatSize = 128;
constexpr std::size_t kEntryFileOffset = 192;
constexpr std::size_t kEntryFileSize = 64;

constexpr std::size_t kTableOffset = kHeaderSize;
constexpr std::size_t kRingOffset = kTableOffset + kMaxMessages * kEntrySize;

// Ring slot (offsets within the slot). Arguments follow each other: an integer as 8 bytes, a
// string as one length byte and that many bytes.
constexpr std::size_t kSlotSequenceOffset = 0;   // u64
constexpr std::size_t kSlotIdOffset = 8;         // u16
constexpr std::size_t kSlotArgCountOffset = 10;  // u8
constexpr std::size_t kSlotArgsOffset = 11;

constexpr std::size_t imageSize(std::size_t slots) {
   return kRingOffset + slots * kSlotSize;
}
}  // namespace RingTraceFormat

// A call site's registered message. `id` is 0 until registered; negative is a broken invariant.
struct MessageSite {
   int id = 0;
   const char* file;
   int line;
   const char* operation;
   const char* format;
   std::uint8_t argCount;
   ArgType argTypes[kMaxArgs];
};

// One argument of a record being written.
struct Arg {
   ArgType type;
   std::uint64_t integer;
   std::string_view string;
};

class TraceFile {
  public:
   // A trace file in memory with `slots` ring slots.
   static std::unique_ptr<TraceFile> inMemory(std::size_t slots);
   // Creates (or truncates) a memory-mapped trace file; throws std::runtime_error naming the
   // path on failure.
   static std::unique_ptr<TraceFile> create(const std::string& path, std::size_t slots);
   ~TraceFile();
   TraceFile(const TraceFile&) = delete;
   TraceFile& operator=(const TraceFile&) = delete;

   // True when `site` holds an identifier that this file registered for that very site.
   bool isRegistered(const MessageSite& site) const noexcept;
   // Registers the site's message and stores the identifier in `site.id`.
   void registerMessage(MessageSite& site);
   // Writes one record of a site registered with this file (nothing for another) into the next
   // slot, over the oldest record when the ring is full.
   void write(const MessageSite& site, const Arg* args, std::size_t count) noexcept;

   // Records written so far; also the next record's sequence number.
   std::uint64_t recordsWritten() const noexcept;
   // The raw image (header, message table, ring), as the decoder reads it.
   std::string_view image() const noexcept;

  private:
   friend void record(MessageSite& site, const Arg* args, std::size_t count) noexcept;

   TraceFile(std::uint8_t* base, std::size_t size, int fd, std::size_t slots);
   // Registration and write as one step, so that concurrent writers of one site register it once.
   void recordSite(MessageSite& site, const Arg* args, std::size_t count) noexcept;
   // The *Locked helpers expect mutex_ to be held.
   bool isRegisteredLocked(const MessageSite& site) const noexcept;
   void registerLocked(MessageSite& site);
   void writeLocked(const MessageSite& site, const Arg* args, std::size_t count) noexcept;

   std::uint8_t* base_;
   std::size_t size_;
   int fd_;
   std::size_t slots_;
   mutable std::mutex mutex_;
   std::vector<const MessageSite*> sites_;
};

// The process's default ring-buffer trace handle. It may be absent (no record is written).
class Handle {
  public:
   // Owns the trace file that records go to.
   explicit Handle(std::unique_ptr<TraceFile> file) : file_(std::move(file)) {}
   TraceFile* file() const noexcept { return file_.get(); }

  private:
   std::unique_ptr<TraceFile> file_;
};
// The default handle, or null (then FWK_RING_TRACE writes nothing and builds nothing).
Handle* defaultHandle() noexcept;

// Installs (or with null removes) the default handle; returns the previous one. Not to be called
// while other threads write records.
std::unique_ptr<Handle> defaultHandleIs(std::unique_ptr<Handle> handle);

// Writes one record through the default handle: nothing without a handle or file; otherwise
// checks the site ("msgId_ >= 0"), registers it with the file if needed, and writes the record.
void record(MessageSite& site, const Arg* args, std::size_t count) noexcept;

// Turns a trace image back into text lines, oldest record first. Throws std::runtime_error with
// a clear message for an image that is not a ring-buffer trace or is damaged.
std::vector<std::string> decode(std::string_view image);
// Fills "{}" (decimal or string) and "{:x}" (hexadecimal) placeholders in order.
std::string formatMessage(std::string_view format, const std::vector<Arg>& args);

namespace Detail {
inline Arg toArg(std::string_view s) noexcept { return Arg{ArgType::string, 0, s}; }
inline Arg toArg(const char* s) noexcept { return toArg(std::string_view(s)); }
template <class I>
   requires std::is_integral_v<I>
Arg toArg(I i) noexcept {
   constexpr auto type = std::is_signed_v<I> ? ArgType::signedInteger : ArgType::integer;
   return Arg{type, static_cast<std::uint64_t>(i), {}};
}
inline Arg toArg(const void* p) noexcept {
   return Arg{ArgType::integer, reinterpret_cast<std::uintptr_t>(p), {}};
}
template <class T>
constexpr ArgType argTypeOf() {
   if constexpr (std::is_integral_v<T> && std::is_signed_v<T>) {
      return ArgType::signedInteger;
   } else if constexpr (std::is_integral_v<T> || std::is_pointer_v<T>) {
      if constexpr (std::is_pointer_v<T> &&
                    std::is_same_v<std::remove_cv_t<std::remove_pointer_t<T>>, char>) {
         return ArgType::string;
      } else {
         return ArgType::integer;
      }
   } else {
      return ArgType::string;
   }
}
}  // namespace Detail

}  // namespace Fwk::RingTrace

// FWK_RING_TRACE("{}: {}", "operation", "IngL3IifTable", "operation"): one record per call, with
// the call site's own message registered once per trace file.
#define FWK_RING_TRACE(format, operation, ...)                                                \
   do {                                                                                       \
      if (::Fwk::RingTrace::defaultHandle() != nullptr) [[unlikely]] {                        \
         [](const auto&... a) noexcept {                                                      \
            static ::Fwk::RingTrace::MessageSite site{                                        \
                0, __FILE__, __LINE__, operation, format, sizeof...(a),                       \
                {::Fwk::RingTrace::Detail::argTypeOf<std::decay_t<decltype(a)>>()...}};       \
            ::Fwk::RingTrace::writeSiteRecord(site, a...);                                    \
         }(__VA_ARGS__);                                                                      \
      }                                                                                       \
   } while (0)

namespace Fwk::RingTrace {
template <class... Args>
void writeSiteRecord(MessageSite& site, const Args&... args) noexcept {
   static_assert(sizeof...(Args) <= kMaxArgs);
   const std::array<Arg, sizeof...(Args)> list = {Detail::toArg(args)...};
   record(site, list.data(), list.size());
}
}  // namespace Fwk::RingTrace
