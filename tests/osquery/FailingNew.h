// FailingNew: an operator new for the whole program that fails once, at a chosen call.
#pragma once

#include "Velmar/Types.h"

// The call number `number` from now, 0 being the next, throws std::bad_alloc. Thread-safe.
void FailNew(Velmar::u64 number);
// Lets all calls succeed again. True when one has failed since FailNew.
bool EndFailNew();
