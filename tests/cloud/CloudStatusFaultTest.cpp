// Memory and disk that fail at each point of a verdict cache's life: nothing leaks, nothing is half made, and the same
// call works once the fault is over.
#include <functional>
#include <memory>

#include "tests/cloud/CloudFixture.h"
#include "tests/velmarlib/collections/TestAllocator.h"

namespace CloudTest {
namespace {

using Sim::Fault;

constexpr u64 kNever = ~u64{0};

template <class T>
class CloudStatusFaultTest : public CloudTest<T> {
 protected:
  using Status = CloudStatus<T>;
  // What is done to a status; false when it failed.
  using Step = std::function<bool(Status&)>;

  // Each fault in turn: arms it for the n-th occasion from now, and takes it back, saying whether it was met.
  struct Plan {
    std::string name;
    std::function<void(u64)> arm;
    std::function<bool()> disarm;
  };
  std::vector<Plan> Plans() {
    std::vector<Plan> plans;
    plans.push_back({"module memory",
                     [this](u64 n) {
                       memory.FailRequest(n);
                       failing = memory.failAt;
                     },
                     [this] {
                       memory.failAt = kNever;
                       return memory.requests > failing;
                     }});
    plans.push_back({"base memory",
                     [this](u64 n) {
                       failing = Sim::CountAllocations() + n;
                       Sim::FailAllocation(n);
                     },
                     [this] {
                       Sim::FailAllocation(kNever);
                       return Sim::CountAllocations() > failing;
                     }});
    for (const Fault fault : {Fault::kFail, Fault::kTear, Fault::kDrop}) {
      for (const u64 count : {u64{1}, u64{1000000}}) {
        plans.push_back({"disk, fault " + std::to_string(static_cast<int>(fault)) + " " + std::to_string(count) + "x",
                         [this, fault, count](u64 n) {
                           failing = Sim::CountFileOperations() + n;
                           Sim::FailFileOperation(n, fault, count);
                         },
                         [this] {
                           Sim::ClearFaults();
                           return Sim::CountFileOperations() > failing;
                         }});
      }
    }
    return plans;
  }

  // Runs `prepare` and `step` with each occasion of each plan failing. A step that failed must leave no cache; then it
  // is done once more.
  void ForEachFault(const Step& prepare, const Step& step) {
    for (const Plan& plan : Plans()) {
      SCOPED_TRACE(plan.name);
      bool reached = true;
      for (u64 n = 0; reached; ++n) {
        SCOPED_TRACE(n);
        for (const std::string& file : Sim::ListFiles()) {
          Sim::RemoveFile(file);
        }
        this->WriteFile(40);
        {
          Status status;
          ASSERT_TRUE(prepare(status));
          LogCapture log;
          plan.arm(n);
          const bool done = step(status);
          reached = plan.disarm();
          EXPECT_EQ(Access::HasCache(status), done);
          EXPECT_TRUE(reached || done);
          if (!done) {
            EXPECT_GT(log.Lines(3).size(), 0U);
            this->ExpectKnowsNothing(status);
            EXPECT_TRUE(step(status)) << "once more, without the fault";
          }
          ExpectUsable(status);
        }
        EXPECT_EQ(memory.live, 0);
        Status next;
        EXPECT_TRUE(next.Open(kFolder, true));
        ExpectUsable(next);
      }
    }
  }

  // Whatever was lost, what it knows is right, and it learns.
  void ExpectUsable(Status& status) {
    for (u32 number = 0; number < 40; ++number) {
      const std::string verdict = this->Verdict(status, number);
      EXPECT_TRUE(verdict == "unknown" || verdict == (number % 2 == 0 ? "harmless" : "harmful")) << number;
    }
    EXPECT_TRUE(this->Learn(status, 0, true));
    EXPECT_EQ(this->Verdict(status, 0), "harmless");
  }

  TestAllocator memory;
  u64 failing = 0;
};

TYPED_TEST_SUITE(CloudStatusFaultTest, Families, );

template <class T>
bool Nothing(CloudStatus<T>& /*status*/) {
  return true;
}
template <class T>
bool Open(CloudStatus<T>& status) {
  return status.Open(kFolder, true);
}

TYPED_TEST(CloudStatusFaultTest, OpeningWithAFile) {
  this->ForEachFault(&Nothing<TypeParam>, &Open<TypeParam>);
}

TYPED_TEST(CloudStatusFaultTest, SwitchToMemory) {
  this->ForEachFault(&Open<TypeParam>, [](CloudStatus<TypeParam>& status) { return status.SetPersistent(false); });
}

TYPED_TEST(CloudStatusFaultTest, SwitchToTheFile) {
  this->ForEachFault([](CloudStatus<TypeParam>& status) { return status.Open(kFolder, false); },
                     [](CloudStatus<TypeParam>& status) { return status.SetPersistent(true); });
}

// What the next run finds: the verdicts as they were before or after this one, or none.
TYPED_TEST(CloudStatusFaultTest, End) {
  for (const auto& plan : this->Plans()) {
    SCOPED_TRACE(plan.name);
    bool reached = true;
    for (u64 n = 0; reached; ++n) {
      SCOPED_TRACE(n);
      for (const std::string& file : Sim::ListFiles()) {
        Sim::RemoveFile(file);
      }
      this->WriteFile(40);
      auto status = std::make_unique<CloudStatus<TypeParam>>();
      ASSERT_TRUE(status->Open(kFolder, true));
      ASSERT_TRUE(this->Learn(*status, 40, true));
      plan.arm(n);
      status.reset();
      reached = plan.disarm();
      EXPECT_EQ(this->memory.live, 0);
      CloudStatus<TypeParam> next;
      ASSERT_TRUE(next.Open(kFolder, true));
      const u32 count = next.GetItemCount();
      EXPECT_TRUE(count == 41 || (reached && (count == 40 || count == 0))) << count;
      this->ExpectUsable(next);
    }
  }
}

TYPED_TEST(CloudStatusFaultTest, DeathOfTheProcessCostsTheVerdictsOfThisRunAtMost) {
  for (const Fault death : {Fault::kKill, Fault::kPowerCut}) {
    bool reached = true;
    for (u64 n = 0; reached; ++n) {
      SCOPED_TRACE(n);
      Sim::Reset();
      Sim::SetEpochTime(kTenOClock);
      ASSERT_TRUE(Velmar::OS::FileSystem::CreateDirectory(kFolder));
      this->WriteFile(40);
      auto status = std::make_unique<CloudStatus<TypeParam>>();
      ASSERT_TRUE(status->Open(kFolder, true));
      ASSERT_TRUE(this->Learn(*status, 40, true));
      const u64 before = Sim::CountFileOperations();
      Sim::FailFileOperation(n, death);
      status.reset();
      reached = Sim::CountFileOperations() > before + n;
      Sim::Reboot(n);
      Sim::ClearFaults();
      CloudStatus<TypeParam> next;
      ASSERT_TRUE(next.Open(kFolder, true));
      const u32 count = next.GetItemCount();
      EXPECT_TRUE(count == 41 || (reached && (count == 40 || count == 0))) << count;
      this->ExpectUsable(next);
    }
  }
}

}  // namespace
}  // namespace CloudTest
