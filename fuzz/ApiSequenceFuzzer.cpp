// Fuzzes the table's API through the reliability test's world: the input's bytes choose the
// world's shape and every operation (client calls, profile changes, acknowledgements, restarts);
// the table, the chip and the allocator must agree with the reference model, and nothing leaks.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "reliability/World.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
   if (size < 1) {
      return 0;
   }
   Reliability::WorldShape shape;
   shape.tableSize = data[0] % 2 == 0 ? 8 : 64;
   shape.keys = 12;
   shape.ackWindow = 1 + data[0] / 2 % 3;
   std::size_t at = 1;
   const Reliability::Draw pick = [&](std::uint32_t n) { return at < size ? data[at++] % n : 0; };
   std::vector<Reliability::Op> ops;
   while (at < size) {
      ops.push_back(drawOp(pick, shape));
   }
   if (const std::string failure = runCase(shape, ops); !failure.empty()) {
      std::fprintf(stderr, "table %u, ack window %zu: %s\n", shape.tableSize, shape.ackWindow,
                   failure.c_str());
      for (const auto& op : ops) {
         std::fprintf(stderr, "    %s\n", op.text().c_str());
      }
      __builtin_trap();
   }
   return 0;
}
