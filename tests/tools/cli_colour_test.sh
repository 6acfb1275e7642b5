#!/usr/bin/env bash
# Runs the kxfreq tool on colour and JPEG images made from the photograph:
# per-channel filtering equal to filtering each channel alone, bit for bit,
# alpha untouched; luminance filtering that keeps the chroma; a stripe
# pattern removed through JPEG; colour texture removal; refused options and
# failed writes that leave no file.
#   cli_colour_test.sh KXFREQ HELPER DATA_DIR
set -uo pipefail
. "$(dirname "$0")/cli_lib.sh"
w=$work
if [ $has_png = 0 ]; then
  echo "note: built without libpng, colour checks skipped"
  finish
  exit $?
fi
has_jpeg=0
"$kx" roundtrip "$w/gray8.pgm" -o "$w/probe.jpg" > /dev/null 2>&1 && has_jpeg=1

# ---- 1. per-channel: each channel as if filtered alone, alpha untouched
"$helper" colourise "$data/photo.png" "$w/rgba.png" alpha || fail "colourise"
filter=(--band-reject --frequency 0.08 --sigma 0.01 --plateau 0.01)
expect_ok "per-channel" "$kx" filter "$w/rgba.png" -o "$w/rgba-out.png" "${filter[@]}"
grep -q "each of its 3 channels filtered alone, alpha kept" "$w/err.txt" && pass || fail "per-channel note: $(cat "$w/err.txt")"
for c in 0 1 2; do
  "$helper" channel "$w/rgba.png" $c "$w/in$c.pgm"
  "$kx" filter "$w/in$c.pgm" -o "$w/alone$c.pgm" "${filter[@]}" > /dev/null
  "$helper" channel "$w/rgba-out.png" $c "$w/out$c.pgm"
  check "channel $c equals that channel filtered alone, bit for bit" cmp -s "$w/alone$c.pgm" "$w/out$c.pgm"
done
"$helper" channel "$w/rgba.png" 3 "$w/alpha-in.pgm"
"$helper" channel "$w/rgba-out.png" 3 "$w/alpha-out.pgm"
check "alpha untouched" cmp -s "$w/alpha-in.pgm" "$w/alpha-out.pgm"
check "per-channel is the default" bash -c "'$kx' filter '$w/rgba.png' -o '$w/explicit.png' ${filter[*]} --color per-channel > /dev/null 2>&1 && cmp -s '$w/explicit.png' '$w/rgba-out.png'"
# the same through 16-bit TIFF
"$helper" colourise "$data/photo.png" "$w/rgb.tif" plain
expect_ok "per-channel tiff" "$kx" filter "$w/rgb.tif" -o "$w/rgb-out.tif" "${filter[@]}" 2>/dev/null
"$helper" channel "$w/rgb.tif" 2 "$w/tin2.pgm"
"$kx" filter "$w/tin2.pgm" -o "$w/talone2.pgm" "${filter[@]}" > /dev/null
"$helper" channel "$w/rgb-out.tif" 2 "$w/tout2.pgm"
check "TIFF channel 2 equals it filtered alone" cmp -s "$w/talone2.pgm" "$w/tout2.pgm"

# ---- 2. luminance: the chroma (each channel minus the others) is kept
expect_ok "luminance" "$kx" filter "$w/rgba.png" -o "$w/lum.png" "${filter[@]}" --color luminance
grep -q "its luminance filtered, chroma kept" "$w/err.txt" && pass || fail "luminance note: $(cat "$w/err.txt")"
for c in 0 1 2; do "$helper" channel "$w/lum.png" $c "$w/lum$c.pgm"; done
if /usr/bin/python3 - "$w" <<'PY'
import sys
def pgm(path):
    data = open(path, "rb").read()
    parts = data.split(maxsplit=4)
    w, h = int(parts[1]), int(parts[2])
    return w, h, data[len(data) - w * h:]
d = sys.argv[1]
w, h, r0 = pgm(d + "/in0.pgm"); _, _, g0 = pgm(d + "/in1.pgm"); _, _, b0 = pgm(d + "/in2.pgm")
_, _, r1 = pgm(d + "/lum0.pgm"); _, _, g1 = pgm(d + "/lum1.pgm"); _, _, b1 = pgm(d + "/lum2.pgm")
worst = 0; changed = 0; counted = 0
for i in range(w * h):
    if min(r1[i], g1[i], b1[i]) == 0 or max(r1[i], g1[i], b1[i]) == 255:
        continue   # clamped
    counted += 1
    worst = max(worst, abs((r1[i] - g1[i]) - (r0[i] - g0[i])), abs((b1[i] - g1[i]) - (b0[i] - g0[i])))
    changed += r1[i] != r0[i]
print(f"luminance: chroma differences change by at most {worst} over {counted} unclamped pixels, {changed} changed")
sys.exit(0 if worst <= 1 and changed > w * h // 10 else 1)
PY
then pass; else fail "luminance keeps the chroma"; fi
expect_one_error "luminance needs real output" "--color: luminance works with --output real only" "$w/x.png" \
  "$kx" filter "$w/rgba.png" -o "$w/x.png" "${filter[@]}" --color luminance --output signed
expect_one_error "colour to PGM" "--color: per-channel needs an output that holds colour" "$w/x.pgm" \
  "$kx" filter "$w/rgba.png" -o "$w/x.pgm" "${filter[@]}" --color per-channel
expect_ok "colour to PGM without --color is grey" "$kx" filter "$w/rgba.png" -o "$w/grey.pgm" "${filter[@]}"
grep -q "converted to grey" "$w/err.txt" && pass || fail "grey note: $(cat "$w/err.txt")"

# ---- 3. colour texture removal: found on the luminance, removed from every channel
"$helper" stripes "$data/photo.png" "$w/orig.pgm" "$w/striped.pgm" 30 9 15 || fail "stripes"
"$helper" colourise "$w/striped.pgm" "$w/striped-rgb.png" tint
"$helper" colourise "$w/orig.pgm" "$w/orig-rgb.png" tint
expect_ok "colour remove texture" "$kx" filter "$w/striped-rgb.png" -o "$w/clean-rgb.png" --remove-texture --max 2
grep -q "found on its luminance and removed from each of its 3 channels" "$w/err.txt" && pass || fail "texture note: $(cat "$w/err.txt")"
for c in 0 1 2; do
  "$helper" channel "$w/orig-rgb.png" $c "$w/o$c.pgm"
  "$helper" channel "$w/striped-rgb.png" $c "$w/s$c.pgm"
  "$helper" channel "$w/clean-rgb.png" $c "$w/c$c.pgm"
  read -r _ removed _ away _ _ <<< "$("$helper" reject "$w/o$c.pgm" "$w/s$c.pgm" "$w/c$c.pgm" 30 9 0.05)"
  echo "colour texture removal, channel $c: stripe energy removed $removed, RMS away from the stripes $away"
  check "channel $c: at least 90% of the stripes removed ($removed)" awk_true 'r >= 0.90' -v r="$removed"
done

# ---- 4. JPEG: a stripe pattern removed through JPEG files, grey and colour
if [ $has_jpeg = 1 ]; then
  "$helper" grey "$w/striped.pgm" "$w/striped.jpg"
  expect_ok "jpeg in and out" "$kx" filter "$w/striped.jpg" -o "$w/clean.jpg" --gabor-reject --angle 30 --period 9 --sigma 0.01 --dc-radius 1
  check "the output is a JPEG" [ "$(head -c 3 "$w/clean.jpg" | od -An -tx1 | tr -d ' ')" = ffd8ff ]
  "$helper" grey "$w/clean.jpg" "$w/clean-jpg.pgm"
  read -r _ removed _ away _ _ <<< "$("$helper" reject "$w/orig.pgm" "$w/striped.pgm" "$w/clean-jpg.pgm" 30 9 0.05)"
  echo "gabor reject through JPEG (quality 95 twice): stripe energy removed $removed, RMS away from the stripes $away"
  check "through JPEG, at least 90% of the stripes removed ($removed)" awk_true 'r >= 0.90' -v r="$removed"
  check "through JPEG, within 3 grey levels RMS away from the stripes ($away)" awk_true 'a <= 3' -v a="$away"
  "$helper" colourise "$w/striped.pgm" "$w/striped-c.jpg" tint
  expect_ok "colour jpeg" "$kx" filter "$w/striped-c.jpg" -o "$w/clean-c.jpg" --gabor-reject --angle 30 --period 9 --sigma 0.01 --dc-radius 1
  "$helper" channel "$w/clean-c.jpg" 0 "$w/clean-c0.pgm"
  read -r _ removed _ away _ _ <<< "$("$helper" reject "$w/orig.pgm" "$w/striped.pgm" "$w/clean-c0.pgm" 30 9 0.05)"
  echo "colour JPEG, red channel: stripe energy removed $removed, RMS away from the stripes $away"
  check "colour JPEG: at least 90% of the stripes removed ($removed)" awk_true 'r >= 0.90' -v r="$removed"
  check "colour JPEG: within 3 grey levels RMS away from the stripes ($away)" awk_true 'a <= 3' -v a="$away"
  "$kx" filter "$w/striped.jpg" -o "$w/q30.jpg" --band-pass --quality 30 > /dev/null 2>&1
  "$kx" filter "$w/striped.jpg" -o "$w/q95.jpg" --band-pass > /dev/null 2>&1
  check "--quality 30 writes a smaller file than the default" [ "$(wc -c < "$w/q30.jpg")" -lt "$(wc -c < "$w/q95.jpg")" ]
  expect_one_error "quality for PNG" "--quality: used only for .jpg/.jpeg outputs" "$w/x.png" \
    "$kx" filter "$w/striped.jpg" -o "$w/x.png" --band-pass --quality 80
  expect_one_error "quality range" "--quality: expects a number from 1 to 100" "$w/x.jpg" \
    "$kx" filter "$w/striped.jpg" -o "$w/x.jpg" --band-pass --quality 0
  head -c $(( $(wc -c < "$w/striped.jpg") / 2 )) "$w/striped.jpg" > "$w/cut.jpg"
  expect_one_error "truncated jpeg" "cut.jpg: corrupt JPEG" "$w/x.png" "$kx" filter "$w/cut.jpg" -o "$w/x.png" --band-pass
  # a 16-bit result cannot be a JPEG: refused, and no file is left
  expect_one_error "16-bit to jpeg" "JPEG holds 8-bit images only" "$w/x.jpg" "$kx" filter "$w/gray16.pgm" -o "$w/x.jpg" --band-pass
else
  echo "note: built without libjpeg, JPEG checks skipped"
fi
finish
