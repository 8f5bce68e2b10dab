#include "Asic/EntryBase.h"

#include <functional>

namespace Asic {

std::size_t EntryBase::hash(std::size_t seed) const noexcept {
   // Mixing as in the usual hash_combine: equal entries of one type always hash alike, whatever
   // their own equality ignores.
   return seed ^ (std::hash<std::size_t>()(getBlockSize()) + 0x9e3779b97f4a7c15ULL + (seed << 6) +
                  (seed >> 2));
}

}  // namespace Asic
