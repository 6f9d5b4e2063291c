#include "engine/cpu/operator_names.h"

#include <cctype>

namespace Tincta {
namespace {

struct SNamedOperator {
  std::string_view name;
  EOvOperator op;
};

constexpr SNamedOperator kOperators[] = {
    {"*noop", EOvOperator::Noop},
    {"*over", EOvOperator::Over},
    {"*overp", EOvOperator::OverPremultiplied},
    {"*fade", EOvOperator::Fade},
    {"*lut", EOvOperator::Lut},
    {"*readout", EOvOperator::Readout},
    {"*mask", EOvOperator::Mask},
    {"*push", EOvOperator::Push},
    {"*pop", EOvOperator::Pop},
    {"*flip", EOvOperator::Flip},
    {"*opxform", EOvOperator::OpXform},
    {"*stretch", EOvOperator::Stretch},
    {"*rgb", EOvOperator::Rgb},
    {"*fwindow", EOvOperator::FWindow},
    {"__GroupBegin", EOvOperator::GroupBegin},
    {"__GroupEnd", EOvOperator::GroupEnd},
    {kLUTKind1D, EOvOperator::LUTProgram1D},
    {kLUTKind3D, EOvOperator::LUTProgram3D},
    {kLUTKind1D3D, EOvOperator::LUTProgram1D3D},
};

bool SameWithoutCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(a[i])) !=
        std::tolower(static_cast<unsigned char>(b[i]))) {
      return false;
    }
  }
  return true;
}

}  // namespace

SOvOperatorName ParseOperatorName(std::string_view name) {
  SOvOperatorName parsed;
  if (!name.empty() && name.back() == '!') {
    parsed.keepsInput = true;
    name.remove_suffix(1);
  }
  constexpr std::string_view kOpXformPrefix = "*opxform|";
  if (name.size() >= kOpXformPrefix.size() &&
      SameWithoutCase(name.substr(0, kOpXformPrefix.size()), kOpXformPrefix)) {
    parsed.op = EOvOperator::OpXform;
    return parsed;
  }
  for (const SNamedOperator& each : kOperators) {
    if (SameWithoutCase(name, each.name)) {
      parsed.op = each.op;
      return parsed;
    }
  }
  return parsed;
}

}  // namespace Tincta
