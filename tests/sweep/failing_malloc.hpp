// An allocator that fails on demand and knows what was not given back. It replaces malloc and its kin in the
// whole process, the C library's own calls included.
#pragma once

namespace failing_malloc {

// From now on, on this thread, the k-th allocation fails (0: none), and blocks are watched.
void arm(long k);

// Ends that. True when an allocation was made to fail.
bool disarm();

// Blocks that were allocated while armed and are still there.
long live_blocks();

} // namespace failing_malloc
