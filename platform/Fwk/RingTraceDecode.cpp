// Decoding of ring-buffer trace images. Images come from files that may be foreign, truncated or
// damaged, so every field is checked before use and every read is bounds-checked.
#include <algorithm>
#include <charconv>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>

#include "Fwk/RingTrace.h"
#include "Fwk/RingTraceImage.h"

namespace Fwk::RingTrace {

using namespace RingTraceFormat;

namespace {

[[noreturn]] void damaged(const std::string& problem) {
   throw std::runtime_error("damaged ring trace image: " + problem);
}

// Bounds-checked view of an image.
class Image {
 public:
   explicit Image(std::string_view image)
       : bytes_(reinterpret_cast<const std::uint8_t*>(image.data()), image.size()) {}

   std::size_t size() const { return bytes_.size(); }
   ConstBytes at(std::size_t offset, std::size_t size) const {
      if (offset > bytes_.size() || size > bytes_.size() - offset) {
         damaged("field at offset " + std::to_string(offset) + " runs past the image end");
      }
      return bytes_.subspan(offset, size);
   }
   template <class U>
   U load(std::size_t offset) const {
      return loadLe<U>(at(offset, sizeof(U)));
   }
   // A NUL-padded text field.
   std::string_view text(std::size_t offset, std::size_t size) const {
      const auto field = at(offset, size);
      const auto end = std::find(field.begin(), field.end(), std::uint8_t{0});
      return {reinterpret_cast<const char*>(field.data()),
              static_cast<std::size_t>(end - field.begin())};
   }

 private:
   ConstBytes bytes_;
};

struct Header {
   std::size_t slotCount;
   std::size_t messageCount;
   std::uint64_t recordsWritten;
};

struct Message {
   std::uint32_t line;
   std::uint8_t argCount;
   ArgType argTypes[kMaxArgs];
   std::string_view operation;
   std::string_view format;
   std::string_view file;
};

struct Entry {
   std::uint64_t sequence;
   const Message* message;
   std::vector<Arg> args;
};

void expectLayoutField(const Image& image, std::size_t offset, const char* name,
                       std::size_t expected) {
   const auto actual = image.load<std::uint32_t>(offset);
   if (actual != expected) {
      damaged(std::string(name) + " is " + std::to_string(actual) + ", expected " +
              std::to_string(expected));
   }
}

void checkIdentity(const Image& image) {
   if (image.size() < kHeaderSize) {
      throw std::runtime_error("not a ring-buffer trace image: " + std::to_string(image.size()) +
                               " bytes is shorter than the header");
   }
   if (!std::equal(std::begin(kMagic), std::end(kMagic), image.at(kMagicOffset, 8).begin())) {
      throw std::runtime_error("not a ring-buffer trace image: bad magic");
   }
   const auto version = image.load<std::uint32_t>(kVersionOffset);
   if (version != kVersion) {
      throw std::runtime_error("unsupported ring trace format version " + std::to_string(version) +
                               " (expected " + std::to_string(kVersion) + ")");
   }
}

Header readHeader(const Image& image) {
   checkIdentity(image);
   expectLayoutField(image, kSlotSizeOffset, "slot size", kSlotSize);
   expectLayoutField(image, kEntrySizeOffset, "message entry size", kEntrySize);
   expectLayoutField(image, kMaxMessagesOffset, "message table size", kMaxMessages);
   Header header{};
   header.messageCount = image.load<std::uint32_t>(kMessageCountOffset);
   if (header.messageCount > kMaxMessages) {
      damaged("message count " + std::to_string(header.messageCount) + " exceeds the table's " +
              std::to_string(kMaxMessages) + " entries");
   }
   const auto slotCount = image.load<std::uint64_t>(kSlotCountOffset);
   const auto ringBytes = image.size() < kRingOffset ? 0 : image.size() - kRingOffset;
   if (slotCount == 0 || image.size() < kRingOffset || ringBytes % kSlotSize != 0 ||
       slotCount != ringBytes / kSlotSize) {
      damaged("header says " + std::to_string(slotCount) + " slots, which does not match the " +
              std::to_string(image.size()) + "-byte image");
   }
   header.slotCount = static_cast<std::size_t>(slotCount);
   header.recordsWritten = image.load<std::uint64_t>(kRecordsWrittenOffset);
   return header;
}

bool isArgType(std::uint8_t value) {
   return value >= static_cast<std::uint8_t>(ArgType::string) &&
          value <= static_cast<std::uint8_t>(ArgType::signedInteger);
}

Message readMessage(const Image& image, std::size_t index) {
   const auto base = kTableOffset + index * kEntrySize;
   const auto where = "message table entry " + std::to_string(index);
   if (image.load<std::uint32_t>(base + kEntryIdOffset) != index + 1) {
      damaged(where + " does not hold id " + std::to_string(index + 1));
   }
   Message message{};
   message.line = image.load<std::uint32_t>(base + kEntryLineOffset);
   message.argCount = image.load<std::uint8_t>(base + kEntryArgCountOffset);
   if (message.argCount > kMaxArgs) {
      damaged(where + " has " + std::to_string(message.argCount) + " arguments");
   }
   for (std::size_t i = 0; i < message.argCount; ++i) {
      const auto type = image.load<std::uint8_t>(base + kEntryArgTypesOffset + i);
      if (!isArgType(type)) {
         damaged(where + " has unknown argument type " + std::to_string(type));
      }
      message.argTypes[i] = static_cast<ArgType>(type);
   }
   message.operation = image.text(base + kEntryOperationOffset, kEntryOperationSize);
   message.format = image.text(base + kEntryFormatOffset, kEntryFormatSize);
   message.file = image.text(base + kEntryFileOffset, kEntryFileSize);
   return message;
}

std::vector<Arg> readArgs(const Image& image, std::size_t slotBase, const Message& message,
                          std::size_t count, const std::string& where) {
   std::vector<Arg> args;
   std::size_t pos = slotBase + kSlotArgsOffset;
   const std::size_t end = slotBase + kSlotSize;
   for (std::size_t i = 0; i < count; ++i) {
      const auto type = message.argTypes[i];
      const std::size_t length =
          type == ArgType::string ? std::size_t{1} + image.load<std::uint8_t>(pos) : 8;
      if (pos + length > end) {
         damaged(where + ": argument " + std::to_string(i + 1) + " runs past the slot end");
      }
      if (type == ArgType::string) {
         const auto text = image.at(pos + 1, length - 1);
         args.push_back(Arg{type, 0, {reinterpret_cast<const char*>(text.data()), text.size()}});
      } else {
         args.push_back(Arg{type, image.load<std::uint64_t>(pos), {}});
      }
      pos += length;
   }
   return args;
}

// The record in `slot`, or none for a slot never written.
std::optional<Entry> readSlot(const Image& image, const Header& header,
                              const std::vector<Message>& messages, std::size_t slot) {
   const auto base = kRingOffset + slot * kSlotSize;
   const auto id = image.load<std::uint16_t>(base + kSlotIdOffset);
   if (id == 0) {
      return std::nullopt;
   }
   const auto where = "record in slot " + std::to_string(slot);
   if (id > messages.size()) {
      damaged(where + " names unregistered message id " + std::to_string(id));
   }
   const auto sequence = image.load<std::uint64_t>(base + kSlotSequenceOffset);
   if (sequence >= header.recordsWritten || sequence % header.slotCount != slot) {
      damaged(where + " has sequence number " + std::to_string(sequence) +
              ", inconsistent with its slot and the " + std::to_string(header.recordsWritten) +
              " records written");
   }
   const auto& message = messages[id - 1];
   const auto argCount = image.load<std::uint8_t>(base + kSlotArgCountOffset);
   if (argCount > message.argCount) {
      damaged(where + " has " + std::to_string(argCount) + " arguments, its message only " +
              std::to_string(message.argCount));
   }
   return Entry{sequence, &message, readArgs(image, base, message, argCount, where)};
}

std::string decodedLine(const Entry& entry) {
   const auto& message = *entry.message;
   return std::to_string(entry.sequence) + " " + std::string(message.operation) + ": " +
          formatMessage(message.format, entry.args) + " [" + std::string(message.file) + ":" +
          std::to_string(message.line) + "]";
}

void appendInteger(std::string& out, const Arg& arg, bool hex) {
   const bool negative =
       arg.type == ArgType::signedInteger && static_cast<std::int64_t>(arg.integer) < 0;
   // The magnitude of a negative value, computed without overflowing at the minimum.
   const std::uint64_t magnitude = negative ? ~arg.integer + 1 : arg.integer;
   char digits[24];
   const auto result =
       std::to_chars(std::begin(digits), std::end(digits), magnitude, hex ? 16 : 10);
   if (negative) {
      out.push_back('-');
   }
   out.append(std::begin(digits), result.ptr);
}

void appendValue(std::string& out, const Arg& arg, bool hex) {
   if (arg.type == ArgType::string) {
      out.append(arg.string);
   } else {
      appendInteger(out, arg, hex);
   }
}

struct Placeholder {
   std::string_view text;
   bool hex;
};
constexpr Placeholder kPlaceholders[] = {{"{}", false}, {"{:x}", true}};

const Placeholder* placeholderAt(std::string_view format, std::size_t pos) {
   for (const auto& placeholder : kPlaceholders) {
      if (format.substr(pos, placeholder.text.size()) == placeholder.text) {
         return &placeholder;
      }
   }
   return nullptr;
}

}  // namespace

std::vector<std::string> decode(std::string_view imageText) {
   const Image image(imageText);
   const auto header = readHeader(image);
   std::vector<Message> messages;
   for (std::size_t i = 0; i < header.messageCount; ++i) {
      messages.push_back(readMessage(image, i));
   }
   std::vector<Entry> entries;
   for (std::size_t slot = 0; slot < header.slotCount; ++slot) {
      if (auto entry = readSlot(image, header, messages, slot)) {
         entries.push_back(std::move(*entry));
      }
   }
   if (entries.size() != std::min<std::uint64_t>(header.recordsWritten, header.slotCount)) {
      damaged("header counts " + std::to_string(header.recordsWritten) +
              " records written but the ring holds " + std::to_string(entries.size()));
   }
   std::sort(entries.begin(), entries.end(),
             [](const Entry& a, const Entry& b) { return a.sequence < b.sequence; });
   std::vector<std::string> lines;
   lines.reserve(entries.size());
   for (const auto& entry : entries) {
      lines.push_back(decodedLine(entry));
   }
   return lines;
}

std::string formatMessage(std::string_view format, const std::vector<Arg>& args) {
   std::string out;
   std::size_t next = 0;
   for (std::size_t pos = 0; pos < format.size();) {
      const auto* placeholder = placeholderAt(format, pos);
      if (placeholder == nullptr) {
         out.push_back(format[pos++]);
         continue;
      }
      if (next < args.size()) {
         appendValue(out, args[next++], placeholder->hex);
      } else {
         out.append("<missing arg>");
      }
      pos += placeholder->text.size();
   }
   for (; next < args.size(); ++next) {
      out.append(" <extra arg: ");
      appendValue(out, args[next], false);
      out.push_back('>');
   }
   return out;
}

}  // namespace Fwk::RingTrace
