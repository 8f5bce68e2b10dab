#include "ConfigFile.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <optional>
#include <sstream>

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

// The words of one line, comment removed, taken one after the other.
class Words {
 public:
   explicit Words(std::string_view line) : rest_(line.substr(0, line.find('#'))) {}
   std::optional<std::string_view> next() {
      constexpr std::string_view kSpace = " \t\r\v\f";
      const auto start = rest_.find_first_not_of(kSpace);
      if (start == std::string_view::npos) {
         rest_ = {};
         return std::nullopt;
      }
      rest_.remove_prefix(start);
      const auto end = std::min(rest_.find_first_of(kSpace), rest_.size());
      const std::string_view word = rest_.substr(0, end);
      rest_.remove_prefix(end);
      return word;
   }

 private:
   std::string_view rest_;
};

std::string quoted(std::string_view word) {
   std::string text(1, '\'');
   text.append(word).push_back('\'');
   return text;
}

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
         problem("unknown word " + quoted(*first) + " (expected 'profile' or 'tunnel')");
      }
   }

   Sim::Config finish() {
      for (const auto& [line, tunnel] : profileUses_) {
         if (!profileLines_.contains(tunnel.profileId)) {
            problemAt(line, "tunnel " + std::to_string(tunnel.key) + " names profile " +
                                std::to_string(tunnel.profileId) + ", which is not declared");
         }
      }
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
   std::optional<std::uint64_t> number(Words& words, const std::string& what, std::uint64_t max) {
      const auto word = words.next();
      if (!word) {
         problem("missing " + what);
         return std::nullopt;
      }
      const Number n = parseNumber(*word, max);
      if (n.error == Number::Error::malformed) {
         problem(what + " " + quoted(*word) + " is not a number (decimal or 0x-hex)");
         return std::nullopt;
      }
      if (n.error == Number::Error::outOfRange) {
         problem(what + " " + std::string(*word) + " is out of range (0 to " + std::to_string(max) +
                 ")");
         return std::nullopt;
      }
      return n.value;
   }

   bool number32(Words& words, const std::string& what, std::uint32_t& into) {
      const auto n = number(words, what, kMax32);
      into = static_cast<std::uint32_t>(n.value_or(0));
      return n.has_value();
   }

   bool noMoreWords(Words& words, const std::string& after) {
      if (const auto extra = words.next()) {
         problem("unexpected word " + quoted(*extra) + " after " + after);
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
   bool tunnelWord(Words& words, std::string_view word, Sim::TunnelConfig& tunnel,
                   std::map<std::string_view, bool>& seen, const std::string& which) {
      if (seen[word]) {
         problem(quoted(word) + " is given twice in " + which);
         return false;
      }
      seen[word] = true;
      if (word == "profile") {
         return number32(words, "profile id", tunnel.profileId);
      }
      if (word == "vrf") {
         return number32(words, "vrf", tunnel.vrf);
      }
      bool* flag = word == "ipv4"         ? &tunnel.ipv4UcEnable
                   : word == "ipv6"       ? &tunnel.ipv6UcEnable
                   : word == "trust-dscp" ? &tunnel.trustDscp
                                          : nullptr;
      if (flag != nullptr) {
         *flag = true;
         return true;
      }
      problem("unknown word " + quoted(word) + " in " + which +
              " (expected profile, vrf, ipv4, ipv6 or trust-dscp)");
      return false;
   }

   void tunnelLine(Words& words) {
      const auto key = number(words, "tunnel key", kMax64);
      if (!key) {
         return;
      }
      Sim::TunnelConfig tunnel;
      tunnel.key = *key;
      const std::string which = "tunnel " + std::to_string(*key);
      std::map<std::string_view, bool> seen;
      while (const auto word = words.next()) {
         if (!tunnelWord(words, *word, tunnel, seen, which)) {
            return;
         }
      }
      if (!seen["profile"]) {
         problem(which + " has no profile (add 'profile <id>')");
         return;
      }
      const auto [it, added] = tunnelLines_.emplace(tunnel.key, line_);
      if (!added) {
         problem("duplicate " + which + " (first on line " + std::to_string(it->second) + ")");
         return;
      }
      profileUses_.emplace_back(line_, tunnel);
      config_.tunnels.push_back(tunnel);
   }

   std::string name_;
   std::size_t line_ = 0;
   std::vector<std::pair<std::size_t, std::string>> problems_;  // by line
   Sim::Config config_;
   std::map<std::uint32_t, std::size_t> profileLines_;
   std::map<std::uint64_t, std::size_t> tunnelLines_;
   std::vector<std::pair<std::size_t, Sim::TunnelConfig>> profileUses_;
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

Sim::Config parseConfig(std::istream& in, const std::string& name) {
   Parser parser(name);
   std::string text;
   while (std::getline(in, text)) {
      parser.line(text);
   }
   if (in.bad()) {
      throw ConfigError({name + ": read error"});
   }
   return parser.finish();
}

Sim::Config readConfigFile(const std::string& path) {
   std::error_code ignored;
   if (std::filesystem::is_directory(path, ignored)) {
      throw ConfigError({path + ": is a directory, not a configuration file"});
   }
   std::ifstream in(path);
   if (!in) {
      throw ConfigError({path + ": cannot open the configuration file: " + std::strerror(errno)});
   }
   return parseConfig(in, path);
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
