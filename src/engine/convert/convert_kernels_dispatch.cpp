// Resolver slots of the optimized converter's kernels: each slot starts at a resolver that
// picks the variant once and overwrites itself with it.
#include <atomic>
#include <type_traits>
#include <utility>

#include "engine/convert/convert_kernels.h"
#include "foundation/cpu_features.h"

namespace Tincta {
namespace {

const SConvertKernels& BestKernels() {
  return ProcessorFeatures().Use256BitKernels() ? ConvertKernelsAvx2() : ConvertKernelsSse41();
}

template <auto kMember, class Function>
struct CKernelSlot;

// Two threads may resolve at once; both store the same variant, so relaxed order suffices.
template <auto kMember, class Result, class... Arguments>
struct CKernelSlot<kMember, Result (*)(Arguments...)> {
  using Function = Result (*)(Arguments...);

  static Result Resolve(Arguments... arguments) {
    const Function chosen = BestKernels().*kMember;
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

const char* ResolvedName() {
  return BestKernels().name;
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

bool bConvertKernelsAvailable() {
  return ProcessorFeatures().sse41;
}

const SConvertKernels& DispatchedConvertKernels() {
  return kDispatched;
}

const char* SelectedConvertKernelsName() {
  return bConvertKernelsAvailable() ? ResolvedName() : "none";
}

}  // namespace Tincta
