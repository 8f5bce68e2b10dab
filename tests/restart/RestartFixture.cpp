#include "restart/RestartFixture.h"

#include <sstream>

namespace Test {

template <class Kind>
void RestartFixture<Kind>::startWith(const Config& config, const TableOptions& options) {
   this->freshTable(options);
   this->util().publishHwIndexInHandleIs(true);
   for (const auto& [key, vrf] : config) {
      this->t().entryCommit(this->k(key), this->e(profile, vrf));
   }
   this->util().ackAll(this->t());
}

template <class Kind>
auto RestartFixture<Kind>::record(const Config& config) -> Recorded {
   Recorded recorded{this->chip->rows, {}};
   for (const auto& [key, vrf] : config) {
      recorded.reported[key] = this->t().hwIndexOnlyForCrossAgentCommunication(this->k(key));
   }
   return recorded;
}

template <class Kind>
void RestartFixture<Kind>::restartWith(const Bindings& bindings) {
   this->restart();
   this->util().publishHwIndexInHandleIs(true);
   writesAtRestart_ = this->chip->writes;
   deletesAtRestart_ = this->chip->deletes;
   for (const auto& [key, index] : bindings) {
      this->t().bindKeyToIndex(this->k(key), index);
   }
}

template <class Kind>
void RestartFixture<Kind>::replay(const Config& config, const Fwk::Ptr<ProfileHandle>& needed) {
   for (const auto& [key, vrf] : config) {
      this->t().entryCommit(this->k(key), this->e(needed ? needed : profile, vrf));
   }
}

template <class Kind>
void RestartFixture<Kind>::finishInit() {
   this->t().doInitComplete();
   this->t().purgeStaleEntries();
   this->util().ackAll(this->t());
}

template <class Kind>
std::set<Asic::Index> RestartFixture<Kind>::indicesOf(const std::string& verb) const {
   std::set<Asic::Index> out;
   for (const auto& call : this->util_->callsMatching(verb + " ")) {
      out.insert(static_cast<Asic::Index>(std::stoul(call.substr(verb.size() + 1))));
   }
   return out;
}

template <class Kind>
std::string RestartFixture<Kind>::hardwareDifference(const Config& config) {
   std::map<Asic::Index, std::string> expected;
   std::ostringstream os;
   for (const auto& [key, vrf] : config) {
      const Asic::Index index = this->indexOf(key);
      if (index == Asic::kInvalidIndex) {
         os << "key " << key << " holds no index";
         return os.str();
      }
      expected[index] = rowFor(vrf);
   }
   for (Asic::Index index = 0; index < this->chip->rows.size(); ++index) {
      const auto it = expected.find(index);
      const std::string held = this->rowAt(index);
      if (held != (it == expected.end() ? "none" : it->second)) {
         os << "row " << index << " holds " << held << ", not "
            << (it == expected.end() ? "none" : it->second);
         return os.str();
      }
   }
   return {};
}

template class RestartFixture<DecapKind>;
template class RestartFixture<WideKind>;

}  // namespace Test
