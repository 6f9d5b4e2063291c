"""crandle: colour look-up tables (LUTs) applied to numpy arrays, image files and sequences.

    import numpy as np, crandle
    lut = crandle.LUT.open("samples/warm-contrast.cube")
    print(lut.display_name, lut.kind, lut.size, lut.identifier)
    graded = lut.apply(np.random.rand(1080, 1920, 3).astype(np.float32))
    crandle.apply_file(lut, "shot.0001.exr", "graded.0001.exr")

Everything goes through the crandle module's exported functions (ParseLUT, ApplyLUT,
GetLUTIdentifier, GetLUTDisplayName, GetLUTBlob) and its reference host's frames.
crandle.distributed spreads image sequences over a Dask cluster.
"""

from ._errors import LUTError
from ._crandle import LUT, apply_file

__all__ = ["LUT", "LUTError", "apply_file"]
__version__ = "0.1.0"
