#include "Progress.h"

#include <unistd.h>

#include <cstdio>

namespace L3DecapCli {

Progress::Progress(std::string label)
    : label_(std::move(label)),
      terminal_(::isatty(STDERR_FILENO) == 1),
      start_(std::chrono::steady_clock::now()) {}

Progress::~Progress() {
   if (shown_) {
      std::fprintf(stderr, "\r%*s\r", static_cast<int>(label_.size() + 24), "");
      std::fflush(stderr);
   }
}

void Progress::update(std::size_t done, std::size_t total) {
   if (!terminal_ || std::chrono::steady_clock::now() - start_ < std::chrono::seconds(1)) {
      return;
   }
   std::fprintf(stderr, "\r%s %zu/%zu", label_.c_str(), done, total);
   std::fflush(stderr);
   shown_ = true;
}

std::function<void(std::size_t, std::size_t)> Progress::callback() {
   return [this](std::size_t done, std::size_t total) { update(done, total); };
}

}  // namespace L3DecapCli
