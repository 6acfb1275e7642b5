#!/usr/bin/env bash
# Runs the kxfreq analysis commands as a user would: register finds known
# shifts between synthetic views of one scene, peaks finds a stripe pattern
# and a grating's harmonics, filter --remove-texture removes stripes from a
# photograph; bad input gets one clear line, a non-zero status and no output.
#   cli_analysis_test.sh KXFREQ HELPER DATA_DIR
set -uo pipefail
. "$(dirname "$0")/cli_lib.sh"
w=$work

# within NAME VALUE EXPECTED TOLERANCE: |VALUE - EXPECTED| <= TOLERANCE
within() {
  check "$1 ($2, expected $3 +- $4)" awk_true 'v != "" && (v - e) <= t && (e - v) <= t' -v v="$2" -v e="$3" -v t="$4"
}

# ---- 1. register: integer shifts on non-power-of-two views of a scene
# Views are crops of one 500 x 420 scene: the moving view's crop starts
# (a, b) further, so its content lies at (-a, -b): dx = -a, dy = -b.
"$helper" scene "$w/scene.pgm" 500 420 8 7 || fail "scene"
"$helper" scene "$w/scene16.pgm" 500 420 16 7 || fail "scene 16"
"$helper" scene "$w/other.pgm" 500 420 8 99 || fail "other scene"
# x y width height a b
for case in "100 100 200 180 37 -25" "100 100 300 250 -60 44" "100 150 333 97 -23 11" "120 90 256 256 5 3"; do
  read -r x y cw ch a b <<< "$case"
  "$helper" crop "$w/scene.pgm" "$x" "$y" "$cw" "$ch" "$w/ref.pgm"
  "$helper" crop "$w/scene.pgm" $((x + a)) $((y + b)) "$cw" "$ch" "$w/mov.pgm"
  expect_ok "register $cw x $ch by ($a, $b)" "$kx" register "$w/ref.pgm" "$w/mov.pgm"
  check "register prints three numbers: $(cat "$w/out.txt")" grep -qE '^-?[0-9]+\.[0-9]+ -?[0-9]+\.[0-9]+ [01]\.[0-9]+$' "$w/out.txt"
  read -r dx dy confidence < "$w/out.txt"
  echo "register $cw x $ch, shift ($((-a)), $((-b))): $dx $dy confidence $confidence"
  within "dx of $cw x $ch" "$dx" $((-a)) 0.5
  within "dy of $cw x $ch" "$dy" $((-b)) 0.5
  check "a true pair is found with confidence ($confidence)" awk_true 'c >= 0.1 && c <= 1' -v c="$confidence"
  # the same with noise and a brightness and contrast change
  "$helper" vary "$w/mov.pgm" "$w/noisy.pgm" 0.8 20 8 3
  expect_ok "register noisy $cw x $ch" "$kx" register "$w/ref.pgm" "$w/noisy.pgm" --window tukey
  read -r dx dy _ < "$w/out.txt"
  echo "  with noise and contrast 0.8 + 20, Tukey window: $dx $dy"
  within "noisy dx of $cw x $ch" "$dx" $((-a)) 0.5
  within "noisy dy of $cw x $ch" "$dy" $((-b)) 0.5
done

# JSON: the three keys, the same numbers
"$helper" crop "$w/scene.pgm" 100 100 200 180 "$w/ref.pgm"
"$helper" crop "$w/scene.pgm" 113 92 200 180 "$w/mov.pgm"
expect_ok "register --json" "$kx" register "$w/ref.pgm" "$w/mov.pgm" --json
if /usr/bin/python3 -c '
import json, sys
r = json.load(open(sys.argv[1]))
for key in ("dx", "dy", "confidence"):
    assert isinstance(r[key], float), (key, r)
assert abs(r["dx"] + 13) <= 0.5 and abs(r["dy"] - 8) <= 0.5 and 0.1 <= r["confidence"] <= 1, r
assert r["width"] == 200 and r["height"] == 180, r
' "$w/out.txt"; then pass; else fail "register JSON: $(cat "$w/out.txt")"; fi
expect_ok "register text" "$kx" register "$w/ref.pgm" "$w/mov.pgm"
check "text and JSON agree" /usr/bin/python3 -c '
import json, subprocess, sys
kx, ref, mov, text = sys.argv[1:]
j = json.loads(subprocess.run([kx, "register", ref, mov, "--json"], capture_output=True, text=True, check=True).stdout)
t = [float(v) for v in open(text).read().split()]
assert abs(t[0] - j["dx"]) < 1e-3 and abs(t[1] - j["dy"]) < 1e-3 and abs(t[2] - j["confidence"]) < 1e-3, (t, j)
' "$kx" "$w/ref.pgm" "$w/mov.pgm" "$w/out.txt"

# no window, and a region cut out of both
expect_ok "register --window none" "$kx" register "$w/ref.pgm" "$w/mov.pgm" --window none
read -r dx dy _ < "$w/out.txt"
within "dx without a window" "$dx" -13 0.5
within "dy without a window" "$dy" 8 0.5
expect_ok "register --region" "$kx" register "$w/scene.pgm" "$w/scene.pgm" --region 10,20,150,100
read -r dx dy confidence < "$w/out.txt"
check "an image against itself: no shift, confidence 1 ($dx $dy $confidence)" [ "$dx $dy $confidence" = "0.000 0.000 1.000" ]

# half-pixel shifts: views shifted by an odd number of pixels, then halved
"$helper" crop "$w/scene.pgm" 60 50 300 260 "$w/big1.pgm"
"$helper" crop "$w/scene.pgm" 63 48 300 260 "$w/big2.pgm"
"$helper" halve "$w/big1.pgm" "$w/half1.pgm"
"$helper" halve "$w/big2.pgm" "$w/half2.pgm"
expect_ok "register half pixels" "$kx" register "$w/half1.pgm" "$w/half2.pgm"
read -r dx dy _ < "$w/out.txt"
echo "register half-pixel shift (-1.5, 1): $dx $dy"
within "half-pixel dx" "$dx" -1.5 0.2
within "half-pixel dy" "$dy" 1 0.2

# 8-bit against 16-bit views of one scene
"$helper" crop "$w/scene16.pgm" 130 80 200 180 "$w/mov16.pgm"
expect_ok "register 8 against 16 bits" "$kx" register "$w/ref.pgm" "$w/mov16.pgm"
read -r dx dy _ < "$w/out.txt"
within "8/16-bit dx" "$dx" -30 0.5
within "8/16-bit dy" "$dy" 20 0.5
# 16-bit views
"$helper" crop "$w/scene16.pgm" 100 100 200 180 "$w/ref16.pgm"
expect_ok "register 16 bits" "$kx" register "$w/ref16.pgm" "$w/mov16.pgm"
read -r dx dy _ < "$w/out.txt"
within "16-bit dx" "$dx" -30 0.5
within "16-bit dy" "$dy" 20 0.5

# unrelated images: low confidence, well below a true pair's
"$helper" crop "$w/other.pgm" 100 100 200 180 "$w/unrelated.pgm"
expect_ok "register unrelated" "$kx" register "$w/ref.pgm" "$w/unrelated.pgm"
read -r _ _ low < "$w/out.txt"
"$kx" register "$w/ref.pgm" "$w/mov.pgm" > "$w/true.txt"
read -r _ _ high < "$w/true.txt"
echo "confidence: unrelated $low, true pair $high"
check "unrelated images have a low confidence ($low against $high)" awk_true 'l < 0.1 && h > 3 * l' -v l="$low" -v h="$high"

# ---- 2. peaks: stripes on a photograph (a synthetic scene without libpng)
photo=$data/photo.png
if [ $has_png = 0 ]; then
  photo=$w/scene.pgm
  echo "note: built without libpng, a synthetic scene replaces the photograph"
fi
"$helper" stripes "$photo" "$w/orig.pgm" "$w/striped.pgm" 30 9 15 || fail "stripes"
expect_ok "peaks" "$kx" peaks "$w/striped.pgm"
cat "$w/out.txt"
read -r f p a s <<< "$(sed -n 's/^component 1: frequency \([0-9.]*\) period \([0-9.]*\) angle \([-0-9.]*\) strength \([0-9.]*\) .*/\1 \2 \3 \4/p' "$w/out.txt")"
within "stripe frequency" "${f:-}" 0.11111 0.002
within "stripe period" "${p:-}" 9 0.2
within "stripe angle" "${a:-}" 30 1
check "the stripes are the only component" [ "$(grep -c '^component' "$w/out.txt")" = 1 ]
expect_ok "peaks of the clean photograph" "$kx" peaks "$w/orig.pgm"
check "no components in the photograph itself" grep -qx "no periodic components found" "$w/out.txt"
expect_ok "peaks --json" "$kx" peaks "$w/striped.pgm" --json
if /usr/bin/python3 -c '
import json, math, sys
r = json.load(open(sys.argv[1]))
c = r["components"]
assert len(c) == 1, c
c = c[0]
assert abs(c["frequency"] - 1 / 9) < 0.002 and abs(c["angle"] - 30) < 1 and c["strength"] > 12, c
assert abs(c["period"] * c["frequency"] - 1) < 1e-9 and abs(math.hypot(c["fx"], c["fy"]) - c["frequency"]) < 1e-9, c
assert c["harmonics"] == [], c
' "$w/out.txt"; then pass; else fail "peaks JSON: $(cat "$w/out.txt")"; fi
# a square-wave grating on the scene: the fundamental with its 3rd and 5th harmonics
"$helper" grating "$w/scene.pgm" "$w/grating.pgm" 0 12 20 || fail "grating"
expect_ok "peaks of a grating" "$kx" peaks "$w/grating.pgm" --max 1 --json
if /usr/bin/python3 -c '
import json, sys
c = json.load(open(sys.argv[1]))["components"]
assert len(c) == 1, c
c = c[0]
assert abs(c["frequency"] - 1 / 12) < 0.002 and abs(c["angle"]) < 1, c
orders = {h["order"]: h for h in c["harmonics"]}
for n in (3, 5):
    assert abs(orders[n]["frequency"] - n / 12) < 0.003 and abs(orders[n]["angle"]) < 1, (n, c)
' "$w/out.txt"; then pass; else fail "grating harmonics: $(cat "$w/out.txt")"; fi
expect_ok "peaks --region" "$kx" peaks "$w/striped.pgm" --region 20,30,200,150 --max 2
check "a region's stripes ($(head -1 "$w/out.txt"))" grep -qE "^component 1: frequency 0\.11[01]" "$w/out.txt"

# ---- 3. filter --remove-texture
expect_ok "remove texture" "$kx" filter "$w/striped.pgm" -o "$w/clean.pgm" --remove-texture
check "the line names what was removed ($(cat "$w/out.txt"))" grep -qE "^$w/clean.pgm \([0-9.]+ s, 1 periodic component removed\)$" "$w/out.txt"
read -r _ removed _ away _ after <<< "$("$helper" reject "$w/orig.pgm" "$w/striped.pgm" "$w/clean.pgm" 30 9 0.05)"
read -r _ _ _ _ _ before <<< "$("$helper" reject "$w/orig.pgm" "$w/striped.pgm" "$w/striped.pgm" 30 9 0.05)"
gain=$(awk -v b="$before" -v a="$after" 'BEGIN { printf "%.1f", 20 * log(b / a) / log(10) }')
echo "remove texture: stripe energy removed $removed, RMS error $before -> $after ($gain dB), away from the stripes $away"
check "at least 99% of the stripe energy removed ($removed)" awk_true 'r >= 0.99' -v r="$removed"
check "the error against the clean image falls by 15 dB or more ($gain)" awk_true 'g >= 15' -v g="$gain"
check "within 1 grey level RMS away from the stripes ($away)" awk_true 'a <= 1' -v a="$away"
read -r cw ch cb _ <<< "$("$helper" info "$w/clean.pgm")"
read -r sw sh sb _ <<< "$("$helper" info "$w/striped.pgm")"
check "the result keeps size and depth ($cw x $ch, $cb bits)" [ "$cw $ch $cb" = "$sw $sh $sb" ]
# 16 bits, a region, a batch with a report
"$helper" stripes "$photo" "$w/orig2.pgm" "$w/striped2.pgm" 100 7 12 || fail "stripes 2"
expect_ok "remove texture batch" "$kx" filter "$w/striped.pgm" "$w/striped2.pgm" "$w/gray16.pgm" -o "$w/batch/" \
  --remove-texture --max 3 --jobs 2 --json "$w/report.json"
for name in striped striped2 gray16; do check "batch wrote $name" [ -f "$w/batch/$name.pgm" ]; done
read -r _ removed2 _ _ _ _ <<< "$("$helper" reject "$w/orig2.pgm" "$w/striped2.pgm" "$w/batch/striped2.pgm" 100 7 0.05)"
check "the second image's stripes are removed too ($removed2)" awk_true 'r >= 0.99' -v r="$removed2"
check "a batch result equals the single one" cmp -s "$w/batch/striped.pgm" "$w/clean.pgm"
read -r _ _ b16 _ <<< "$("$helper" info "$w/batch/gray16.pgm")"
check "16 bits stay 16 bits ($b16)" [ "$b16" = 16 ]
if /usr/bin/python3 -c '
import json, sys
r = json.load(open(sys.argv[1]))
first, second, third = r["inputs"]
for i in r["inputs"]:
    assert i["status"] == "ok" and i["filter"] == {"kind": "remove-texture", "max": 3, "color": "per-channel"}, i
(c,) = first["removed"]
assert abs(c["frequency"] - 1 / 9) < 0.002 and abs(c["angle"] - 30) < 1, c
(c,) = second["removed"]
assert abs(c["frequency"] - 1 / 7) < 0.002 and abs(c["angle"] - 100) < 1, c
assert len(third["removed"]) <= 3 and r["filtered"] == 3 and r["failed"] == 0, r
' "$w/report.json"; then pass; else fail "remove-texture report: $(cat "$w/report.json")"; fi
expect_ok "remove texture in a region" "$kx" filter "$w/striped.pgm" -o "$w/part.pgm" --remove-texture --region 20,30,200,150
read -r pw ph _ <<< "$("$helper" info "$w/part.pgm")"
check "the region's result is the region's size ($pw x $ph)" [ "$pw x $ph" = "200 x 150" ]
"$helper" crop "$w/orig.pgm" 20 30 200 150 "$w/orig-part.pgm"
"$helper" crop "$w/striped.pgm" 20 30 200 150 "$w/striped-part.pgm"
read -r _ removed3 _ _ _ _ <<< "$("$helper" reject "$w/orig-part.pgm" "$w/striped-part.pgm" "$w/part.pgm" 30 9 0.05)"
check "the region's stripes are removed ($removed3)" awk_true 'r >= 0.99' -v r="$removed3"

# ---- 4. bad input: one clear line, a non-zero status, no output
x=$w/x.pgm
i8=$w/gray8.pgm
expect_one_error "register one image" "register takes two images" "$x" "$kx" register "$i8"
expect_one_error "register three images" "register takes two images" "$x" "$kx" register "$i8" "$i8" "$i8"
expect_one_error "register sizes" "the images differ in size: $i8 is 100 x 60, $w/small.pgm is 30 x 30" "$x" "$kx" register "$i8" "$w/small.pgm"
expect_one_error "register missing" "cannot open" "$x" "$kx" register "$i8" "$w/none.pgm"
expect_one_error "register window" "--window: expects hann, tukey or none, not 'gauss'" "$x" "$kx" register "$i8" "$i8" --window gauss
expect_one_error "register taper without tukey" "--taper: used only with --window tukey" "$x" "$kx" register "$i8" "$i8" --taper 0.3
expect_one_error "register taper range" "--taper: expects a fraction from 0 to 1, not '1.5'" "$x" "$kx" register "$i8" "$i8" --window tukey --taper 1.5
expect_one_error "register taper nan" "--taper: expects a finite number, not 'nan'" "$x" "$kx" register "$i8" "$i8" --window tukey --taper nan
expect_one_error "register json value" "--json: takes no value" "$x" "$kx" register "$i8" "$i8" --json=out.json
expect_one_error "register -o" "unknown option '-o'" "$x" "$kx" register "$i8" "$i8" -o "$x"
expect_one_error "register region outside" "does not lie inside the 100 x 60 image" "$x" "$kx" register "$i8" "$i8" --region 90,0,20,20
# two views of a 2600 x 2300 scene, 17 pixels right and 9 down of each
# other: registered on reduced copies, then refined at full resolution
"$helper" scene "$w/large-scene.pgm" 2600 2300 8 5 || fail "large scene"
"$helper" crop "$w/large-scene.pgm" 0 0 2560 2200 "$w/large-ref.pgm"
"$helper" crop "$w/large-scene.pgm" 17 9 2560 2200 "$w/large-moving.pgm"
expect_ok "register large" "$kx" register "$w/large-ref.pgm" "$w/large-moving.pgm"
read -r ldx ldy lconf <<< "$(cat "$work/out.txt")"
echo "register, 2560 x 2200 views: $ldx $ldy (confidence $lconf)"
check "large views: shift -17, -9 within 0.1 ($ldx $ldy)" awk_true '(x + 17)^2 < 0.01 && (y + 9)^2 < 0.01' -v x="$ldx" -v y="$ldy"
expect_one_error "register large of different sizes" "the images differ in size" "$x" "$kx" register "$w/large-ref.pgm" "$w/large-scene.pgm"
printf 'P5\n10 10\n255\nabc' > "$w/trunc.pgm"
expect_one_error "register truncated" "truncated PGM" "$x" "$kx" register "$i8" "$w/trunc.pgm"
expect_one_error "peaks no input" "peaks takes exactly one input image" "$x" "$kx" peaks
expect_one_error "peaks two inputs" "peaks takes exactly one input image" "$x" "$kx" peaks "$i8" "$i8"
expect_one_error "peaks max 0" "--max: expects a number from 1 to 100, not '0'" "$x" "$kx" peaks "$i8" --max 0
expect_one_error "peaks max fraction" "--max: expects a whole number, not '2.5'" "$x" "$kx" peaks "$i8" --max 2.5
expect_one_error "peaks too small" "kxfreq: error: Image or spectrum must be at least 8 x 8" "$x" "$kx" peaks "$i8" --region 0,0,7,7
printf 'hello' > "$w/text.pgm"
expect_one_error "peaks text" "not a PGM, PNG, TIFF or JPEG" "$x" "$kx" peaks "$w/text.pgm"
for option in "--frequency 0.1" "--period 9" "--sigma 0.01" "--plateau 0.01" "--angle 30" "--dc-radius 1"; do
  expect_one_error "remove texture refuses $option" "${option%% *}: not used with --remove-texture" "$x" \
    "$kx" filter "$i8" -o "$x" --remove-texture $option
done
expect_one_error "remove texture refuses --pad" "--pad: not used with --remove-texture" "$x" "$kx" filter "$i8" -o "$x" --remove-texture --pad zero
expect_one_error "remove texture refuses --output" "--output: not used with --remove-texture" "$x" "$kx" filter "$i8" -o "$x" --remove-texture --output signed
expect_one_error "remove texture refuses --scale" "--scale: not used with --remove-texture" "$x" "$kx" filter "$i8" -o "$x" --remove-texture --scale
expect_one_error "remove texture refuses --save" "--save: not used with --remove-texture" "$x" "$kx" filter "$i8" -o "$x" --remove-texture --save "$w/t.kxf"
check "no filter file saved" [ ! -e "$w/t.kxf" ]
expect_one_error "max without remove texture" "--max: used only with --remove-texture" "$x" "$kx" filter "$i8" -o "$x" --band-pass --max 2
expect_one_error "remove texture max" "--max: expects a number from 1 to 100" "$x" "$kx" filter "$i8" -o "$x" --remove-texture --max 101
expect_one_error "remove texture and another filter" "exactly one filter" "$x" "$kx" filter "$i8" -o "$x" --remove-texture --gabor
expect_one_error "remove texture without output" "an output is needed" "$x" "$kx" filter "$i8" --remove-texture
{ printf 'P5\n5 5\n255\n'; head -c 25 /dev/zero; } > "$w/tiny.pgm"
expect_one_error "remove texture too small" "kxfreq: error: $w/tiny.pgm: Image or spectrum must be at least 8 x 8" "$x" "$kx" filter "$w/tiny.pgm" -o "$x" --remove-texture
expect_one_error "remove texture truncated" "truncated PGM" "$x" "$kx" filter "$w/trunc.pgm" -o "$x" --remove-texture
expect_one_error "remove texture bad format" "unknown image format" "$w/x.bmp" "$kx" filter "$i8" -o "$w/x.bmp" --remove-texture

# ---- 5. help
expect_ok "main help" "$kx" --help
check "the main help lists register" grep -q "^  register " "$w/out.txt"
check "the main help lists peaks" grep -q "^  peaks " "$w/out.txt"
expect_ok "register help" "$kx" register --help
check "register help states the convention" grep -q "moving(x + dx, y + dy) = reference(x, y)" "$w/out.txt"
expect_ok "peaks help" "$kx" peaks --help
check "peaks help states the angle convention" grep -q "clockwise on the screen" "$w/out.txt"
expect_ok "filter help" "$kx" filter --help
check "filter help lists --remove-texture" grep -q -- "--remove-texture  " "$w/out.txt"

finish
