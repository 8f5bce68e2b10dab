// The state database's mount groups and entity manager, as far as hardware-table recovery uses
// them: a mount group names a set of mounted state paths; the entity manager owns a process's
// mounted entities.
#pragma once

#include <string>
#include <vector>

#include "Fwk/Entity.h"

namespace Vosk {

class MountGroup : public Fwk::Entity {
  public:
   static constexpr std::string_view kTypeName = "Vosk::MountGroup";
   explicit MountGroup(std::string name) : name_(std::move(name)) {}
   const std::string& name() const noexcept { return name_; }
   // State paths mounted through this group, in the order they were added.
   const std::vector<std::string>& paths() const noexcept { return paths_; }
   void pathIs(const std::string& path) { paths_.push_back(path); }

  private:
   std::string name_;
   std::vector<std::string> paths_;
};

class EntityManager : public Fwk::Entity {
  public:
   static constexpr std::string_view kTypeName = "Vosk::EntityManager";
   explicit EntityManager(std::string name) : name_(std::move(name)) {}
   const std::string& name() const noexcept { return name_; }

  private:
   std::string name_;
};

}  // namespace Vosk
