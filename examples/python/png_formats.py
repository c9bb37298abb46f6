#!/usr/bin/env python3
"""A PNG through an lmxcore image: read it into NumPy, put it into an image as RGB, read it
back as YUY2, NV12 and BGR rotated by 90 degrees, and write the results.

Usage: python3 examples/python/png_formats.py [IN.png] [--out DIR]
Without IN.png a colour test pattern is made (and written as DIR/pattern.png).
Writes DIR/frame.yuy2 and DIR/frame.nv12 (raw planes, rows packed) and DIR/rotated_90.png.
Run from the build tree with PYTHONPATH=build/default/python.
"""
import argparse
import pathlib

import numpy as np
from PIL import Image as PILImage

import lmxcore
from lmxcore import Format


def pattern(width=640, height=480):
    """Colour bars over a horizontal grey ramp."""
    x = np.linspace(0, 255, width, dtype=np.float32)
    rgb = np.empty((height, width, 3), np.uint8)
    rgb[...] = x[None, :, None].astype(np.uint8)
    bars = np.array([[255, 255, 255], [255, 255, 0], [0, 255, 255], [0, 255, 0],
                     [255, 0, 255], [255, 0, 0], [0, 0, 255], [0, 0, 0]], np.uint8)
    rgb[: height // 2] = np.repeat(bars, -(-width // len(bars)), axis=0)[:width][None]
    return rgb


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("png", nargs="?", help="input PNG (default: a test pattern)")
    parser.add_argument("--out", default="out/python", help="output folder (default: out/python)")
    args = parser.parse_args()
    out = pathlib.Path(args.out)
    out.mkdir(parents=True, exist_ok=True)

    if args.png:
        rgb = np.asarray(PILImage.open(args.png).convert("RGB"))
    else:
        rgb = pattern()
        PILImage.fromarray(rgb).save(out / "pattern.png")
    # YUY2 and NV12 need an even width and height.
    rgb = np.ascontiguousarray(rgb[: rgb.shape[0] // 2 * 2, : rgb.shape[1] // 2 * 2])

    image = lmxcore.Image.from_numpy(rgb, Format.RGB)
    with image.read(Format.YUY2) as yuy2:  # converted on acquisition; the array is the plane
        yuy2.tofile(out / "frame.yuy2")
    with image.read(Format.NV12) as (y, uv):
        with open(out / "frame.nv12", "wb") as nv12:
            nv12.write(y.tobytes() + uv.tobytes())
    bgr = image.to_numpy(Format.BGR, rotate=90)  # a copy that outlives the acquisition
    PILImage.fromarray(bgr[..., ::-1]).save(out / "rotated_90.png")
    print(f"{image.width}x{image.height}: wrote {out}/frame.yuy2, {out}/frame.nv12 and "
          f"{out}/rotated_90.png ({bgr.shape[1]}x{bgr.shape[0]})")


if __name__ == "__main__":
    main()
