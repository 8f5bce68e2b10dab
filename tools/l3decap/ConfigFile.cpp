#include "ConfigFile.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <sstream>

#include "Quote.h"
#include "sim/ChipState.h"

namespace L3DecapCli {

namespace {

constexpr std::uint64_t kMax32 = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint64_t kMax64 = std::numeric_limits<std::uint64_t>::max();

std::string joined(const std::vector<std::string>& lines) {
   std::string text;
   for (const auto& line : lines) {
      text += (text.empty() ? "" : "\n") + line;
   }
   return text;
}

bool isSpace(char c) {
   return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f';
}

// The words of one line, comment removed, taken one after the other.
class Words {
 public:
   explicit Words(std::string_view line) : rest_(line.substr(0, line.find('#'))) {}
   std::optional<std::string_view> next() {
      std::size_t start = 0;
      while (start < rest_.size() && isSpace(rest_[start])) {
         ++start;
      }
      if (start == rest_.size()) {
         return std::nullopt;
      }
      std::size_t end = start;
      while (end < rest_.size() && !isSpace(rest_[end])) {
         ++end;
      }
      const std::string_view word = rest_.substr(start, end - start);
      rest_.remove_prefix(end);
      return word;
   }

 private:
   std::string_view rest_;
};

// The words a tunnel line may have after its key, each at most once.
enum TunnelWord : unsigned { kProfile = 1, kVrf = 2, kIpv4 = 4, kIpv6 = 8, kTrustDscp = 16 };

std::optional<TunnelWord> tunnelWordOf(std::string_view word) {
   if (word == "profile") {
      return kProfile;
   }
   if (word == "vrf") {
      return kVrf;
   }
   if (word == "ipv4") {
      return kIpv4;
   }
   if (word == "ipv6") {
      return kIpv6;
   }
   if (word == "trust-dscp") {
      return kTrustDscp;
   }
   return std::nullopt;
}

std::string tunnelName(std::uint64_t key) {
   return "tunnel " + std::to_string(key);
}

// Reads a configuration line by line. Nothing but the configuration is kept per tunnel (and its
// line, for the checks that need the whole file); messages are made only for errors.
class Parser {
 public:
   explicit Parser(std::string name) : name_(std::move(name)) {}

   void line(std::string_view text) {
      ++line_;
      Words words(text);
      const auto first = words.next();
      if (!first) {
         return;
      }
      if (*first == "profile") {
         profileLine(words);
      } else if (*first == "tunnel") {
         tunnelLine(words);
      } else {
         problem("unknown word " + quotedWord(*first) + " (expected 'profile' or 'tunnel')");
      }
   }

   // Every line of `text`, the last one ending there or with a newline.
   void lines(std::string_view text) {
      while (!text.empty()) {
         const std::size_t end = std::min(text.find('\n'), text.size());
         line(text.substr(0, end));
         text.remove_prefix(std::min(end + 1, text.size()));
      }
   }

   // Room for the tunnels of a file of `total` bytes, judged by the first `seen` bytes: a million
   // tunnels then take no copies of the list as it grows.
   void expect(std::size_t seen, std::size_t total) {
      const std::size_t tunnels = config_.tunnels.size() * total / std::max<std::size_t>(seen, 1);
      config_.tunnels.reserve(tunnels + tunnels / 16);
      tunnelLines_.reserve(tunnels + tunnels / 16);
   }

   Sim::Config finish() {
      checkProfilesDeclared();
      checkKeysUnique();
      if (!problems_.empty()) {
         std::stable_sort(problems_.begin(), problems_.end(),
                          [](const auto& a, const auto& b) { return a.first < b.first; });
         std::vector<std::string> texts;
         for (auto& [line, text] : problems_) {
            texts.push_back(name_ + ":" + std::to_string(line) + ": " + text);
         }
         throw ConfigError(std::move(texts));
      }
      return std::move(config_);
   }

 private:
   void problemAt(std::size_t line, const std::string& text) { problems_.emplace_back(line, text); }
   void problem(const std::string& text) { problemAt(line_, text); }

   // The number after `what`, or nothing (reported) when it is missing or unusable.
   std::optional<std::uint64_t> number(Words& words, const char* what, std::uint64_t max) {
      const auto word = words.next();
      if (!word) {
         problem(std::string("missing ") + what);
         return std::nullopt;
      }
      const Number n = parseNumber(*word, max);
      if (n.error == Number::Error::malformed) {
         problem(what + (" " + quotedWord(*word)) + " is not a number (decimal or 0x-hex)");
         return std::nullopt;
      }
      if (n.error == Number::Error::outOfRange) {
         problem(what + (" " + quotedWord(*word)) + " is out of range (0 to " +
                 std::to_string(max) + ")");
         return std::nullopt;
      }
      return n.value;
   }

   bool number32(Words& words, const char* what, std::uint32_t& into) {
      const auto n = number(words, what, kMax32);
      into = static_cast<std::uint32_t>(n.value_or(0));
      return n.has_value();
   }

   bool noMoreWords(Words& words, const std::string& after) {
      if (const auto extra = words.next()) {
         problem("unexpected word " + quotedWord(*extra) + " after " + after);
         return false;
      }
      return true;
   }

   void profileLine(Words& words) {
      const auto id = number(words, "profile id", kMax32);
      if (!id || !noMoreWords(words, "the profile id")) {
         return;
      }
      const auto [it, added] = profileLines_.emplace(static_cast<std::uint32_t>(*id), line_);
      if (!added) {
         problem("profile " + std::to_string(*id) + " is declared twice (first on line " +
                 std::to_string(it->second) + ")");
      } else if (profileLines_.size() > Sim::ChipState::kProfileRows) {
         problem("profile " + std::to_string(*id) +
                 " is one too many: the chip's profile table has " +
                 std::to_string(Sim::ChipState::kProfileRows) + " rows");
      } else {
         config_.profiles.push_back(static_cast<std::uint32_t>(*id));
      }
   }

   // One word of a tunnel line after its key; false when the line cannot be used.
   bool tunnelWord(Words& words, std::string_view word, Sim::TunnelConfig& tunnel, unsigned& seen) {
      const auto which = tunnelWordOf(word);
      if (!which) {
         problem("unknown word " + quotedWord(word) + " in " + tunnelName(tunnel.key) +
                 " (expected profile, vrf, ipv4, ipv6 or trust-dscp)");
         return false;
      }
      if ((seen & *which) != 0) {
         problem(quotedWord(word) + " is given twice in " + tunnelName(tunnel.key));
         return false;
      }
      seen |= *which;
      switch (*which) {
         case kProfile:
            return number32(words, "profile id", tunnel.profileId);
         case kVrf:
            return number32(words, "vrf", tunnel.vrf);
         case kIpv4:
            tunnel.ipv4UcEnable = true;
            break;
         case kIpv6:
            tunnel.ipv6UcEnable = true;
            break;
         case kTrustDscp:
            tunnel.trustDscp = true;
            break;
      }
      return true;
   }

   void tunnelLine(Words& words) {
      const auto key = number(words, "tunnel key", kMax64);
      if (!key) {
         return;
      }
      Sim::TunnelConfig tunnel;
      tunnel.key = *key;
      unsigned seen = 0;
      while (const auto word = words.next()) {
         if (!tunnelWord(words, *word, tunnel, seen)) {
            return;
         }
      }
      if ((seen & kProfile) == 0) {
         problem(tunnelName(tunnel.key) + " has no profile (add 'profile <id>')");
         return;
      }
      config_.tunnels.push_back(tunnel);
      tunnelLines_.push_back(line_);
   }

   // A tunnel may name a profile declared anywhere in the file, so this waits for its end.
   void checkProfilesDeclared() {
      for (std::size_t i = 0; i < config_.tunnels.size(); ++i) {
         const Sim::TunnelConfig& tunnel = config_.tunnels[i];
         if (!profileLines_.contains(tunnel.profileId)) {
            problemAt(tunnelLines_[i], tunnelName(tunnel.key) + " names profile " +
                                           std::to_string(tunnel.profileId) +
                                           ", which is not declared");
         }
      }
   }

   // Keys sorted with their lines: a duplicate sits beside its first occurrence.
   void checkKeysUnique() {
      std::vector<std::pair<std::uint64_t, std::size_t>> keys(config_.tunnels.size());
      for (std::size_t i = 0; i < keys.size(); ++i) {
         keys[i] = {config_.tunnels[i].key, tunnelLines_[i]};
      }
      std::sort(keys.begin(), keys.end());
      std::size_t first = 0;
      for (std::size_t i = 1; i < keys.size(); ++i) {
         if (keys[i].first != keys[first].first) {
            first = i;
         } else {
            problemAt(keys[i].second, "duplicate " + tunnelName(keys[i].first) +
                                          " (first on line " + std::to_string(keys[first].second) +
                                          ")");
         }
      }
   }

   std::string name_;
   std::size_t line_ = 0;
   std::vector<std::pair<std::size_t, std::string>> problems_;  // by line
   Sim::Config config_;
   std::map<std::uint32_t, std::size_t> profileLines_;
   std::vector<std::size_t> tunnelLines_;  // the line of each of config_.tunnels
};

}  // namespace

ConfigError::ConfigError(std::vector<std::string> problems)
    : std::runtime_error(joined(problems)), problems_(std::move(problems)) {}

Number parseNumber(std::string_view word, std::uint64_t max) {
   int base = 10;
   if (word.size() > 2 && word[0] == '0' && (word[1] == 'x' || word[1] == 'X')) {
      base = 16;
      word.remove_prefix(2);
   }
   Number n;
   const char* end = word.data() + word.size();
   const auto [at, error] = std::from_chars(word.data(), end, n.value, base);
   if (word.empty() || at != end || error == std::errc::invalid_argument) {
      return Number{0, Number::Error::malformed};
   }
   if (error == std::errc::result_out_of_range || n.value > max) {
      return Number{0, Number::Error::outOfRange};
   }
   return n;
}

Sim::Config parseConfig(std::string_view text, const std::string& name) {
   Parser parser(name);
   parser.lines(text);
   return parser.finish();
}

Sim::Config readConfigFile(const std::string& path) {
   std::error_code ignored;
   if (std::filesystem::is_directory(path, ignored)) {
      throw ConfigError({path + ": is a directory, not a configuration file"});
   }
   std::ifstream in(path, std::ios::binary);
   if (!in) {
      throw ConfigError({path + ": cannot open the configuration file: " + std::strerror(errno)});
   }
   // Read a block at a time, whole lines parsed as they come: the text is never held whole.
   Parser parser(path);
   constexpr std::size_t kBlock = std::size_t{1} << 20;
   const std::unique_ptr<char[]> block(new char[kBlock]);
   std::string partial;  // a line begun in an earlier block
   bool first = true;
   while (in.read(block.get(), kBlock) || in.gcount() > 0) {
      std::string_view text(block.get(), static_cast<std::size_t>(in.gcount()));
      const std::size_t last = text.rfind('\n');
      if (last == std::string_view::npos) {
         partial.append(text);
         continue;
      }
      const std::size_t end = text.find('\n');
      parser.line(partial.append(text.substr(0, end)));
      parser.lines(text.substr(end + 1, last - end));
      partial.assign(text.substr(last + 1));
      if (first) {
         std::error_code unknown;
         const auto size = std::filesystem::file_size(path, unknown);
         parser.expect(text.size(), unknown ? 0 : size);
         first = false;
      }
   }
   if (in.bad()) {
      throw ConfigError({path + ": read error: " + std::strerror(errno)});
   }
   if (!partial.empty()) {
      parser.line(partial);
   }
   return parser.finish();
}

std::string configText(const Sim::Config& config) {
   std::ostringstream out;
   for (const std::uint32_t id : config.profiles) {
      out << "profile " << id << '\n';
   }
   for (const auto& t : config.tunnels) {
      out << "tunnel " << t.key << " profile " << t.profileId << " vrf " << t.vrf
          << (t.ipv4UcEnable ? " ipv4" : "") << (t.ipv6UcEnable ? " ipv6" : "")
          << (t.trustDscp ? " trust-dscp" : "") << '\n';
   }
   return out.str();
}

}  // namespace L3DecapCli
