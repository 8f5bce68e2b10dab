#include "Fwk/Trace.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "Fwk/Assert.h"

namespace Fwk::Trace {

namespace {

constexpr const char* kEnvironmentVariable = "L3DECAP_TRACE";
constexpr std::uint32_t kAllLevels = 0xFFFFFFFFU;

// One parsed "name=levels" entry; the name "*" matches every handle.
struct Rule {
   std::string name;
   std::uint32_t mask;

   bool matches(const std::string& handleName) const { return name == "*" || name == handleName; }
};

std::string_view trimmed(std::string_view s) {
   constexpr std::string_view kSpace = " \t\r\n";
   const auto first = s.find_first_not_of(kSpace);
   if (first == std::string_view::npos) {
      return {};
   }
   return s.substr(first, s.find_last_not_of(kSpace) - first + 1);
}

// Splits on `separator`, keeping empty pieces so that the caller can reject them.
std::vector<std::string_view> split(std::string_view s, char separator) {
   std::vector<std::string_view> pieces;
   for (std::size_t start = 0;;) {
      const auto end = s.find(separator, start);
      pieces.push_back(s.substr(start, end - start));
      if (end == std::string_view::npos) {
         return pieces;
      }
      start = end + 1;
   }
}

[[noreturn]] void refuseLevels(std::string_view levels, const std::string& problem) {
   throw std::invalid_argument("level list \"" + std::string(levels) + "\": " + problem);
}

Level parseLevel(std::string_view levels, std::string_view token) {
   const auto text = trimmed(token);
   if (text.empty()) {
      refuseLevels(levels, "missing level number");
   }
   unsigned value = 0;
   const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
   if (error == std::errc::invalid_argument || end != text.data() + text.size()) {
      refuseLevels(levels, "'" + std::string(text) + "' is not a level number");
   }
   if (error == std::errc::result_out_of_range || value > kMaxLevel) {
      refuseLevels(
          levels, "level " + std::string(text) + " is out of range 0-" + std::to_string(kMaxLevel));
   }
   return static_cast<Level>(value);
}

std::uint32_t parseRange(std::string_view levels, std::string_view range) {
   const auto dash = range.find('-');
   const Level low = parseLevel(levels, range.substr(0, dash));
   const Level high =
       dash == std::string_view::npos ? low : parseLevel(levels, range.substr(dash + 1));
   if (high < low) {
      refuseLevels(levels, "range '" + std::string(trimmed(range)) + "' ends below its start");
   }
   // Bits low..high inclusive; computed in 64 bits so that high == 31 does not overflow the shift.
   return static_cast<std::uint32_t>((std::uint64_t{1} << (high + 1)) - (std::uint64_t{1} << low));
}

Rule parseRule(std::string_view entry) {
   const auto text = trimmed(entry);
   const auto quoted = "entry \"" + std::string(text) + "\"";
   const auto equals = text.find('=');
   if (equals == std::string_view::npos) {
      throw std::invalid_argument(quoted + " has no '=' between handle name and levels");
   }
   const auto name = trimmed(text.substr(0, equals));
   if (name.empty()) {
      throw std::invalid_argument(quoted + " has an empty handle name");
   }
   try {
      return Rule{std::string(name), parseLevels(text.substr(equals + 1))};
   } catch (const std::invalid_argument& e) {
      throw std::invalid_argument(quoted + ": " + e.what());
   }
}

std::vector<Rule> parseSetting(std::string_view setting) {
   if (trimmed(setting).empty()) {
      throw std::invalid_argument("empty trace setting");
   }
   std::vector<Rule> rules;
   for (const auto entry : split(setting, ';')) {
      if (trimmed(entry).empty()) {
         throw std::invalid_argument("trace setting \"" + std::string(setting) +
                                     "\" has an empty entry");
      }
      rules.push_back(parseRule(entry));
   }
   return rules;
}

// Rules remembered for handles created later, kept short: a rule makes every earlier rule it
// fully overrides redundant.
void remember(std::vector<Rule>& remembered, const Rule& rule) {
   std::erase_if(remembered,
                 [&](const Rule& old) { return rule.name == "*" || old.name == rule.name; });
   remembered.push_back(rule);
}

void applyRules(Handle& handle, const std::vector<Rule>& rules) {
   for (const auto& rule : rules) {
      if (rule.matches(handle.name())) {
         handle.levelsIs(rule.mask);
      }
   }
}

// The environment's rules, or none (with a one-line complaint) when the variable is malformed.
std::vector<Rule> environmentRules() {
   const char* value = std::getenv(kEnvironmentVariable);
   if (value == nullptr || trimmed(value).empty()) {
      return {};
   }
   try {
      return parseSetting(value);
   } catch (const std::invalid_argument& e) {
      std::fprintf(stderr, "error: environment variable %s ignored: %s\n", kEnvironmentVariable,
                   e.what());
      return {};
   }
}

struct Registry {
   std::mutex mutex;
   std::vector<Handle*> handles;
   std::vector<Rule> remembered;
   bool environmentRead = false;

   // Called before any rule is remembered, so that configure() overrides the environment.
   void readEnvironmentOnce() {
      if (!environmentRead) {
         environmentRead = true;
         remembered = environmentRules();
      }
   }
};

// Leaked on purpose: handles with static storage may outlive any static registry.
Registry& registry() {
   static auto* r = new Registry;
   return *r;
}

struct SinkSlot {
   std::mutex mutex;
   std::shared_ptr<Sink> sink = std::make_shared<StderrSink>();
};

// Leaked like the registry: lines may be traced from static destructors.
SinkSlot& sinkSlot() {
   static auto* slot = new SinkSlot;
   return *slot;
}

std::shared_ptr<Sink> currentSink() {
   auto& slot = sinkSlot();
   const std::lock_guard lock(slot.mutex);
   return slot.sink;
}

std::string formattedLine(const Record& record) {
   return record.handle + "/" + std::to_string(record.level) + " " + record.text + "\n";
}

// One write per line, so that lines of concurrent writers do not interleave.
void writeLine(std::FILE* file, const Record& record) {
   const auto text = formattedLine(record);
   std::fwrite(text.data(), 1, text.size(), file);
   std::fflush(file);
}

}  // namespace

Handle::Handle(std::string_view name, bool /*flag*/) : name_(name) {
   auto& r = registry();
   const std::lock_guard lock(r.mutex);
   r.readEnvironmentOnce();
   applyRules(*this, r.remembered);
   r.handles.push_back(this);
}

Handle::~Handle() {
   auto& r = registry();
   const std::lock_guard lock(r.mutex);
   std::erase(r.handles, this);
}

void Handle::levelIs(Level level, bool on) noexcept {
   FWK_ASSERT(level <= kMaxLevel, "level <= kMaxLevel");
   const auto bit = std::uint32_t{1} << level;
   if (on) {
      mask_.fetch_or(bit, std::memory_order_relaxed);
   } else {
      mask_.fetch_and(~bit, std::memory_order_relaxed);
   }
}

std::uint32_t parseLevels(std::string_view levels) {
   const auto text = trimmed(levels);
   if (text.empty()) {
      refuseLevels(levels, "no levels given (use 'none' for no levels)");
   }
   if (text == "none") {
      return 0;
   }
   if (text == "*") {
      return kAllLevels;
   }
   std::uint32_t mask = 0;
   for (const auto range : split(text, ',')) {
      mask |= parseRange(levels, range);
   }
   return mask;
}

void configure(std::string_view setting) {
   const auto rules = parseSetting(setting);
   auto& r = registry();
   const std::lock_guard lock(r.mutex);
   r.readEnvironmentOnce();
   for (auto* handle : r.handles) {
      applyRules(*handle, rules);
   }
   for (const auto& rule : rules) {
      remember(r.remembered, rule);
   }
}

void StderrSink::write(const Record& record) {
   writeLine(stderr, record);
}

FileSink::FileSink(const std::string& path) : file_(std::fopen(path.c_str(), "a")) {
   if (file_ == nullptr) {
      throw std::runtime_error("cannot open trace file '" + path + "': " + std::strerror(errno));
   }
}

FileSink::~FileSink() {
   std::fclose(file_);
}

void FileSink::write(const Record& record) {
   writeLine(file_, record);
}

void MemorySink::write(const Record& record) {
   const std::lock_guard lock(mutex_);
   records_.push_back(record);
}

std::vector<Record> MemorySink::records() const {
   const std::lock_guard lock(mutex_);
   return records_;
}

std::vector<std::string> MemorySink::texts(std::string_view handle) const {
   const std::lock_guard lock(mutex_);
   std::vector<std::string> texts;
   for (const auto& record : records_) {
      if (handle.empty() || record.handle == handle) {
         texts.push_back(record.text);
      }
   }
   return texts;
}

void MemorySink::clear() {
   const std::lock_guard lock(mutex_);
   records_.clear();
}

std::shared_ptr<Sink> sinkIs(std::shared_ptr<Sink> sink) {
   if (sink == nullptr) {
      sink = std::make_shared<StderrSink>();
   }
   auto& slot = sinkSlot();
   const std::lock_guard lock(slot.mutex);
   std::swap(slot.sink, sink);
   return sink;
}

Line::Line(const Handle& handle, Level level, const char* file, int line,
           const char* function) noexcept
    : handle_(handle), level_(level), file_(file), line_(line), function_(function) {}

// A trace line must never take the process down, so a failing sink loses the line only.
Line::~Line() {
   try {
      currentSink()->write(
          Record{handle_.name(), level_, file_, line_, function_, std::move(text_)});
   } catch (...) {
   }
}

void Line::appendSigned(long long v) {
   text_.append(std::to_string(v));
}

void Line::appendUnsigned(unsigned long long v) {
   text_.append(std::to_string(v));
}

}  // namespace Fwk::Trace
