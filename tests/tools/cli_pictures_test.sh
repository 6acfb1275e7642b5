#!/usr/bin/env bash
# Spectrum pictures: the window keeps a photograph's borders from drawing a
# cross, peaks keep their frequencies whatever the window, --axes frames the
# picture with labelled ticks, --colormap magma colours it with the published
# magma values. Usage: cli_pictures_test.sh KXFREQ MAKE_TEST_IMAGES DATA_DIR
source "$(dirname "$0")/cli_lib.sh"
w=$work
x=$w/x.pgm
python=/usr/bin/python3

# measure WHAT FILE...: a number measured by the Python helper below.
measure() { "$python" - "$@" <<'EOF'
import sys

def read(path):
    """(width, height, channels, bytes) of a binary PGM or PPM."""
    data = open(path, "rb").read()
    magic, width, height, top, pixels = data.split(maxsplit=4)
    assert magic in (b"P5", b"P6") and top == b"255", path
    channels = 3 if magic == b"P6" else 1
    width, height = int(width), int(height)
    pixels = pixels[: width * height * channels]
    assert len(pixels) == width * height * channels, path
    return width, height, channels, pixels

def middle_brightness(path):
    """How much brighter the middle row and column of a centred spectrum
    picture are than the rows and columns 2 to 4 away, as the larger of the
    two ratios of means (the innermost eighth of each row and column, the
    zero frequency's own blob, left out)."""
    w, h, _, p = read(path)
    cx, cy = w // 2, h // 2
    row = lambda y: sum(p[y * w + x] for x in range(w) if abs(x - cx) > w // 8)
    col = lambda x: sum(p[y * w + x] for y in range(h) if abs(y - cy) > h // 8)
    ratio = lambda f, c: f(c) / max(1e-9, sum(f(c + s * d) for d in (2, 3, 4) for s in (1, -1)) / 6)
    return max(ratio(row, cy), ratio(col, cx))

def find_plot(plain, framed):
    """Where the plain picture sits, pixel for pixel, inside the framed one
    ("X Y"), or "none"."""
    pw, ph, _, pp = read(plain)
    fw, fh, _, fp = read(framed)
    first = pp[:pw]
    for y in range(fh - ph + 1):
        for x in range(fw - pw + 1):
            if fp[y * fw + x: y * fw + x + pw] == first and all(
                    fp[(y + r) * fw + x: (y + r) * fw + x + pw] == pp[r * pw:(r + 1) * pw] for r in range(ph)):
                return "%d %d" % (x, y)
    return "none"

def ink(path, x0, y0, x1, y1):
    """Pixels of the label colour (255) in [x0, x1) x [y0, y1)."""
    w, h, _, p = read(path)
    return sum(p[y * w + x] == 255 for y in range(max(0, y0), min(h, y1)) for x in range(max(0, x0), min(w, x1)))

def frame_levels(path, x0, y0, x1, y1):
    """The grey levels outside [x0, x1) x [y0, y1), sorted."""
    w, h, _, p = read(path)
    return " ".join(str(v) for v in sorted({p[y * w + x] for y in range(h) for x in range(w)
                                            if not (x0 <= x < x1 and y0 <= y < y1)}))

# The published magma colours at a few grey levels.
MAGMA = {0: (0, 0, 4), 1: (1, 0, 5), 64: (81, 18, 124), 128: (183, 55, 121), 192: (252, 137, 97),
         254: (252, 251, 189), 255: (252, 253, 191)}

def magma_check(grey, colour, x0, y0, x1, y1):
    """Compares a magma picture with the grey picture of the same spectrum:
    inside the plot every grey level has one colour, the known ones exactly
    the published values; outside it the colour is the grey level. Prints
    "ok N" (N: known levels seen) or what differs."""
    w, h, _, g = read(grey)
    cw, ch, channels, c = read(colour)
    if (w, h, channels) != (cw, ch, 3):
        return "sizes differ"
    seen = {}
    for y in range(h):
        for x in range(w):
            level, rgb = g[y * w + x], tuple(c[3 * (y * w + x): 3 * (y * w + x) + 3])
            if not (x0 <= x < x1 and y0 <= y < y1):
                if rgb != (level, level, level):
                    return "frame pixel (%d, %d) is %s, not grey %d" % (x, y, rgb, level)
                continue
            if seen.setdefault(level, rgb) != rgb:
                return "level %d has two colours" % level
            if level in MAGMA and rgb != MAGMA[level]:
                return "level %d is %s, not %s" % (level, rgb, MAGMA[level])
    known = sorted(set(seen) & set(MAGMA))
    return "ok %d (levels %s)" % (len(known), " ".join(map(str, known)))

what, args = sys.argv[1], sys.argv[2:]
if what == "middle":
    print("%.3f" % middle_brightness(args[0]))
elif what == "size":
    print("%d %d %d" % read(args[0])[:3])
elif what == "find":
    print(find_plot(*args))
elif what == "ink":
    print(ink(args[0], *map(int, args[1:])))
elif what == "frame":
    print(frame_levels(args[0], *map(int, args[1:])))
elif what == "magma":
    print(magma_check(args[0], args[1], *map(int, args[2:])))
EOF
}

# peak_f FILE: "fx fy" of the first component of a peaks --json output.
peak_f() { "$python" -c 'import json, sys; c = json.load(open(sys.argv[1]))["components"][0]; print(c["fx"], c["fy"])' "$1"; }
# close A B TOLERANCE: |A - B| <= TOLERANCE.
close() { awk_true 'a - b <= t && b - a <= t' -v a="$1" -v b="$2" -v t="$3"; }
# differ A B: the files differ.
differ() { ! cmp -s "$1" "$2"; }

photo=$data/photo.png
if [ $has_png = 0 ]; then
  echo "note: built without libpng: the photograph cannot be read, its tests are skipped"
else
  # ---- 1. a power-of-two photograph's spectrum: no cross with the window
  # The 256 x 128 top of the photograph: a power of two, so there is no
  # padding, and its borders, seen as a periodic image, meet with steps.
  "$helper" crop "$photo" 0 0 256 128 "$w/photo256.pgm" || fail "crop"
  limit=1.5   # the middle row and column at most this much brighter than rows 2 to 4 away
  expect_ok "spectrum of the photograph" "$kx" spectrum "$w/photo256.pgm" -o "$w/hann.pgm"
  hann=$(measure middle "$w/hann.pgm")
  expect_ok "spectrum with no window" "$kx" spectrum "$w/photo256.pgm" -o "$w/none.pgm" --window none
  none=$(measure middle "$w/none.pgm")
  expect_ok "spectrum with a Tukey window" "$kx" spectrum "$w/photo256.pgm" -o "$w/tukey.pgm" --window tukey --taper 0.5
  tukey=$(measure middle "$w/tukey.pgm")
  echo "middle row/column brightness over their neighbours: hann $hann, tukey $tukey, none $none (limit $limit)"
  check "no cross with the default Hann window ($hann)" awk_true 'r <= l' -v r="$hann" -v l="$limit"
  check "no cross with a Tukey window ($tukey)" awk_true 'r <= l' -v r="$tukey" -v l="$limit"
  check "the same check sees the cross without a window ($none)" awk_true 'r > l' -v r="$none" -v l="$limit"
  expect_ok "spectrum with --window hann" "$kx" spectrum "$w/photo256.pgm" -o "$w/hann2.pgm" --window hann
  check "--window hann is the default" cmp -s "$w/hann.pgm" "$w/hann2.pgm"

  # ---- 2. peaks: the frequencies do not move with the window
  # Stripes of period 9 at 30 degrees: fx = cos(30)/9, fy = sin(30)/9.
  "$helper" stripes "$photo" "$w/orig.pgm" "$w/striped.pgm" 30 9 15 || fail "stripes"
  "$helper" crop "$w/striped.pgm" 100 50 128 128 "$w/striped128.pgm" || fail "crop stripes"
  for image in striped striped128; do
    expect_ok "peaks $image" "$kx" peaks "$w/$image.pgm" --json
    cp "$w/out.txt" "$w/hann.json"
    read -r hx hy <<< "$(peak_f "$w/hann.json")"
    check "$image: stripes found with Hann ($hx $hy)" close "$hx" 0.0962250 0.002
    check "$image: stripes found with Hann ($hx $hy)" close "$hy" 0.0555556 0.002
    for window in none tukey; do
      expect_ok "peaks $image --window $window" "$kx" peaks "$w/$image.pgm" --json --window $window
      read -r fx fy <<< "$(peak_f "$w/out.txt")"
      echo "$image: fx, fy with hann $hx $hy, with $window $fx $fy"
      check "$image, $window: fx $fx within 0.001 of Hann's $hx" close "$fx" "$hx" 0.001
      check "$image, $window: fy $fy within 0.001 of Hann's $hy" close "$fy" "$hy" 0.001
    done
  done
  expect_ok "peaks text with a window" "$kx" peaks "$w/striped.pgm" --window none --max 1
  check "peaks text names the component" grep -q "^component 1: frequency 0.11" "$w/out.txt"
fi

# ---- 3. --axes: the spectrum unchanged inside a frame with labels
"$helper" scene "$w/scene.pgm" 200 120 8 3 || fail "scene"
expect_ok "plain picture" "$kx" spectrum "$w/scene.pgm" -o "$w/plain.pgm"
expect_ok "picture with axes" "$kx" spectrum "$w/scene.pgm" -o "$w/axes.pgm" --axes
read -r pw ph _ <<< "$(measure size "$w/plain.pgm")"
read -r aw ah _ <<< "$(measure size "$w/axes.pgm")"
check "the plain picture has the padded size ($pw x $ph)" [ "$pw $ph" = "256 128" ]
check "the frame adds margins ($aw x $ah)" awk_true 'aw >= pw + 30 && ah >= ph + 40 && aw <= pw + 120 && ah <= ph + 80' \
  -v aw="$aw" -v ah="$ah" -v pw="$pw" -v ph="$ph"
read -r px py <<< "$(measure find "$w/plain.pgm" "$w/axes.pgm")"
check "the spectrum sits unchanged inside the frame (at $px $py)" [ "$px" != none ]
if [ "$px" != none ]; then
  below=$(measure ink "$w/axes.pgm" 0 $((py + ph)) "$aw" "$ah")
  left=$(measure ink "$w/axes.pgm" 0 0 "$px" $((py + ph)))
  echo "label pixels: $below below the spectrum, $left left of it"
  check "labels below the spectrum ($below pixels)" awk_true 'n > 200' -v n="$below"
  check "labels left of the spectrum ($left pixels)" awk_true 'n > 100' -v n="$left"
  levels=$(measure frame "$w/axes.pgm" "$px" "$py" $((px + pw)) $((py + ph)))
  check "the frame is ground, lines and labels only ($levels)" [ "$levels" = "24 150 255" ]
fi
# A picture of 1024 a side gets labels at twice the size.
"$helper" scene "$w/big.pgm" 1000 1000 8 4 || fail "big scene"
expect_ok "large picture with axes" "$kx" spectrum "$w/big.pgm" -o "$w/bigaxes.pgm" --axes
read -r bw bh _ <<< "$(measure size "$w/bigaxes.pgm")"
check "large labels give wider margins ($bw x $bh)" awk_true 'bw - 1024 >= 2 * (aw - pw) - 4' -v bw="$bw" -v aw="$aw" -v pw="$pw"

# ---- 4. --colormap magma: the published colours, the frame left grey
expect_ok "magma picture" "$kx" spectrum "$w/scene.pgm" -o "$w/magma.ppm" --axes --colormap magma
if [ "$px" != none ]; then
  result=$(measure magma "$w/axes.pgm" "$w/magma.ppm" "$px" "$py" $((px + pw)) $((py + ph)))
  echo "magma: $result"
  check "magma colours ($result)" awk_true 'r == "ok" && n >= 2' -v r="${result%% *}" -v n="$(echo "$result" | cut -d' ' -f2)"
fi
expect_ok "magma without axes" "$kx" spectrum "$w/scene.pgm" -o "$w/magma2.ppm" --colormap magma
result=$(measure magma "$w/plain.pgm" "$w/magma2.ppm" 0 0 "$pw" "$ph")
check "magma without axes ($result)" [ "${result%% *}" = ok ]
expect_ok "gray is the default map" "$kx" spectrum "$w/scene.pgm" -o "$w/gray.pgm" --colormap gray
check "--colormap gray writes the grey picture" cmp -s "$w/gray.pgm" "$w/plain.pgm"
if [ $has_png = 1 ]; then
  expect_ok "magma PNG" "$kx" spectrum "$w/scene.pgm" -o "$w/magma.png" --colormap magma
  # byte 25 of a PNG is its colour type: 2 is RGB
  check "a magma PNG is RGB" [ "$(od -An -tu1 -j25 -N1 "$w/magma.png" | tr -d ' ')" = 2 ]
  expect_ok "demo" "$kx" demo --out "$w/demo"
  check "the demo's overview is in colour" [ "$(od -An -tu1 -j25 -N1 "$w/demo/overview.png" | tr -d ' ')" = 2 ]
fi

# ---- 5. raw parts stay raw; options that do not go together
expect_ok "real part" "$kx" spectrum "$w/scene.pgm" -o "$w/real.pgm" --part real
expect_ok "real part, no window" "$kx" spectrum "$w/scene.pgm" -o "$w/real-none.pgm" --part real --window none
check "the real part has no window by default" cmp -s "$w/real.pgm" "$w/real-none.pgm"
expect_ok "real part, Hann" "$kx" spectrum "$w/scene.pgm" -o "$w/real-hann.pgm" --part real --window hann
check "a window asked for changes the real part" differ "$w/real.pgm" "$w/real-hann.pgm"
expect_ok "zero padding with a window" "$kx" spectrum "$w/scene.pgm" -o "$w/zero.pgm" --pad zero
check "a window pads with zeros" cmp -s "$w/zero.pgm" "$w/plain.pgm"

p=$w/x.ppm
expect_one_error "axes uncentred" "--axes: needs the centred picture" "$x" "$kx" spectrum "$w/scene.pgm" -o "$x" --axes --uncentered
expect_one_error "unknown map" "--colormap: expects gray or magma, not 'jet'" "$x" "$kx" spectrum "$w/scene.pgm" -o "$x" --colormap jet
expect_one_error "magma as TIFF" "colour pictures are written as .png or .ppm" "$w/x.tif" "$kx" spectrum "$w/scene.pgm" -o "$w/x.tif" --colormap magma
expect_one_error "grey as PPM" "unknown image format" "$p" "$kx" spectrum "$w/scene.pgm" -o "$p"
expect_one_error "mirror with a window" "--pad: mirror is used only with --window none" "$x" "$kx" spectrum "$w/scene.pgm" -o "$x" --pad mirror
expect_one_error "unknown window" "--window: expects hann, tukey or none, not 'kaiser'" "$x" "$kx" spectrum "$w/scene.pgm" -o "$x" --window kaiser
expect_one_error "taper without tukey" "--taper: used only with --window tukey" "$x" "$kx" peaks "$w/scene.pgm" --taper 0.3
expect_one_error "taper out of range" "--taper: expects a fraction from 0 to 1, not '2'" "$x" "$kx" peaks "$w/scene.pgm" --window tukey --taper 2
expect_one_error "peaks window" "--window: expects hann, tukey or none, not 'flat'" "$x" "$kx" peaks "$w/scene.pgm" --window flat

finish
