// The operations of the model-based test: what clients, profile entries, the chip and the agent
// do to the table, each a small value that prints itself in one line.
#pragma once

#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

namespace Reliability {

struct Value {
   int profile = -1;  // index into the world's profiles; -1 needs no profile
   bool ipv4 = false;
   bool ipv6 = false;
   bool dscp = false;
   std::uint32_t vrf = 0;
   bool operator==(const Value&) const = default;
};

enum class OpKind : std::uint8_t {
   commit,        // entryCommit(key, value)
   ref,           // entryRef(key, value); the client keeps the handle
   remove,        // entryRemove(key)
   release,       // a client lets go of one handle it holds (arg: which)
   profileIndex,  // a profile gets index arg (valid, invalid, or above 255)
   profileState,  // a profile's entry state becomes arg
   ack,           // the chip delivers up to arg write completions
   restart,       // the agent restarts (arg bits below)
   quiesce,       // deliver everything and check the world against the model
   replay,        // during a live restart: the agent replays up to arg configured keys
   initComplete,  // during a live restart: the rest of the replay, then doInitComplete
   purge,         // during a live restart: purgeStaleEntries (after doInitComplete)
};

struct Op {
   OpKind kind;
   std::uint32_t key = 0;
   std::uint32_t arg = 0;
   Value value;
   std::string text() const;
   // Reads back what text() prints; throws std::invalid_argument naming the problem.
   static Op parse(const std::string& line);
};

// Restart flags (Op::arg). A live restart stays open after the read-back and the bindings: the
// replay, doInitComplete and the purge come as operations of their own, between which clients
// go on acting.
constexpr std::uint32_t kQuiesceFirst = 1, kRowFault = 2, kNestedRestart = 4, kLive = 8;

struct WorldShape {
   std::uint32_t tableSize = 64;
   std::uint32_t keys = 24;
   std::uint32_t profiles = 4;
   std::size_t ackWindow = 1;
   std::size_t ackHoldBack = 0;
};

// Draws a number below its argument.
using Draw = std::function<std::uint32_t(std::uint32_t)>;
// One operation drawn for a world of this shape.
Op drawOp(const Draw& pick, const WorldShape& shape);
// The shape of one case and its operations, all drawn from the seed.
WorldShape shapeFor(std::uint64_t seed);
std::vector<Op> generate(std::uint64_t seed, const WorldShape& shape, std::size_t count);

}  // namespace Reliability
