// Copies that go around the caches, for output much larger than they are that nothing reads soon.
#pragma once

#include <cstddef>

namespace Tincta {

/// Copies `bytes` bytes from `source` to `destination` (any alignment, no overlap), storing whole
/// aligned 16-byte pieces without bringing their lines into the caches. Until
/// `FinishStreamingStores()`, other threads may see the bytes late.
void StreamingCopy(void* destination, const void* source, size_t bytes);

/// Makes the streaming stores of this thread visible before any store it makes afterwards; call it
/// once after the last `StreamingCopy` of a result that is handed on.
void FinishStreamingStores();

}  // namespace Tincta
