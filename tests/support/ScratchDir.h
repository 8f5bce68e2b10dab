// A directory of the running test's own under the system's temporary directory, made empty when
// the test starts and removed when it ends.
#pragma once

#include <filesystem>
#include <string>

namespace Test {

class ScratchDir {
  public:
   // `prefix` names the test binary's directories; the running test's name and this process's id
   // make them unique.
   explicit ScratchDir(const std::string& prefix);
   ~ScratchDir();
   ScratchDir(const ScratchDir&) = delete;
   ScratchDir& operator=(const ScratchDir&) = delete;

   const std::filesystem::path& path() const noexcept { return path_; }

  private:
   std::filesystem::path path_;
};

}  // namespace Test
