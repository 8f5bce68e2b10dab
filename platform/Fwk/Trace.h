// Text trace: named trace handles with per-handle enabled levels, lines composed from strings,
// booleans and integers, and pluggable sinks (stderr, a file, memory for tests).
//
// Levels are 0 to 31. A handle's levels come, in this order of precedence, from code
// (`levelsIs`), from `configure()`, and from the environment variable L3DECAP_TRACE, read once
// when the first handle is created. The setting syntax (also used by the agent's --trace option):
//
//   setting  := entry (';' entry)*
//   entry    := handle-name '=' levels        handle-name may be '*' (every handle)
//   levels   := 'none' | '*' | range (',' range)*
//   range    := N | N '-' M                   0 <= N <= M <= 31
//
// e.g. "TalvikL3Decap::IngL3IifTable=5,8-9;SwTableStat=0". Later entries override earlier ones for
// the handles they name. A malformed setting is refused whole with std::invalid_argument naming
// the entry and the problem; no handle changes.
//
// Cost: FWK_TRACE tests one bit of the handle's level mask; nothing of a disabled message is
// built. Compiling with L3DECAP_TRACE_COMPILED_OUT removes the text trace altogether.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace Fwk::Trace {

using Level = std::uint8_t;
constexpr Level kMaxLevel = 31;

class Handle {
  public:
   // `flag` is kept for the framework's constructor shape; it has no effect here.
   Handle(std::string_view name, bool flag);
   ~Handle();
   Handle(const Handle&) = delete;
   Handle& operator=(const Handle&) = delete;

   const std::string& name() const noexcept { return name_; }
   // Whether lines of `level` are emitted; levels() is the mask of enabled levels (bit N:
   // level N). The setters override configured levels for this handle.
   bool enabled(Level level) const noexcept {
      return (mask_.load(std::memory_order_relaxed) >> level) & 1U;
   }
   std::uint32_t levels() const noexcept { return mask_.load(std::memory_order_relaxed); }
   void levelsIs(std::uint32_t mask) noexcept { mask_.store(mask, std::memory_order_relaxed); }
   void levelIs(Level level, bool on) noexcept;

  private:
   std::string name_;
   std::atomic<std::uint32_t> mask_{0};
};

// Applies a setting (syntax above) to every existing handle and remembers it for handles created
// later. Throws std::invalid_argument on a malformed setting, changing nothing.
void configure(std::string_view setting);
// Parses a level list ("none", "*", "0,5-8"); throws std::invalid_argument.
std::uint32_t parseLevels(std::string_view levels);

// One emitted line.
struct Record {
   std::string handle;
   Level level = 0;
   std::string file;
   int line = 0;
   std::string function;
   std::string text;
};

class Sink {
  public:
   virtual ~Sink() = default;
   // Called for every emitted line, on the thread that emits it.
   virtual void write(const Record& record) = 0;
};

// Writes "<handle>/<level> <text>" lines to stderr. The default sink.
class StderrSink : public Sink {
  public:
   void write(const Record& record) override;
};

// Appends the same lines to a file; throws std::runtime_error naming the file when it cannot be
// opened.
class FileSink : public Sink {
  public:
   explicit FileSink(const std::string& path);
   ~FileSink() override;
   void write(const Record& record) override;

  private:
   std::FILE* file_;
};

// Keeps every record in memory (tests read them back).
class MemorySink : public Sink {
  public:
   void write(const Record& record) override;
   // A copy of the records kept so far.
   std::vector<Record> records() const;
   // The texts only, optionally only those of one handle.
   std::vector<std::string> texts(std::string_view handle = {}) const;
   void clear();

  private:
   mutable std::mutex mutex_;
   std::vector<Record> records_;
};

// Replaces the process's sink (null restores the stderr sink); returns the previous one.
std::shared_ptr<Sink> sinkIs(std::shared_ptr<Sink> sink);

// A line being composed; emitted to the sink when destroyed.
class Line {
  public:
   Line(const Handle& handle, Level level, const char* file, int line,
        const char* function) noexcept;
   ~Line();
   Line(const Line&) = delete;
   Line& operator=(const Line&) = delete;

   Line& operator<<(std::string_view s) {
      text_.append(s);
      return *this;
   }
   Line& operator<<(const char* s) { return *this << std::string_view(s); }
   Line& operator<<(const std::string& s) { return *this << std::string_view(s); }
   Line& operator<<(char c) {
      text_.push_back(c);
      return *this;
   }
   Line& operator<<(bool b) { return *this << (b ? "true" : "false"); }
   template <class I>
      requires(std::is_integral_v<I> && !std::is_same_v<I, bool> && !std::is_same_v<I, char>)
   Line& operator<<(I i) {
      if constexpr (std::is_signed_v<I>) {
         appendSigned(static_cast<long long>(i));
      } else {
         appendUnsigned(static_cast<unsigned long long>(i));
      }
      return *this;
   }
   // Anything else with a text form (keys, entries, states).
   template <class T>
      requires(!std::is_arithmetic_v<T> && !std::is_convertible_v<const T&, std::string_view>)
   Line& operator<<(const T& value);

  private:
   void appendSigned(long long v);
   void appendUnsigned(unsigned long long v);
   const Handle& handle_;
   Level level_;
   const char* file_;
   int line_;
   const char* function_;
   std::string text_;
};

}  // namespace Fwk::Trace

#include <sstream>

template <class T>
   requires(!std::is_arithmetic_v<T> && !std::is_convertible_v<const T&, std::string_view>)
Fwk::Trace::Line& Fwk::Trace::Line::operator<<(const T& value) {
   std::ostringstream os;
   os << value;
   text_.append(os.str());
   return *this;
}

#if defined(L3DECAP_TRACE_COMPILED_OUT)
#define FWK_TRACE(handle, level, message) \
   do {                                   \
   } while (0)
#define FWK_TRACE_COPY(handle, level, message) FWK_TRACE(handle, level, message)
#else
// FWK_TRACE(handle, 8, "step" << " key: " << key): the message is a chain of << operands.
// The line is composed in a lambda kept out of line and cold: composed in place it would cost
// the tracing function registers and stack on every call, traced or not. That lambda takes the
// message's operands by reference, which still keeps every local it names in memory;
// FWK_TRACE_COPY, for member functions, copies them into the lambda instead, which happens only
// when the line is traced, so the locals stay in registers.
#define FWK_TRACE(handle, level, message) FWK_TRACE_CAPTURING_(handle, level, message, &)
#define FWK_TRACE_COPY(handle, level, message) \
   FWK_TRACE_CAPTURING_(handle, level, message, =, this)

// The copying form captures `this` whether or not the message uses a member; clang would warn.
#if defined(__clang__)
#define FWK_TRACE_ANY_CAPTURE_BEGIN_ \
   _Pragma("clang diagnostic push") _Pragma("clang diagnostic ignored \"-Wunused-lambda-capture\"")
#define FWK_TRACE_ANY_CAPTURE_END_ _Pragma("clang diagnostic pop")
#else
#define FWK_TRACE_ANY_CAPTURE_BEGIN_
#define FWK_TRACE_ANY_CAPTURE_END_
#endif

// The lambda's default capture is the trailing argument(s): `&`, or `=, this`.
#define FWK_TRACE_CAPTURING_(handle, level, message, ...)                               \
   do {                                                                                 \
      const ::Fwk::Trace::Handle& fwkTraceHandle_ = (handle);                           \
      if (fwkTraceHandle_.enabled(level)) [[unlikely]] {                                \
         FWK_TRACE_ANY_CAPTURE_BEGIN_                                                   \
         [__VA_ARGS__, fwkLineHandle_ = &fwkTraceHandle_, fwkLineFunction_ = __func__]() \
             __attribute__((noinline, cold)) {                                          \
                ::Fwk::Trace::Line fwkTraceLine_(*fwkLineHandle_, level, __FILE__,      \
                                                 __LINE__, fwkLineFunction_);           \
                fwkTraceLine_ << message;                                               \
             }();                                                                       \
         FWK_TRACE_ANY_CAPTURE_END_                                                     \
      }                                                                                 \
   } while (0)
#endif

