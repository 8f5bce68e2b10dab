// rbtrace-print: prints the records of a ring-buffer trace file, oldest first, one per line.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "Fwk/RingTrace.h"

namespace {

constexpr int kFailure = 1;
constexpr int kUsageError = 2;

constexpr const char* kUsage =
    "usage: rbtrace-print FILE\n"
    "Prints the records still held in the ring-buffer trace FILE, oldest first.\n"
    "  --help  show this help\n";

std::string readWholeFile(const std::string& path) {
   std::FILE* file = std::fopen(path.c_str(), "rb");
   if (file == nullptr) {
      throw std::runtime_error(std::strerror(errno));
   }
   std::string content;
   char buffer[65536];
   std::size_t got = 0;
   while ((got = std::fread(buffer, 1, sizeof buffer, file)) > 0) {
      content.append(buffer, got);
   }
   const bool failed = std::ferror(file) != 0;
   const int error = errno;
   std::fclose(file);
   if (failed) {
      throw std::runtime_error(std::strerror(error));
   }
   return content;
}

int usageError(std::string_view problem) {
   std::cerr << "rbtrace-print: " << problem << "\n" << kUsage;
   return kUsageError;
}

int printTrace(const std::string& path) {
   try {
      for (const auto& line : Fwk::RingTrace::decode(readWholeFile(path))) {
         std::cout << line << '\n';
      }
   } catch (const std::exception& e) {
      std::cerr << "rbtrace-print: " << path << ": " << e.what() << '\n';
      return kFailure;
   }
   return std::cout.flush() ? 0 : kFailure;
}

}  // namespace

int main(int argc, char** argv) {
   if (argc != 2) {
      return usageError(argc < 2 ? "missing FILE" : "too many arguments");
   }
   const std::string_view argument = argv[1];
   if (argument == "--help" || argument == "-h") {
      std::cout << kUsage;
      return 0;
   }
   if (argument.starts_with('-')) {
      return usageError("unknown option '" + std::string(argument) + "'");
   }
   return printTrace(argv[1]);
}
