#include "restart/RestartFixture.h"

#include <sstream>

namespace Test {

void RestartFixture::setUpTable(const TableOptions& options) {
   createTable(options);
   util().publishHwIndexInHandleIs(true);
}

void RestartFixture::commitAll(const Config& config) {
   for (const auto& [key, vrf] : config) {
      t().entryCommit(k(key), e(profile, vrf));
   }
   util().ackAll(t());
}

Recorded RestartFixture::record(const Config& config) {
   Recorded recorded{chip->rows, {}};
   for (const auto& [key, vrf] : config) {
      recorded.reported[key] = t().hwIndexOnlyForCrossAgentCommunication(k(key));
   }
   return recorded;
}

void RestartFixture::restartWith(const Bindings& bindings) {
   restart();
   util().publishHwIndexInHandleIs(true);
   writesAtRestart_ = chip->writes;
   deletesAtRestart_ = chip->deletes;
   for (const auto& [key, index] : bindings) {
      t().bindKeyToIndex(k(key), index);
   }
}

void RestartFixture::replay(const Config& config, const Fwk::Ptr<ProfileHandle>& needed) {
   for (const auto& [key, vrf] : config) {
      t().entryCommit(k(key), e(needed ? needed : profile, vrf));
   }
}

void RestartFixture::finishInit() {
   t().doInitComplete();
   t().purgeStaleEntries();
   util().ackAll(t());
}

std::set<Asic::Index> RestartFixture::indicesOf(const std::string& verb) const {
   std::set<Asic::Index> out;
   for (const auto& call : util_->callsMatching(verb + " ")) {
      out.insert(static_cast<Asic::Index>(std::stoul(call.substr(verb.size() + 1))));
   }
   return out;
}

std::string RestartFixture::hardwareDifference(const Config& config) {
   std::map<Asic::Index, Row> expected;
   std::ostringstream os;
   for (const auto& [key, vrf] : config) {
      const Asic::Index index = indexOf(key);
      if (index == Asic::kInvalidIndex) {
         os << "key " << key << " holds no index";
         return os.str();
      }
      expected[index] = rowFor(vrf);
   }
   for (const auto& [index, row] : expected) {
      if (!(chip->rows.at(index) == row)) {
         os << "row " << index << " missing or different (vrf " << row.vrf << " expected)";
         return os.str();
      }
   }
   for (Asic::Index index = 0; index < chip->rows.size(); ++index) {
      if (chip->rows[index].valid && !expected.contains(index)) {
         os << "row " << index << " (vrf " << chip->rows[index].vrf
            << ") is not in the configuration";
         return os.str();
      }
   }
   return {};
}

}  // namespace Test
