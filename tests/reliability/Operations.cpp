#include "reliability/Operations.h"

#include <algorithm>
#include <iterator>
#include <numeric>
#include <sstream>
#include <stdexcept>

namespace Reliability {

namespace {

// How each kind prints, in OpKind order: its word, then the fields it has.
struct KindForm {
   std::string_view word;
   bool key, arg, value;
};
constexpr KindForm kForms[] = {
    {"commit", true, false, true},         {"ref", true, false, true},
    {"remove", true, false, false},        {"release", false, true, false},
    {"profileIndex", true, true, false},   {"profileState", true, true, false},
    {"ack", false, true, false},           {"restart", false, false, false},
    {"quiesce", false, false, false},      {"replay", false, true, false},
    {"initComplete", false, false, false}, {"purge", false, false, false}};
// The restart flags' words, bit 0 first.
constexpr std::string_view kFlagWords[] = {"quiesced", "+row-fault", "+nested", "+live"};

}  // namespace

std::string Op::text() const {
   const KindForm& form = kForms[static_cast<std::size_t>(kind)];
   std::ostringstream os;
   os << form.word;
   if (form.key) {
      os << " k" << key;
   }
   if (form.arg) {
      os << ' ' << arg;
   }
   if (form.value) {
      os << " p" << value.profile << (value.ipv4 ? " v4" : "") << (value.ipv6 ? " v6" : "")
         << (value.dscp ? " dscp" : "") << " vrf" << value.vrf;
   }
   for (std::size_t bit = 0; kind == OpKind::restart && bit < std::size(kFlagWords); ++bit) {
      os << ((arg >> bit & 1) != 0 ? " " + std::string(kFlagWords[bit]) : "");
   }
   return os.str();
}

Op Op::parse(const std::string& line) {
   std::istringstream in(line);
   std::string word;
   in >> word;
   const auto* form = std::find_if(std::begin(kForms), std::end(kForms),
                                   [&](const KindForm& f) { return f.word == word; });
   if (form == std::end(kForms)) {
      throw std::invalid_argument("unknown operation '" + line + "'");
   }
   Op op{static_cast<OpKind>(form - std::begin(kForms)), 0, 0, Value{}};
   const auto numberIn = [&](const std::string& token, std::string_view prefix) {
      if (!token.starts_with(prefix) || token.size() == prefix.size() ||
          token.find_first_not_of("0123456789", prefix.size()) != std::string::npos) {
         throw std::invalid_argument("bad operation '" + line + "'");
      }
      return static_cast<std::uint32_t>(std::stoul(token.substr(prefix.size())));
   };
   const auto number = [&](std::string_view prefix) {
      std::string token;
      in >> token;
      return numberIn(token, prefix);
   };
   op.key = form->key ? number("k") : 0;
   op.arg = form->arg ? number("") : 0;
   if (std::string token; form->value && in >> token) {
      op.value.profile = token == "p-1" ? -1 : static_cast<int>(numberIn(token, "p"));
   }
   for (std::string token; in >> token;) {
      op.value.ipv4 |= token == "v4";
      op.value.ipv6 |= token == "v6";
      op.value.dscp |= token == "dscp";
      if (token.starts_with("vrf")) {
         op.value.vrf = static_cast<std::uint32_t>(std::stoul(token.substr(3)));
      }
      for (std::size_t bit = 0; bit < std::size(kFlagWords); ++bit) {
         op.arg |= token == kFlagWords[bit] ? 1U << bit : 0;
      }
   }
   return op;
}

WorldShape shapeFor(std::uint64_t seed) {
   std::mt19937_64 rng(seed ^ 0x5eedULL);
   WorldShape shape;
   const std::uint32_t sizes[] = {8, 16, 64, 64};
   shape.tableSize = sizes[rng() % 4];
   shape.keys = shape.tableSize == 8 ? 12 : 24;  // small tables run out of indices
   shape.ackWindow = 1 + rng() % 4;
   shape.ackHoldBack = rng() % 3;
   return shape;
}

Op drawOp(const Draw& pick, const WorldShape& shape) {
   // Weights of the kinds, in OpKind order. Restarts are mostly live, so that clients act during
   // the replay, between doInitComplete and the purge, and after.
   static constexpr std::uint32_t kWeights[] = {22, 12, 9, 12, 6, 4, 18, 3, 4, 8, 2, 2};
   static const std::uint32_t total = std::accumulate(std::begin(kWeights), std::end(kWeights), 0U);
   std::uint32_t r = pick(total);
   std::size_t kind = 0;
   while (r >= kWeights[kind]) {
      r -= kWeights[kind++];
   }
   Op op{static_cast<OpKind>(kind), 0, 0, Value{}};
   switch (op.kind) {
      case OpKind::commit:
      case OpKind::ref:
         op.key = pick(shape.keys);
         op.value.profile = static_cast<int>(pick(shape.profiles + 1)) - 1;
         op.value.ipv4 = pick(2) != 0;
         op.value.ipv6 = pick(4) == 0;
         op.value.dscp = pick(4) == 0;
         op.value.vrf = pick(3);
         break;
      case OpKind::remove:
         op.key = pick(shape.keys);
         break;
      case OpKind::release:
         op.arg = pick(64);
         break;
      case OpKind::profileIndex: {
         op.key = pick(shape.profiles);
         const std::uint32_t choice = pick(8);
         op.arg = choice < 5 ? 10 + op.key : choice < 7 ? 0xFFFFFFFFU : 300;
         break;
      }
      case OpKind::profileState:
         op.key = pick(shape.profiles);
         op.arg = pick(7);
         break;
      case OpKind::ack:
         op.arg = 1 + pick(6);
         break;
      case OpKind::restart:
         op.arg = pick(8) | (pick(4) != 0 ? kLive : 0);
         break;
      case OpKind::replay:
         op.arg = 1 + pick(4);
         break;
      case OpKind::quiesce:
      case OpKind::initComplete:
      case OpKind::purge:
         break;
   }
   return op;
}

std::vector<Op> generate(std::uint64_t seed, const WorldShape& shape, std::size_t count) {
   std::mt19937_64 rng(seed);
   const Draw pick = [&rng](std::uint32_t n) { return static_cast<std::uint32_t>(rng() % n); };
   std::vector<Op> ops(count);
   std::generate(ops.begin(), ops.end(), [&] { return drawOp(pick, shape); });
   return ops;
}

}  // namespace Reliability
