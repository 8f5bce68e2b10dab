#include "Asic/PluginLoader.h"

#include <dlfcn.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <stdexcept>
#include <unordered_map>

namespace Asic {

std::string PluginLoader::fileName(std::string_view prefix, std::string_view suffix) {
   std::string name = "lib" + std::string(prefix) + "-";
   for (std::size_t i = 0; i < suffix.size(); ++i) {
      if (suffix.substr(i, 2) == "::") {
         name += '-';
         ++i;
      } else {
         name += suffix[i];
      }
   }
   return name + ".so";
}

std::vector<std::string> PluginLoader::parseSearchPath(std::string_view searchPath) {
   std::vector<std::string> dirs;
   std::size_t start = 0;
   while (start <= searchPath.size()) {
      const std::size_t end = std::min(searchPath.find(':', start), searchPath.size());
      const std::string_view dir = searchPath.substr(start, end - start);
      if (!dir.empty()) {
         if (dir.front() != '/') {
            throw std::invalid_argument("'" + std::string(dir) +
                                        "' is not an absolute directory");
         }
         dirs.emplace_back(dir);
      }
      start = end + 1;
   }
   return dirs;
}

namespace {
std::string libraryDirectory() {
   Dl_info info{};
   if (dladdr(reinterpret_cast<void*>(&PluginLoader::fileName), &info) == 0 || !info.dli_fname) {
      return {};
   }
   std::string path = info.dli_fname;
   const std::size_t slash = path.rfind('/');
   return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

bool isFile(const std::string& path) {
   struct stat st {};
   return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

void report(const LoaderSingleton& loader) {
   std::fprintf(stderr, "l3decap: plug-in %s: %s\n", loader.name().c_str(),
                loader.loadMessage().c_str());
}
}  // namespace

std::vector<std::string> PluginLoader::searchPath() {
   if (const char* value = std::getenv(kSearchPathVariable)) {
      return parseSearchPath(value);
   }
   const std::string dir = libraryDirectory();
   return dir.empty() ? std::vector<std::string>{}
                      : std::vector<std::string>{dir + "/l3decap/plugins"};
}

void PluginLoader::load(LoaderSingleton& loader, const std::vector<std::string>& dirs) {
   const std::string file = fileName(loader.prefixPath(), loader.suffixPath());
   for (const std::string& dir : dirs) {
      std::string path = dir;
      path.append("/").append(file);
      if (!isFile(path)) {
         continue;
      }
      loader.file_ = path;
      if (dlopen(path.c_str(), RTLD_NOW | RTLD_GLOBAL) == nullptr) {
         loader.status_ = LoaderSingleton::LoadStatus::failed;
         const char* why = dlerror();
         loader.message_ = "cannot load " + path + ": " + (why ? why : "unknown reason");
         report(loader);
         return;
      }
      loader.status_ = LoaderSingleton::LoadStatus::loaded;
      loader.message_ = "loaded " + path;
      return;
   }
   loader.status_ = LoaderSingleton::LoadStatus::notFound;
   loader.message_ = "no " + file + " on the plug-in search path; running without hardware access";
}

void PluginLoader::load(LoaderSingleton& loader) {
   std::vector<std::string> dirs;
   try {
      dirs = searchPath();
   } catch (const std::invalid_argument& e) {
      loader.status_ = LoaderSingleton::LoadStatus::refused;
      loader.message_ = std::string(kSearchPathVariable) + ": " + e.what() +
                        "; no plug-in loaded";
      report(loader);
      return;
   }
   load(loader, dirs);
}

namespace {
struct Factories {
   std::mutex mutex;
   std::unordered_map<std::string, UtilFactories::Factory> byTable;
};
Factories& factories() {
   static Factories f;
   return f;
}
}  // namespace

void UtilFactories::factoryIs(std::string_view tableType, Factory factory) {
   auto& f = factories();
   const std::lock_guard lock(f.mutex);
   f.byTable[std::string(tableType)] = factory;
}

UtilFactories::Factory UtilFactories::factory(std::string_view tableType) {
   auto& f = factories();
   const std::lock_guard lock(f.mutex);
   const auto it = f.byTable.find(std::string(tableType));
   return it == f.byTable.end() ? nullptr : it->second;
}

}  // namespace Asic
