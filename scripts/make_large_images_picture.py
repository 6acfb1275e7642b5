#!/usr/bin/env python3
"""Makes docs/large-images.png: a large mosaic of photographs with stripes,
filtered in tiles by the kxfreq tool, seen whole and at 1:1 across tile
boundaries.

    /usr/bin/python3 scripts/make_large_images_picture.py [BUILD_DIR] [OUTPUT]

Needs numpy, PIL (python3-pil) and the sample photographs of python3-skimage.
The 8000 x 6000 images live in a temporary folder only. Prints what the tool
reported, the stripes' amplitude in the crop before and after, and the largest
difference to the result of smaller tiles (whose borders fall elsewhere).
"""
import json
import os
import subprocess
import sys
import tempfile

import numpy
from PIL import Image, ImageDraw, ImageFont, ImageOps

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..")
SKIMAGE_DATA = "/usr/lib/python3/dist-packages/skimage/data"
PHOTOS = [os.path.join(ROOT, "tests/tools/data/photo.png")] + [
    os.path.join(SKIMAGE_DATA, name) for name in (
        "camera.png", "astronaut.png", "coffee.png", "chelsea.png", "coins.png", "moon.png",
        "motorcycle_left.png", "hubble_deep_field.jpg", "rocket.jpg", "retina.jpg", "brick.png",
        "page.png", "ihc.png", "cell.png", "microaneurysms.png")
]
WIDTH, HEIGHT, CELL = 8000, 6000, 1000
PERIOD, ANGLE, AMPLITUDE = 9.0, 30.0, 24.0      # the stripes: pixels, degrees, grey levels
TILE = 2048
SMALL_TILE = 512                                # for the check that no seam shows
REDUCE = 10                                     # the overview's reduction
CROP_W, CROP_H = 380, 260                       # the 1:1 crops, side by side under the overview


def mosaic():
    """WIDTH x HEIGHT grey pixels: the photographs in cells of CELL x CELL, shuffled, every other round mirrored."""
    photos = [ImageOps.grayscale(Image.open(p)) for p in PHOTOS]
    cells = [(t, l) for t in range(0, HEIGHT, CELL) for l in range(0, WIDTH, CELL)]
    rng = numpy.random.default_rng(3)
    order = numpy.concatenate([rng.permutation(len(photos)) for _ in range(len(cells) // len(photos) + 1)])
    image = Image.new("L", (WIDTH, HEIGHT))
    for i, (top, left) in enumerate(cells):
        photo = photos[order[i]]
        if (i // len(photos)) % 2:
            photo = ImageOps.mirror(photo)
        image.paste(ImageOps.fit(photo, (CELL, CELL), Image.LANCZOS), (left, top))
    return numpy.asarray(image, dtype=numpy.float64)


def stripes(shape, top=0, left=0):
    y, x = numpy.mgrid[top : top + shape[0], left : left + shape[1]].astype(numpy.float64)
    a = numpy.radians(ANGLE)
    return numpy.cos(2 * numpy.pi / PERIOD * (x * numpy.cos(a) + y * numpy.sin(a)))


def amplitude(crop, top, left):
    """The stripes' amplitude in a crop, by projection on the wave and its quadrature."""
    y, x = numpy.mgrid[top : top + crop.shape[0], left : left + crop.shape[1]].astype(numpy.float64)
    a = numpy.radians(ANGLE)
    phase = 2 * numpy.pi / PERIOD * (x * numpy.cos(a) + y * numpy.sin(a))
    values = crop - crop.mean()
    return float(2 * numpy.hypot(numpy.mean(values * numpy.cos(phase)), numpy.mean(values * numpy.sin(phase))))


def write_pgm(path, pixels):
    with open(path, "wb") as f:
        f.write(b"P5 %d %d 255\n" % (pixels.shape[1], pixels.shape[0]))
        f.write(pixels.tobytes())


def read_pgm(path):
    with open(path, "rb") as f:
        data = f.read()
    magic, width, height, maximum, pixels = data.split(maxsplit=4)
    assert magic == b"P5" and maximum == b"255"
    return numpy.frombuffer(pixels, numpy.uint8).reshape(int(height), int(width))


def font(size):
    for path in ("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf",):
        if os.path.exists(path):
            return ImageFont.truetype(path, size)
    return ImageFont.load_default()


def main():
    build = sys.argv[1] if len(sys.argv) > 1 else os.path.join(ROOT, "build")
    output = sys.argv[2] if len(sys.argv) > 2 else os.path.join(ROOT, "docs/large-images.png")
    scene = mosaic()
    before = numpy.clip(numpy.round(scene + AMPLITUDE * stripes(scene.shape)), 0, 255).astype(numpy.uint8)
    del scene
    with tempfile.TemporaryDirectory() as work:
        source, result, report = (os.path.join(work, n) for n in ("mosaic.pgm", "clean.pgm", "report.json"))
        write_pgm(source, before)
        def tiled(tile, output, *extra):
            subprocess.run([os.path.join(build, "tools/kxfreq"), "filter", source, "-o", output, "--gabor-reject",
                            "--period", str(PERIOD), "--angle", str(ANGLE), "--sigma", "0.01", "--dc-radius", "1",
                            "--tile", str(tile), "--jobs", "2", *extra], check=True)
            return read_pgm(output)

        after = tiled(TILE, result, "--json", report)
        (entry,) = json.load(open(report))["inputs"]
        # Tiles of another size put their borders elsewhere: a seam would show as a difference.
        other = tiled(SMALL_TILE, os.path.join(work, "small-tiles.pgm"))
        tile_difference = int(numpy.abs(other.astype(int) - after.astype(int)).max())
        del other
    core = entry["tile"] - 2 * entry["margin"]

    # The crop holds a corner where four tiles' cores meet, inside one photograph:
    # of those corners, the one with the most detail around it.
    def crop_at(corner):
        x, y = corner
        return x - CROP_W * 2 // 3, y - CROP_H * 5 // 6

    def inside_one_cell(corner):
        left, top = crop_at(corner)
        return left // CELL == (left + CROP_W - 1) // CELL and top // CELL == (top + CROP_H - 1) // CELL

    corners = [c for c in ((x, y) for x in range(core, WIDTH, core) for y in range(core, HEIGHT, core))
               if inside_one_cell(c)]
    cx, cy = max(corners, key=lambda c: after[crop_at(c)[1] : crop_at(c)[1] + CROP_H,
                                               crop_at(c)[0] : crop_at(c)[0] + CROP_W].std())
    left, top = crop_at((cx, cy))
    crops = [a[top : top + CROP_H, left : left + CROP_W] for a in (before, after)]
    print(json.dumps({"tile": entry["tile"], "margin": entry["margin"], "tiles": entry["tiles"],
                      "seconds": entry["seconds"], "crop": [left, top, CROP_W, CROP_H],
                      "amplitude_before": round(amplitude(crops[0].astype(float), top, left), 3),
                      "amplitude_after": round(amplitude(crops[1].astype(float), top, left), 3),
                      f"largest_difference_to_tiles_of_{SMALL_TILE}": tile_difference}))

    pad, head, gap = 16, 30, 40
    ow, oh = WIDTH // REDUCE, HEIGHT // REDUCE
    overview = Image.fromarray(after).reduce(REDUCE)
    assert 2 * CROP_W + gap == ow
    width = pad + ow + pad
    crop_top = pad + head + oh + gap + head
    canvas = Image.new("L", (width, crop_top + CROP_H + pad), 255)
    draw = ImageDraw.Draw(canvas)
    big, small = font(17), font(14)

    draw.text((pad, pad), f"{WIDTH} x {HEIGHT} mosaic after filtering, reduced 1:{REDUCE}; dashes: tile cores",
              font=big, fill=0)
    oy = pad + head
    canvas.paste(overview, (pad, oy))
    for x in range(core, WIDTH, core):
        for y in range(0, oh, 12):
            draw.line([(pad + x // REDUCE, oy + y), (pad + x // REDUCE, oy + min(y + 6, oh))], fill=255, width=1)
    for y in range(core, HEIGHT, core):
        for x in range(0, ow, 12):
            draw.line([(pad + x, oy + y // REDUCE), (pad + min(x + 6, ow), oy + y // REDUCE)], fill=255, width=1)
    box = [pad + left // REDUCE - 1, oy + top // REDUCE - 1,
           pad + (left + CROP_W) // REDUCE + 1, oy + (top + CROP_H) // REDUCE + 1]
    draw.rectangle(box, outline=0, width=2)
    draw.rectangle([box[0] - 2, box[1] - 2, box[2] + 2, box[3] + 2], outline=255, width=1)

    labels = (f"before: stripes, period {PERIOD:g} px at {ANGLE:g} degrees (1:1)",
              "after --gabor-reject, tiled, 2 jobs (1:1)")
    for i, (crop, label) in enumerate(zip(crops, labels)):
        x0 = pad + i * (CROP_W + gap)
        draw.text((x0, crop_top - head - 4), label, font=small, fill=0)
        canvas.paste(Image.fromarray(crop), (x0, crop_top))
        # Ticks outside the crop mark the tile boundaries through it.
        bx, by = x0 + cx - left, crop_top + cy - top
        draw.polygon([(bx - 5, crop_top - 9), (bx + 5, crop_top - 9), (bx, crop_top - 2)], fill=0)
        draw.polygon([(x0 - 9, by - 5), (x0 - 9, by + 5), (x0 - 2, by)], fill=0)
    canvas.save(output, optimize=True)
    print(output, os.path.getsize(output), "bytes")


if __name__ == "__main__":
    main()
