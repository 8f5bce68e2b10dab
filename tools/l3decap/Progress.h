// A progress line ("\rreplaying 1024/3000") on stderr, shown only when stderr is a terminal and
// the work has already taken more than a second, so that pipes and quick runs see nothing.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>

namespace L3DecapCli {

class Progress {
 public:
   explicit Progress(std::string label);
   ~Progress();  // clears the line when one was shown
   Progress(const Progress&) = delete;
   Progress& operator=(const Progress&) = delete;

   void update(std::size_t done, std::size_t total);
   // A callback for Sim::RunOptions::progress; valid while this object lives.
   std::function<void(std::size_t, std::size_t)> callback();

 private:
   std::string label_;
   bool terminal_;
   bool shown_ = false;
   std::chrono::steady_clock::time_point start_;
};

}  // namespace L3DecapCli
