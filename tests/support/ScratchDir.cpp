#include "support/ScratchDir.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>

namespace Test {

ScratchDir::ScratchDir(const std::string& prefix) {
   std::string test = ::testing::UnitTest::GetInstance()->current_test_info()->name();
   std::replace(test.begin(), test.end(), '/', '-');  // parameterised tests' names
   path_ = std::filesystem::temp_directory_path() /
           (prefix + "-" + std::to_string(::getpid()) + "-" + test);
   std::filesystem::remove_all(path_);
   std::filesystem::create_directories(path_);
}

ScratchDir::~ScratchDir() {
   std::error_code ignored;
   std::filesystem::remove_all(path_, ignored);
}

}  // namespace Test
