#include "common/libryl_netdb/RandomSeed.h"

#include <random>

namespace RYL::Module {

Velmar::u32 DrawRandomSeed() {
  return std::random_device()();
}

}  // namespace RYL::Module
