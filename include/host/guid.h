// 128-bit identifiers.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "host/export.h"

namespace host {

/// A 128-bit identifier. Default-constructed, all sixteen bytes are zero.
struct HOST_API Guid {
  /// The sixteen bytes in memory order.
  std::array<uint8_t, 16> bytes{};

  /// Builds a Guid from sixteen bytes in memory order.
  static Guid GuidFromBytes(const void* sixteenBytes);
  /// Writes the sixteen bytes of the Guid in memory order (the inverse of `GuidFromBytes`).
  void GuidToBytes(void* sixteenBytes) const;

  /// 32 upper-case hexadecimal digits, high nibble of each byte first.
  std::string ToString() const;
  /// Parses 32 hexadecimal digits of either case; anything else gives no value.
  static std::optional<Guid> FromString(std::string_view text);

  /// True when all sixteen bytes are zero (the failure value of the module's identifier query).
  bool IsZero() const;
  /// Byte-wise comparison in memory order.
  friend auto operator<=>(const Guid&, const Guid&) = default;
};

}  // namespace host
