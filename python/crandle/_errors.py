"""The exception that crandle raises when the module refuses a LUT or fails to apply one."""

from __future__ import annotations

from typing import Optional

# Result codes of the module (crandle/crandle.h), by name.
RESULT_NAMES = {
    0xA00F0001: "the LUT could not be read or applied",
    0xA00F0006: "the GPU path could not obtain its device buffers",
    0xA00F000C: "unsupported request (frames of different sizes or places)",
    0xA00F000E: "an empty argument",
    0x80000000: "the host's pixel conversion failed",
}


class LUTError(Exception):
    """A LUT could not be read, or could not be applied.

    Attributes:
        code: the module's result code, as an unsigned 32-bit number (0xA00F0001 for any
            LUT that cannot be read).
        reason: why, in plain words, where crandle can tell (a missing file, a damaged one).
        source: the path of the LUT, or None for one read from bytes.
    """

    def __init__(self, code: int, reason: str, source: Optional[str] = None) -> None:
        self.code = code & 0xFFFFFFFF
        self.reason = reason
        self.source = source
        where = f"{source}: " if source else ""
        super().__init__(f"{where}0x{self.code:08x}: {reason}")

    def __reduce__(self):
        # Keeps the fields when the error travels between processes (Dask workers).
        return (type(self), (self.code, self.reason, self.source))
