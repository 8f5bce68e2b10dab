// Fuzzes the table's API through the reliability test's world: the input's bytes choose client
// operations, profile changes, acknowledgements and restarts; after them the table, the chip and
// the allocator must agree with the reference model, and nothing may leak.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "reliability/World.h"

namespace {

using Reliability::Op;
using Reliability::OpKind;

Op decode(const std::uint8_t* b) {
   Op op{static_cast<OpKind>(b[0] % 9), static_cast<std::uint32_t>(b[1] % 12),
         static_cast<std::uint32_t>(b[2]), Reliability::Value{}};
   op.value.profile = static_cast<int>(b[3] % 5) - 1;
   op.value.ipv4 = (b[4] & 1) != 0;
   op.value.ipv6 = (b[4] & 2) != 0;
   op.value.dscp = (b[4] & 4) != 0;
   op.value.vrf = (b[4] >> 3) % 3;
   switch (op.kind) {
      case OpKind::profileIndex: {
         op.key %= 4;
         const std::uint32_t choice = op.arg % 8;
         op.arg = choice < 5 ? 10 + op.key : choice < 7 ? 0xFFFFFFFFU : 300;
         break;
      }
      case OpKind::profileState:
         op.key %= 4;
         op.arg %= 7;
         break;
      case OpKind::ack: op.arg = 1 + op.arg % 6; break;
      case OpKind::restart: op.arg %= 8; break;
      default: break;
   }
   return op;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
   if (size < 1) {
      return 0;
   }
   Reliability::WorldShape shape;
   shape.tableSize = data[0] % 2 == 0 ? 8 : 64;
   shape.keys = 12;
   shape.ackWindow = 1 + data[0] / 2 % 3;
   Reliability::World world(shape);
   std::vector<Op> ops;
   for (std::size_t i = 1; i + 5 <= size; i += 5) {
      ops.push_back(decode(data + i));
   }
   std::string failure;
   for (std::size_t i = 0; i < ops.size() && failure.empty(); ++i) {
      failure = world.apply(ops[i]);
      if (!failure.empty()) {
         failure = "after op #" + std::to_string(i) + ": " + failure;
      }
   }
   if (failure.empty()) {
      failure = world.finish();
   }
   if (!failure.empty()) {
      std::fprintf(stderr, "table %u, ack window %zu: %s\n", shape.tableSize, shape.ackWindow,
                   failure.c_str());
      for (const Op& op : ops) {
         std::fprintf(stderr, "    %s\n", op.text().c_str());
      }
      __builtin_trap();
   }
   return 0;
}
