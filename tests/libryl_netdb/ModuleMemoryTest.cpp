// Where the module's memory comes from, and what happens when there is none.
#include <string>
#include <vector>

#include "tests/libryl_netdb/ModuleFixture.h"
#include "tests/support/CountingAllocator.h"

namespace RYL::Module {
namespace {

class ModuleMemoryTest : public ::testing::Test {
 protected:
  ModuleMemoryTest() {
    Velmar::Sim::Reset();
    Velmar::OS::Path::SetVariable("P", "/data");
    host.lookup.AddProcess(7, 70, "/usr/bin/curl");
    host.hashes.files["/usr/bin/curl"] = {1, 2};
  }

  // Init to Uninit with events of two days and a query. Steps that fail end the life early, as a host's would.
  // True when all of it went well.
  bool Live(ModuleAllocator* allocator) {
    Interface* module = Init(allocator);
    if (module == nullptr) {
      Uninit();
      return false;
    }
    const bool lived = module->Initialize(&host, &policy) && module->Start() && Work(*module);
    delete module;
    Uninit();
    return lived;
  }

  LogCapture log;
  FakeHost host;
  FakeSettings policy;

 private:
  static bool Work(Interface& module) {
    bool taken = true;
    for (const u64 timeMs : {1699900000000U, 1700000000000U}) {
      for (int i = 1; i <= 40; ++i) {
        const auto event = EventBuilder(185)
                               .Address("203.0.113." + std::to_string(i))
                               .Port(443)
                               .Protocol("tcp")
                               .Direction(1)
                               .Puid(i % 2 == 0 ? 7 : 8)
                               .Time(timeMs)
                               .Build();
        taken = module.HandleEvent(event.data(), nullptr) && taken;
      }
    }
    taken = module.Stop() && taken;
    u32 rows = 0;
    auto* query = static_cast<Comm::Interfaces::INetDBQuery*>(module.QueryInterface(1007));
    const bool walked = query->Iterate(
        [](const Comm::Interfaces::INetDBQuery::Record&, void* context) {
          ++*static_cast<u32*>(context);
          return true;
        },
        &rows, 0, ~u64{0});
    return taken && walked && rows == 80;
  }
};

TEST_F(ModuleMemoryTest, NullAllocatorMeansMalloc) {
  EXPECT_TRUE(Live(nullptr));
}

TEST_F(ModuleMemoryTest, EveryByteGoesBackToTheHost) {
  CountingAllocator memory;
  EXPECT_TRUE(Live(&memory));
  EXPECT_GT(memory.Allocations(), 10U);
  EXPECT_EQ(memory.Out(), 0U);
}

TEST_F(ModuleMemoryTest, InitWithoutMemoryGivesNull) {
  CountingAllocator memory;
  memory.FailFrom(0);
  EXPECT_EQ(Init(&memory), nullptr);
  EXPECT_EQ(memory.Failures(), 1U);
  // The slot is clear again: the next allocation goes elsewhere.
  void* const area = Velmar::Collections::ModuleAllocate(16);
  EXPECT_NE(area, nullptr);
  EXPECT_EQ(memory.Allocations(), 1U);
  Velmar::Collections::ModuleFree(area);
}

TEST_F(ModuleMemoryTest, UninitClearsTheSlotOnly) {
  CountingAllocator memory;
  Interface* module = Init(&memory);
  ASSERT_NE(module, nullptr);
  delete module;
  EXPECT_EQ(memory.Out(), 0U);
  Uninit();
  Velmar::Collections::ModuleFree(Velmar::Collections::ModuleAllocate(16));
  EXPECT_EQ(memory.Allocations(), 1U);
}

TEST_F(ModuleMemoryTest, EachFailedModuleAllocationIsSurvived) {
  for (u64 failing = 0;; ++failing) {
    SCOPED_TRACE(failing);
    Velmar::Sim::Reset();
    CountingAllocator memory;
    memory.FailFrom(failing);
    Live(&memory);
    ASSERT_EQ(memory.Out(), 0U);
    if (memory.Failures() == 0) {
      EXPECT_GT(failing, 10U);
      break;
    }
  }
}

TEST_F(ModuleMemoryTest, NoModuleMemoryFromAnyPointOnIsSurvived) {
  for (u64 failing = 0;; ++failing) {
    SCOPED_TRACE(failing);
    Velmar::Sim::Reset();
    CountingAllocator memory;
    memory.FailFrom(failing, CountingAllocator::kNever);
    Live(&memory);
    ASSERT_EQ(memory.Out(), 0U);
    if (memory.Failures() == 0) {
      break;
    }
  }
}

TEST_F(ModuleMemoryTest, EachFailedBaseAllocationIsSurvived) {
  for (u64 failing = 0;; ++failing) {
    SCOPED_TRACE(failing);
    Velmar::Sim::Reset();
    CountingAllocator memory;
    Velmar::Sim::FailAllocation(failing);
    Live(&memory);
    const bool reached = Velmar::Sim::CountAllocations() > failing;
    Velmar::Sim::FailAllocation(~u64{0});
    ASSERT_EQ(memory.Out(), 0U);
    if (!reached) {
      EXPECT_GT(failing, 10U);
      break;
    }
  }
}

}  // namespace
}  // namespace RYL::Module
