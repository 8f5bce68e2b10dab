#include "reliability/Operations.h"

#include <sstream>
#include <stdexcept>

namespace Reliability {

std::string Op::text() const {
   std::ostringstream os;
   const auto valueText = [&] {
      os << " p" << value.profile << (value.ipv4 ? " v4" : "") << (value.ipv6 ? " v6" : "")
         << (value.dscp ? " dscp" : "") << " vrf" << value.vrf;
   };
   switch (kind) {
      case OpKind::commit:
         os << "commit k" << key;
         valueText();
         break;
      case OpKind::ref:
         os << "ref k" << key;
         valueText();
         break;
      case OpKind::remove:
         os << "remove k" << key;
         break;
      case OpKind::release:
         os << "release #" << arg;
         break;
      case OpKind::profileIndex:
         os << "profile " << key << " index " << arg;
         break;
      case OpKind::profileState:
         os << "profile " << key << " state " << arg;
         break;
      case OpKind::ack:
         os << "ack " << arg;
         break;
      case OpKind::restart:
         os << "restart" << ((arg & kQuiesceFirst) ? " quiesced" : " abrupt")
            << ((arg & kRowFault) ? " +row-fault" : "")
            << ((arg & kNestedRestart) ? " +nested" : "") << ((arg & kLive) ? " +live" : "");
         break;
      case OpKind::quiesce:
         os << "quiesce";
         break;
      case OpKind::replay:
         os << "replay " << arg;
         break;
      case OpKind::initComplete:
         os << "initComplete";
         break;
      case OpKind::purge:
         os << "purge";
         break;
   }
   return os.str();
}

Op Op::parse(const std::string& line) {
   std::istringstream in(line);
   std::string word;
   in >> word;
   Op op{OpKind::quiesce, 0, 0, Value{}};
   const auto number = [&](char prefix) {
      std::string token;
      in >> token;
      if (token.empty() || (prefix != 0 && token.front() != prefix)) {
         throw std::invalid_argument("bad operation '" + line + "'");
      }
      return static_cast<std::uint32_t>(std::stoul(token.substr(prefix != 0 ? 1 : 0)));
   };
   const auto valueTail = [&] {
      op.key = number('k');
      std::string token;
      in >> token;
      op.value.profile = std::stoi(token.substr(1));
      while (in >> token) {
         op.value.ipv4 |= token == "v4";
         op.value.ipv6 |= token == "v6";
         op.value.dscp |= token == "dscp";
         if (token.starts_with("vrf")) {
            op.value.vrf = static_cast<std::uint32_t>(std::stoul(token.substr(3)));
         }
      }
   };
   std::string rest;
   if (word == "commit" || word == "ref") {
      op.kind = word == "commit" ? OpKind::commit : OpKind::ref;
      valueTail();
   } else if (word == "remove") {
      op.kind = OpKind::remove;
      op.key = number('k');
   } else if (word == "release") {
      op.kind = OpKind::release;
      op.arg = number('#');
   } else if (word == "profile") {
      op.key = number(0);
      in >> rest;
      op.kind = rest == "index" ? OpKind::profileIndex : OpKind::profileState;
      op.arg = number(0);
   } else if (word == "ack") {
      op.kind = OpKind::ack;
      op.arg = number(0);
   } else if (word == "restart") {
      op.kind = OpKind::restart;
      while (in >> rest) {
         op.arg |= rest == "quiesced"     ? kQuiesceFirst
                   : rest == "+row-fault" ? kRowFault
                   : rest == "+nested"    ? kNestedRestart
                   : rest == "+live"      ? kLive
                                          : 0;
      }
   } else if (word == "replay") {
      op.kind = OpKind::replay;
      op.arg = number(0);
   } else if (word == "initComplete" || word == "purge") {
      op.kind = word == "purge" ? OpKind::purge : OpKind::initComplete;
   } else if (word != "quiesce") {
      throw std::invalid_argument("unknown operation '" + line + "'");
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

std::vector<Op> generate(std::uint64_t seed, const WorldShape& shape, std::size_t count) {
   std::mt19937_64 rng(seed);
   const auto pick = [&](std::uint32_t n) { return static_cast<std::uint32_t>(rng() % n); };
   const auto value = [&] {
      Value v;
      v.profile = static_cast<int>(pick(shape.profiles + 1)) - 1;
      v.ipv4 = pick(2) != 0;
      v.ipv6 = pick(4) == 0;
      v.dscp = pick(4) == 0;
      v.vrf = pick(3);
      return v;
   };
   // Weights of the kinds, in OpKind order. Restarts are mostly live, so that clients act during
   // the replay, between doInitComplete and the purge, and after.
   const std::uint32_t weights[] = {22, 12, 9, 12, 6, 4, 18, 3, 4, 8, 2, 2};
   std::uint32_t total = 0;
   for (auto w : weights) {
      total += w;
   }
   std::vector<Op> ops;
   ops.reserve(count);
   for (std::size_t i = 0; i < count; ++i) {
      std::uint32_t r = pick(total);
      std::size_t kind = 0;
      while (r >= weights[kind]) {
         r -= weights[kind++];
      }
      Op op{static_cast<OpKind>(kind), 0, 0, Value{}};
      switch (op.kind) {
         case OpKind::commit:
         case OpKind::ref:
            op.key = pick(shape.keys);
            op.value = value();
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
      ops.push_back(op);
   }
   return ops;
}

}  // namespace Reliability
