// operator new that can be made to fail, for the whole test program.
#pragma once

namespace vu::store::test {

// Lets `count` more allocations succeed, then none.
void limit_allocations(long count);
void unlimit_allocations();

}  // namespace vu::store::test
