#include "Machine.h"
#include "Velmar/OS/FileSystem.h"
#include "platform/sim/Sim.h"

using namespace Velmar;

Machine::Machine() : folder_("/test") {
  Sim::Reset();
  EXPECT_TRUE(OS::FileSystem::CreateDirectory(folder_.c_str()));
}

Machine::~Machine() {
  Sim::Reset();
}

void Machine::Put(const std::string& path, const std::string& content) {
  Sim::PutFile(path, content);
}

bool Machine::Get(const std::string& path, std::string& content) {
  return Sim::GetFile(path, content);
}
