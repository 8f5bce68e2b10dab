#include "support/Scenario.h"

namespace Test {

std::string track(const HandlePtr& handle) {
   static int serial = 0;
   std::string name = "trackedHandle" + std::to_string(++serial);
   Fwk::Directory::objectIs(name, const_cast<EH*>(handle.get()));
   return name;
}

bool alive(const std::string& name) {
   return Fwk::Directory::object(name) != nullptr;
}

std::string literally(const std::string& text) {
   std::string pattern;
   for (const char c : text) {
      if (std::string_view(".^$|()[]{}*+?\\").find(c) != std::string_view::npos) {
         pattern += '\\';
      }
      pattern += c;
   }
   return pattern;
}

}  // namespace Test
