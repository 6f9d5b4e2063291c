// Resolver slots of the optimized converter's kernels: each slot starts at a resolver that
// takes the variant of the process's SIMD tier and overwrites itself with it.
#include <atomic>
#include <type_traits>
#include <utility>

#include "engine/convert/convert_kernels.h"

namespace Tincta {
namespace {

// Reached only where a kernel table runs (`bConvertKernelsAvailable`).
const SConvertKernels& ActiveKernels() {
  return *ConvertKernelsFor(ActiveSimdTier());
}

template <auto kMember, class Function>
struct CKernelSlot;

// Two threads may resolve at once; both store the same variant, so relaxed order suffices.
template <auto kMember, class Result, class... Arguments>
struct CKernelSlot<kMember, Result (*)(Arguments...)> {
  using Function = Result (*)(Arguments...);

  static Result Resolve(Arguments... arguments) {
    const Function chosen = ActiveKernels().*kMember;
    slot.store(chosen, std::memory_order_relaxed);
    return chosen(arguments...);
  }
  static Result Call(Arguments... arguments) {
    return slot.load(std::memory_order_relaxed)(arguments...);
  }

  static inline std::atomic<Function> slot{&Resolve};
};

template <auto kMember>
constexpr auto SlotCall() {
  using Function = std::remove_reference_t<decltype(std::declval<SConvertKernels>().*kMember)>;
  return &CKernelSlot<kMember, Function>::Call;
}

constexpr SConvertKernels kDispatched = {
    "dispatched",
    SlotCall<&SConvertKernels::floatToRgba8>(),
    SlotCall<&SConvertKernels::floatToRgb8>(),
    SlotCall<&SConvertKernels::floatToRgb10>(),
    SlotCall<&SConvertKernels::floatToRgb10BigEndian>(),
    SlotCall<&SConvertKernels::floatToRgba10>(),
    SlotCall<&SConvertKernels::floatToRgba10BigEndian>(),
    SlotCall<&SConvertKernels::rgba16ToRgba8>(),
    SlotCall<&SConvertKernels::rgba16ToRgba8Swapped>(),
    SlotCall<&SConvertKernels::storeFence>(),
};

}  // namespace

const SConvertKernels* ConvertKernelsFor(ESimdTier tier) {
  switch (tier) {
    case ESimdTier::kScalar:
      return nullptr;
    case ESimdTier::kSSE:
      return &ConvertKernelsSse41();
    case ESimdTier::kAVX2:
      return &ConvertKernelsAvx2();
  }
  return nullptr;
}

bool bConvertKernelsAvailable() {
  return ConvertKernelsFor(ActiveSimdTier()) != nullptr;
}

const SConvertKernels& DispatchedConvertKernels() {
  return kDispatched;
}

const char* SelectedConvertKernelsName() {
  return SimdTierName(ActiveSimdTier());
}

}  // namespace Tincta
