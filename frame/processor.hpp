// What the processor that runs the library can do: the condition under which kernels for AVX2 are chosen.
#pragma once

namespace tavik {

// With fused multiply-add, since those files are compiled for both.
bool processor_has_avx2();

} // namespace tavik
