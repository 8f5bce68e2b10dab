// Chip-specific plug-ins: shared objects that supply a table's Util, found on a search path and
// loaded at run time. The library never links against a plug-in.
//
// Naming. A loader singleton names its plug-in by a prefix path and a suffix path; the file is
//   lib<prefix>-<suffix with every "::" replaced by "-">.so
// e.g. prefix "AsicFeature" and suffix "TalvikL3Decap::IngL3IifTable" give
//   libAsicFeature-TalvikL3Decap-IngL3IifTable.so
//
// Search path. The environment variable L3DECAP_PLUGIN_PATH holds a colon-separated list of
// absolute directories, searched in order; the first directory holding the file wins. Without
// the variable the search path is the "l3decap/plugins" directory beside the library itself. A
// relative or malformed entry refuses the whole variable: nothing is loaded and the reason is
// reported.
//
// Outcome. A plug-in that is not found is a normal configuration: the table runs without a Util
// and touches no hardware. A plug-in that is found but fails to load is reported on stderr with
// the file and the loader's reason. A loaded plug-in registers a Util factory for its table type
// (UtilFactories) from its static initialisation; the platform gives the table its Util when it
// sets the table up.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Asic/SwTable.h"
#include "Fwk/Entity.h"

namespace Asic {

// Base of the framework entities that load one plug-in each.
class LoaderSingleton : public Fwk::Entity {
  public:
   enum class LoadStatus : std::uint8_t { notLoaded, loaded, notFound, refused, failed };

   const std::string& name() const noexcept { return name_; }
   // The two parts of the plug-in's file name (see Naming above).
   virtual std::string prefixPath() const = 0;
   virtual std::string suffixPath() const = 0;

   // What the load did: loaded; notFound (no file on the search path: no hardware access);
   // refused (a bad search path); failed (the file did not load); notLoaded (not tried yet).
   LoadStatus loadStatus() const noexcept { return status_; }
   // The plug-in file loaded or tried, and the reason when it was not loaded.
   const std::string& pluginFile() const noexcept { return file_; }
   const std::string& loadMessage() const noexcept { return message_; }

  protected:
   explicit LoaderSingleton(std::string name) : name_(std::move(name)) {}
   ~LoaderSingleton() override { underDestructionIs(); }

  private:
   friend struct PluginLoader;
   std::string name_;
   LoadStatus status_ = LoadStatus::notLoaded;
   std::string file_;
   std::string message_;
};

struct PluginLoader {
   static constexpr const char* kSearchPathVariable = "L3DECAP_PLUGIN_PATH";

   // The plug-in's file name: lib<prefix>-<suffix with "::" as "-">.so.
   static std::string fileName(std::string_view prefix, std::string_view suffix);
   // Splits and checks a search path; throws std::invalid_argument naming the offending entry.
   static std::vector<std::string> parseSearchPath(std::string_view searchPath);
   // The search path in force: the variable's, else the default beside the library.
   static std::vector<std::string> searchPath();
   // Loads the singleton's plug-in from `dirs` and records the outcome in the singleton. Reports
   // a refused search path or a failed load on stderr.
   static void load(LoaderSingleton& loader, const std::vector<std::string>& dirs);
   // Same, with the search path in force.
   static void load(LoaderSingleton& loader);
};

// Util factories registered by loaded plug-ins, by table type name.
struct UtilFactories {
   // Makes a Util for one table instance; may return null (no Util for it).
   using Factory = Fwk::Ptr<SwTable::Util> (*)();
   // Registers (or replaces) the factory of a table type, by the type's name (its kTypeName). A
   // plug-in calls it from its static initialisation, that is while it is being loaded.
   // Thread-safe.
   static void factoryIs(std::string_view tableType, Factory factory);
   // The table type's factory, or null when no loaded plug-in registered one. SwTable::setUp
   // calls it.
   static Factory factory(std::string_view tableType);
};

}  // namespace Asic
