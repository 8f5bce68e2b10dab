#include "Json.h"

#include <charconv>

#include "Counters.h"

namespace L3DecapCli {

namespace {

using json = nlohmann::ordered_json;

// A file name need not be UTF-8: its other bytes are shown replaced rather than refused.
std::string text(const json& value) {
   return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

// Writes `{ member, ..., "name": [ element, ... ], ... }`, each member and element on a line of
// its own, through a buffer that goes out in large blocks.
class JsonWriter {
 public:
   explicit JsonWriter(std::ostream& out) : out_(out) { text_ = "{"; }
   JsonWriter(const JsonWriter&) = delete;
   JsonWriter& operator=(const JsonWriter&) = delete;
   ~JsonWriter() { flush(); }

   void members(const json& object) {
      for (const auto& [name, value] : object.items()) {
         member(name, text(value));
      }
   }
   void member(std::string_view name, std::string_view value) {
      separate("\n  ");
      appendString(name);
      text_ += ": ";
      text_ += value;
   }
   void beginArray(std::string_view name) {
      member(name, "[");
      first_ = true;
   }
   // Appends an element; the caller writes it into the returned text.
   std::string& element() {
      separate("\n    ");
      if (text_.size() > kBlock) {
         flush();
      }
      return text_;
   }
   void endArray() {
      text_ += first_ ? "]" : "\n  ]";
      first_ = false;
   }
   void end() {
      text_ += "\n}\n";
      flush();
   }

   void appendString(std::string_view name) { text_ += text(json(name)); }

 private:
   static constexpr std::size_t kBlock = 1U << 16;
   void separate(const char* indent) {
      text_ += first_ ? "" : ",";
      text_ += indent;
      first_ = false;
   }
   void flush() {
      out_.write(text_.data(), static_cast<std::streamsize>(text_.size()));
      text_.clear();
   }
   std::ostream& out_;
   std::string text_;
   bool first_ = true;
};

// Members appended to an object being written: `"name":value` after a comma or its opening brace.
class Members {
 public:
   explicit Members(std::string& text) : text_(text) { text_ += '{'; }
   Members(const Members&) = delete;
   Members& operator=(const Members&) = delete;
   ~Members() { text_ += '}'; }

   void number(const char* name, std::uint64_t value) {
      char digits[24];
      const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
      raw(name, std::string_view(digits, static_cast<std::size_t>(end - digits)));
   }
   void optionalNumber(const char* name, const std::optional<std::uint64_t>& value) {
      value ? number(name, *value) : raw(name, "null");
   }
   void boolean(const char* name, bool value) { raw(name, value ? "true" : "false"); }
   // A name of ours (a state or a fate), which needs no escaping.
   void word(const char* name, const char* value) {
      raw(name, "\"");
      text_ += value;
      text_ += '"';
   }
   void raw(const char* name, std::string_view value) {
      text_ += first_ ? "\"" : ",\"";
      first_ = false;
      text_ += name;
      text_ += "\":";
      text_ += value;
   }
   std::string& text() { return text_; }

 private:
   std::string& text_;
   bool first_ = true;
};

void contentMembers(Members& m, const RowContent& content) {
   const Sim::DecapRow& row = content.row;
   m.word("state", rowStateName(row.state));
   if (row.state == Sim::RowState::valued) {
      m.number("profileIndex", row.profileIndex);
      m.optionalNumber("profile", content.profileId);
      m.number("vrf", row.vrf);
      m.boolean("ipv4", row.ipv4UcEnable);
      m.boolean("ipv6", row.ipv6UcEnable);
      m.boolean("trustDscp", row.trustDscp);
   }
}

void optionalContent(Members& m, const char* name, const std::optional<RowContent>& content) {
   if (!content) {
      m.raw(name, "null");
      return;
   }
   m.raw(name, "");
   Members inner(m.text());
   contentMembers(inner, *content);
}

json profileRowsJson(const Sim::ChipState& chip) {
   json rows = json::array();
   for (std::uint32_t i = 0; i < chip.profileRows(); ++i) {
      const Sim::ProfileRow row = chip.profileRow(i);
      if (row.state != Sim::RowState::free) {
         rows.push_back({{"index", i},
                         {"state", rowStateName(row.state)},
                         {"profile", row.state == Sim::RowState::valued ? json(row.profileId)
                                                                        : json(nullptr)}});
      }
   }
   return rows;
}

json head(const char* command, const std::string& chipFile) {
   return json{{"command", command}, {"chip", chipFile}};
}

}  // namespace

json countersJson(const Sim::RunReport& report) {
   json j{{"restart", report.restart}, {"decapRows", report.rows.size()}};
   for (const Counter& c : counters()) {
      j[std::string(c.json)] = c.value(report);
   }
   j["seconds"] = report.seconds;
   j["storeSeconds"] = report.storeSeconds;
   return j;
}

void printRunJson(std::ostream& out, const std::string& chipFile, const Sim::RunReport& report,
                  const std::vector<Violation>* violations) {
   JsonWriter writer(out);
   writer.members(head("run", chipFile));
   writer.members(countersJson(report));
   writer.beginArray("changedRows");
   for (std::uint32_t i = 0; i < report.rows.size(); ++i) {
      for (const Sim::RowFate fate : shownAs(report.rows[i])) {
         if (fate != Sim::RowFate::free && fate != Sim::RowFate::adopted) {
            Members m(writer.element());
            m.number("index", i);
            m.word("fate", Sim::rowFateName(fate));
         }
      }
   }
   writer.endArray();
   if (violations != nullptr) {
      json list = json::array();
      for (const Violation& v : *violations) {
         list.push_back(
             {{"index", v.index}, {"planned", "adopted"}, {"actual", Sim::rowFateName(v.actual)}});
      }
      writer.members(
          json{{"strictRestart", {{"passed", violations->empty()}, {"violations", list}}}});
   }
   writer.end();
}

void printPlanJson(std::ostream& out, const std::string& chipFile, const Sim::RunReport& report,
                   const RowProgress& progress) {
   JsonWriter writer(out);
   writer.members(head("plan", chipFile));
   writer.members(countersJson(report));
   writer.beginArray("rows");
   forEachPlanRow(report, progress, [&](const PlanRow& row) {
      Members m(writer.element());
      m.number("index", row.index);
      m.word("fate", Sim::rowFateName(row.fate));
      m.optionalNumber("key", row.key);
      optionalContent(m, "before", row.before);
      optionalContent(m, "after", row.after);
   });
   writer.endArray();
   writer.end();
}

void printDumpJson(std::ostream& out, const std::string& chipFile, const Sim::ChipState& chip,
                   const std::vector<Sim::Binding>& keys, const RowProgress& progress) {
   JsonWriter writer(out);
   writer.members(head("dump", chipFile));
   writer.members(json{{"decapRows", chip.decapRows()},
                       {"profileRows", chip.profileRows()},
                       {"chipId", chip.id()}});
   writer.beginArray("decap");
   forEachUsedDecapRow(chip, keys, progress,
                       [&](std::uint32_t index, const RowContent& content,
                           const std::optional<std::uint64_t>& key) {
                          Members m(writer.element());
                          m.number("index", index);
                          m.optionalNumber("key", key);
                          contentMembers(m, content);
                       });
   writer.endArray();
   writer.members(json{{"profiles", profileRowsJson(chip)}});
   writer.end();
}

json demoJson(const DemoResult& demo) {
   json phases = json::array();
   for (const DemoPhase& phase : demo.phases) {
      json p{{"phase", phase.name}};
      p.update(countersJson(phase.report));
      phases.push_back(std::move(p));
   }
   return json{{"command", "demo"},
               {"tunnels", demo.tunnels},
               {"decapRows", demo.rows},
               {"phases", std::move(phases)}};
}

json errorJson(const std::string& error, const std::vector<std::string>& problems, int exitCode) {
   json j{{"error", error}};
   if (!problems.empty()) {
      j["problems"] = problems;
   }
   j["exitCode"] = exitCode;
   return j;
}

}  // namespace L3DecapCli
