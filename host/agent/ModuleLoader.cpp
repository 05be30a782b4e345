#include "host/agent/ModuleLoader.h"

#include <dlfcn.h>
#include <unistd.h>

#include <climits>

#include "Velmar/OS/FileSystem.h"

namespace Host {
namespace {

constexpr char kLibraryName[] = "libryl_netdb.so";

// The folder of this program, without a separator at its end; empty when it cannot be told.
std::string ProgramFolder() {
  char path[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof(path));
  const std::string program(path, length > 0 ? static_cast<std::size_t>(length) : 0);
  return program.substr(0, program.find_last_of('/'));
}

}  // namespace

std::string FindModule(std::string& error) {
  const std::string folder = ProgramFolder();
  for (const std::string& candidate : {folder + "/" + kLibraryName, folder + "/../lib/ryl/" + kLibraryName}) {
    if (Velmar::OS::FileSystem::FileExists(candidate.c_str(), false)) {
      return candidate;
    }
  }
  error = std::string("the module ") + kLibraryName + " is neither in " + folder + " nor in " + folder + "/../lib/ryl";
  return "";
}

ModuleLoader::~ModuleLoader() {
  Unload();
}

bool ModuleLoader::Load(const std::string& path, std::string& error) {
  Unload();
  library_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library_ == nullptr) {
    error = std::string("cannot load the module: ") + dlerror();
    return false;
  }
  const auto init = reinterpret_cast<RYL::Module::InitFunction>(dlsym(library_, "Init"));
  uninit_ = reinterpret_cast<RYL::Module::UninitFunction>(dlsym(library_, "Uninit"));
  if (init == nullptr || uninit_ == nullptr) {
    error = path + " is not a module: it does not export Init and Uninit";
    uninit_ = nullptr;
    Unload();
    return false;
  }
  module_ = init(nullptr);
  if (module_ == nullptr) {
    error = "the module cannot be made: no memory";
    Unload();
    return false;
  }
  return true;
}

void ModuleLoader::Unload() {
  delete module_;
  module_ = nullptr;
  if (uninit_ != nullptr) {
    uninit_();
    uninit_ = nullptr;
  }
  if (library_ != nullptr) {
    dlclose(library_);
    library_ = nullptr;
  }
}

}  // namespace Host
