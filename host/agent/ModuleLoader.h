// ModuleLoader: finds the module's library and loads it.
#pragma once

#include <string>

#include "RYL/Module/Interface.h"

namespace Host {

// The library beside this program, else the one in ../lib/ryl of it. Empty, with a sentence in `error`, when neither is
// there.
std::string FindModule(std::string& error);

// A loaded library and the module object in it. Lifetime: Load once; Unload, or the destructor, deletes the object and
// unloads the library. Threads: thread-compatible.
class ModuleLoader {
 public:
  ModuleLoader() = default;
  ~ModuleLoader();
  ModuleLoader(const ModuleLoader&) = delete;
  ModuleLoader& operator=(const ModuleLoader&) = delete;

  // False with a sentence in `error`.
  bool Load(const std::string& path, std::string& error);
  void Unload();
  // Null while nothing is loaded.
  [[nodiscard]] RYL::Module::Interface* Module() const { return module_; }

 private:
  void* library_ = nullptr;
  RYL::Module::UninitFunction uninit_ = nullptr;
  RYL::Module::Interface* module_ = nullptr;
};

}  // namespace Host
