#!/usr/bin/env bash
# Runs the kxfreq tool on real and synthetic images as a user would: output
# modes without wrap-around, the two-lobe Gabor reject on a photograph,
# mirror padding, TIFF, regions of large images within a memory budget,
# tiny files announcing huge images, batch clashes, refused options and the
# JSON report.
#   cli_images_test.sh KXFREQ HELPER DATA_DIR
set -uo pipefail
. "$(dirname "$0")/cli_lib.sh"
has_tiff=0
"$helper" tiff "$work" && has_tiff=1
w=$work

# ---- 1. output modes: nothing wraps
# A bright square rings above 255 and below 0 under a band-reject. The 16-bit
# copy (raised by 1000) shows the true values; the 8-bit result must be them
# clamped, not wrapped.
args=(--band-reject --frequency 0.06 --sigma 0.01 --plateau 0.02 --dc-radius 1)
expect_ok "no-wrap 8" "$kx" filter "$w/square8.pgm" -o "$w/sq8.pgm" "${args[@]}"
expect_ok "no-wrap 16" "$kx" filter "$w/square16.pgm" -o "$w/sq16.pgm" "${args[@]}"
read -r _ above _ below _ mismatches <<< "$("$helper" nowrap "$w/sq8.pgm" "$w/sq16.pgm" 1000)"
echo "no-wrap: $above pixels above 255, $below below 0, $mismatches not clamped"
check "the filtered square exceeds 255 ($above) and goes below 0 ($below)" awk_true 'a > 100 && b > 100' -v a="$above" -v b="$below"
check "every 8-bit pixel is the true value clamped ($mismatches differ)" [ "$mismatches" = 0 ]
# signed: band-pass around mid-grey; magnitude: the modulus, never negative
expect_ok "signed" "$kx" filter "$w/square8.pgm" -o "$w/signed.pgm" --band-pass --frequency 0.06 --sigma 0.01 --plateau 0.02 --output signed
read -r _ _ _ lo hi mean <<< "$("$helper" info "$w/signed.pgm")"
check "signed band-pass sits around 128 (mean $mean, $lo..$hi)" awk_true 'm > 124 && m < 132 && l < 100 && h > 156' -v m="$mean" -v l="$lo" -v h="$hi"
expect_ok "real band-pass" "$kx" filter "$w/square8.pgm" -o "$w/real.pgm" --band-pass --frequency 0.06 --sigma 0.01 --plateau 0.02
read -r _ _ _ lo _ _ <<< "$("$helper" info "$w/real.pgm")"
check "real band-pass clamps its negative half to 0 (min $lo)" [ "$lo" = 0 ]
expect_ok "magnitude" "$kx" filter "$w/square8.pgm" -o "$w/mag.pgm" --band-pass --frequency 0.06 --sigma 0.01 --plateau 0.02 --output magnitude
read -r _ _ _ _ _ magmean <<< "$("$helper" info "$w/mag.pgm")"
check "magnitude is the modulus (mean $magmean above the real part's)" awk_true 'm > 10' -v m="$magmean"

# ---- 2. the Gabor reject removes both lobes of a stripe pattern on a photograph
# (the photograph is a PNG; without libpng a synthetic scene stands in)
photo=$data/photo.png
if [ $has_png = 0 ]; then
  "$helper" big "$w/scene.pgm" 300 240 || fail "scene"
  photo=$w/scene.pgm
  echo "note: built without libpng, a synthetic scene replaces the photograph"
fi
"$helper" stripes "$photo" "$w/orig.pgm" "$w/striped.pgm" 30 9 15 || fail "stripes"
for plateau in 0 0.01; do
  expect_ok "gabor reject $plateau" "$kx" filter "$w/striped.pgm" -o "$w/rej.pgm" --gabor-reject --angle 30 --period 9 --sigma 0.01 --plateau $plateau --dc-radius 1
  read -r _ removed _ away _ all <<< "$("$helper" reject "$w/orig.pgm" "$w/striped.pgm" "$w/rej.pgm" 30 9 0.05)"
  echo "gabor reject (plateau $plateau): stripe energy removed $removed, RMS away from the stripes $away (all $all)"
  check "at least 90% of the stripe energy removed ($removed)" awk_true 'r >= 0.90' -v r="$removed"
  check "within 2 grey levels RMS away from the stripes ($away)" awk_true 'a <= 2' -v a="$away"
done
# the angle convention: +30 degrees passes these stripes, -30 does not
"$kx" filter "$w/striped.pgm" -o "$w/g30.pgm" --gabor --angle 30 --period 9 --output magnitude > /dev/null
"$kx" filter "$w/striped.pgm" -o "$w/gm30.pgm" --gabor --angle -30 --period 9 --output magnitude > /dev/null
read -r _ _ _ _ _ m30 <<< "$("$helper" info "$w/g30.pgm")"
read -r _ _ _ _ _ mm30 <<< "$("$helper" info "$w/gm30.pgm")"
echo "gabor envelope of 15-level stripes at 30 degrees: $m30 at +30, $mm30 at -30"
check "+30 degrees finds the stripes ($m30 vs $mm30)" awk_true 'a > 10 && a < 20 && b < 3' -v a="$m30" -v b="$mm30"
# --period P is --frequency 1/P
expect_ok "frequency" "$kx" filter "$w/striped.pgm" -o "$w/byfreq.pgm" --gabor-reject --angle 30 --frequency 0.125
expect_ok "period" "$kx" filter "$w/striped.pgm" -o "$w/byperiod.pgm" --gabor-reject --angle 30 --period 8
check "--period 8 equals --frequency 0.125" cmp -s "$w/byfreq.pgm" "$w/byperiod.pgm"

# ---- 3. padding: mirror keeps the borders, zero darkens them
lowpass=(--band-pass --frequency 0 --plateau 0.05 --sigma 0.01)
expect_ok "mirror" "$kx" filter "$w/flat.pgm" -o "$w/mirror.pgm" "${lowpass[@]}"
read -r _ top _ bottom _ left _ right _ interior <<< "$("$helper" edges "$w/mirror.pgm")"
echo "low-pass, mirror padding: rows $top/$bottom, columns $left/$right, interior $interior"
check "mirror: edge rows and columns within 2 of the interior" awk_true \
  '(t-i)^2 < 4 && (b-i)^2 < 4 && (l-i)^2 < 4 && (r-i)^2 < 4' -v t="$top" -v b="$bottom" -v l="$left" -v r="$right" -v i="$interior"
expect_ok "zero" "$kx" filter "$w/flat.pgm" -o "$w/zero.pgm" "${lowpass[@]}" --pad zero
read -r _ top _ bottom _ left _ right _ interior <<< "$("$helper" edges "$w/zero.pgm")"
echo "low-pass, zero padding: rows $top/$bottom, columns $left/$right, interior $interior"
check "zero padding darkens the bottom row and right column" awk_true 'i - b > 20 && i - r > 20' -v b="$bottom" -v r="$right" -v i="$interior"

# ---- 4. --transfer: a painted gain image
expect_ok "transfer" "$kx" filter "$w/flat.pgm" -o "$w/transfer.pgm" --transfer "$w/gain128x64.pgm"
read -r _ top _ bottom _ left _ right _ interior <<< "$("$helper" edges "$w/transfer.pgm")"
check "transfer low-pass keeps the level ($interior)" awk_true '(i-203)^2 < 4 && (r-203)^2 < 4' -v i="$interior" -v r="$right"
expect_error "transfer of the wrong size" "--transfer: $w/gain128x64.pgm is 128 x 64 but this image's spectrum is 32 x 32" "$w/x.pgm" "$kx" filter "$w/small.pgm" -o "$w/x.pgm" --transfer "$w/gain128x64.pgm"

# ---- 5. TIFF
if [ $has_tiff = 1 ]; then
  for f in strips8 tiles8; do
    expect_ok "$f read" "$kx" roundtrip "$w/$f.tif" -o "$w/$f-rt.pgm"
    expect_ok "ref8 read" "$kx" roundtrip "$w/ref8.pgm" -o "$w/ref8-rt.pgm"
    check "$f reads the same pixels as the PGM" cmp -s "$w/$f-rt.pgm" "$w/ref8-rt.pgm"
  done
  for f in strips16 tiles16; do
    expect_ok "$f read" "$kx" roundtrip "$w/$f.tif" -o "$w/$f-rt.pgm"
    expect_ok "ref16 read" "$kx" roundtrip "$w/ref16.pgm" -o "$w/ref16-rt.pgm"
    check "$f reads the same pixels as the PGM" cmp -s "$w/$f-rt.pgm" "$w/ref16-rt.pgm"
  done
  for bits in 8 16; do
    expect_ok "tiff $bits round trip" "$kx" roundtrip "$w/tiles$bits.tif" -o "$w/rt$bits.tif"
    grep -qE "maximum difference: [01] grey level" "$w/out.txt" && pass || fail "tiff $bits round trip: $(cat "$w/out.txt")"
    read -r tw th tb _ <<< "$("$helper" info "$w/rt$bits.tif")"
    check "tiff $bits round trip keeps TIFF, size and depth ($tw x $th, $tb bits)" [ "$(head -c 2 "$w/rt$bits.tif")$tb" = "II$bits" ]
  done
  # streamed into tiled filtering (tiles of 64 for these small files): TIFF in
  # tiles or strips gives the PGM's result, bit for bit
  expect_ok "ref16 tiled" "$kx" filter "$w/ref16.pgm" -o "$w/ref16-tiled.pgm" --band-pass --tile 64 --margin 8
  for f in strips16 tiles16; do
    expect_ok "$f streamed" "$kx" filter "$w/$f.tif" -o "$w/$f-tiled.pgm" --band-pass --tile 64 --margin 8
    check "$f streamed through tiles equals the PGM's result" cmp -s "$w/$f-tiled.pgm" "$w/ref16-tiled.pgm"
  done
  # the tiled file's region, read tile row by tile row
  expect_ok "tiff region" "$kx" roundtrip "$w/tiles16.tif" -o "$w/part.tif" --region 13,9,40,30
  expect_ok "pgm region" "$kx" roundtrip "$w/ref16.pgm" -o "$w/part.pgm" --region 13,9,40,30
  expect_ok "part tif to pgm" "$kx" roundtrip "$w/part.tif" -o "$w/part-from-tif.pgm"
  expect_ok "part pgm" "$kx" roundtrip "$w/part.pgm" -o "$w/part-from-pgm.pgm"
  check "a region of a tiled TIFF equals the same region of the PGM" cmp -s "$w/part-from-tif.pgm" "$w/part-from-pgm.pgm"
  # colour TIFF: each channel filtered, with a note; converted to grey with a
  # note when asked; a batch keeps each input's format
  expect_ok "rgb tiff" "$kx" filter "$w/rgb8.tif" -o "$w/rgb-out.tif" --band-reject
  grep -q "each of its 3 channels filtered alone" "$w/err.txt" && pass || fail "rgb tiff note: $(cat "$w/err.txt")"
  expect_ok "rgb tiff as grey" "$kx" filter "$w/rgb8.tif" -o "$w/rgb-grey.tif" --band-reject --color grey
  grep -q "colour image converted to grey" "$w/err.txt" && pass || fail "rgb tiff grey note: $(cat "$w/err.txt")"
  expect_ok "mixed batch" "$kx" filter "$w/strips16.tif" "$w/gray8.pgm" -o "$w/formats/" --band-pass
  read -r _ _ tb _ <<< "$("$helper" info "$w/formats/strips16.tif")"
  check "a batch keeps the input's format and depth" [ "$(head -c 2 "$w/formats/strips16.tif")$tb$(head -c 2 "$w/formats/gray8.pgm")" = "II16P5" ]
  expect_ok "tif to png" "$kx" filter "$w/strips16.tif" -o "$w/from-tif.pgm" --band-pass
  check "-o names another format" [ "$(head -c 2 "$w/from-tif.pgm")" = "P5" ]
  printf 'II*\0\10\0\0\0\1\0' > "$w/cut.tif"
  expect_error "truncated tiff" "TIFF" "$w/x.pgm" "$kx" roundtrip "$w/cut.tif" -o "$w/x.pgm"
else
  echo "note: built without libtiff, TIFF checks skipped"
fi

# ---- 6. --region on a 3000 x 2500 image, within 300 MB (a sanitizer build's
# shadow memory and quarantine come on top: CTest passes its own limit)
region_mb=${KXFREQ_REGION_MEMORY_MB:-300}
"$helper" big "$w/big.pgm" 3000 2500 || fail "big image"
# (filter, spectrum and peaks take any size; roundtrip is one transform)
expect_error "large image without a region" "use --region" "$w/x.pgm" "$kx" roundtrip "$w/big.pgm" -o "$w/x.pgm"
grep -q "3000 x 2500; at most 2048 pixels" "$w/err.txt" && pass || fail "the limit is named: $(cat "$w/err.txt")"
big_files=("$w/big.pgm")
[ $has_png = 1 ] && { "$helper" big "$w/big.png" 3000 2500; big_files+=("$w/big.png"); }
[ $has_tiff = 1 ] && { "$helper" big "$w/big.tif" 3000 2500; big_files+=("$w/big.tif"); }
for f in "${big_files[@]}"; do
  if /usr/bin/time -v "$kx" filter "$f" -o "$w/region.pgm" --region 900,800,2048,1600 --band-reject --frequency 0.1 \
       > /dev/null 2> "$w/time.txt"; then
    kb=$(sed -n 's/.*Maximum resident set size (kbytes): //p' "$w/time.txt")
    echo "--region 2048 x 1600 of a 3000 x 2500 ${f##*.}: peak memory $((kb / 1024)) MB"
    check "region of ${f##*.} under $region_mb MB ($kb kB)" awk_true 'k > 0 && k < m * 1024' -v k="$kb" -v m="$region_mb"
    read -r rw rh _ <<< "$("$helper" info "$w/region.pgm")"
    check "the region's size ($rw x $rh)" [ "$rw x $rh" = "2048 x 1600" ]
  else
    fail "region of $f: $(tail -3 "$w/time.txt")"
  fi
done
# the region holds the pixels at that place
expect_ok "corner region" "$kx" roundtrip "$w/big.pgm" -o "$w/corner.pgm" --region 2990,2490,10,10
expect_ok "corner info" "$helper" crop "$w/big.pgm" 2990 2490 10 10 "$w/corner-ref.pgm"
check "a region's pixels" cmp -s "$w/corner.pgm" "$w/corner-ref.pgm"
expect_error "region outside" "does not lie inside the 3000 x 2500 image" "$w/x.pgm" "$kx" roundtrip "$w/big.pgm" -o "$w/x.pgm" --region 2000,2000,1001,100
expect_error "region too large" "at most 2048 pixels" "$w/x.pgm" "$kx" roundtrip "$w/big.pgm" -o "$w/x.pgm" --region 0,0,2049,100

# ---- 7. tiny files announcing huge images: refused at once, in little memory
"$helper" crafted "$w" || fail "crafted"
crafted=("$w/huge.pgm")
[ $has_png = 1 ] && crafted+=("$w/huge8.png" "$w/huge16.png")
[ $has_tiff = 1 ] && crafted+=("$w/huge.tif")
for f in "${crafted[@]}"; do
  for region in "" "--region=0,0,2048,2048"; do
    rm -f "$w/x.pgm"
    if /usr/bin/time -v "$kx" roundtrip "$f" -o "$w/x.pgm" $region > /dev/null 2> "$w/time.txt"; then
      fail "$(basename "$f") $region was accepted"
      continue
    fi
    kb=$(sed -n 's/.*Maximum resident set size (kbytes): //p' "$w/time.txt")
    secs=$(sed -n 's/.*Elapsed (wall clock) time (h:mm:ss or m:ss): //p' "$w/time.txt" | awk -F: '{ print $NF + 60 * $(NF-1) }')
    message=$(grep "kxfreq: error" "$w/time.txt")
    echo "$(basename "$f") ($(wc -c < "$f") bytes) $region: $((kb / 1024)) MB, ${secs} s: $message"
    check "$(basename "$f") $region refused in under 64 MB and 2 s ($kb kB, $secs s)" awk_true 'k < 64 * 1024 && s < 2' -v k="$kb" -v s="$secs"
    check "$(basename "$f") $region: a clear message" grep -qE "image is 65535 x 65535|truncated|corrupt|Not enough" <<< "$message"
    check "$(basename "$f") $region: no output" [ ! -e "$w/x.pgm" ]
  done
done

# ---- 8. batch
mkdir -p "$w/a" "$w/b"
cp "$w/gray8.pgm" "$w/a/same.pgm"
cp "$w/second8.pgm" "$w/b/same.pgm"
expect_error "clash" "outputs clash: $w/a/same.pgm and $w/b/same.pgm would both be written to $w/clash/same.pgm" "$w/clash" \
  "$kx" filter "$w/a/same.pgm" "$w/b/same.pgm" -o "$w/clash/" --band-pass
check "the clash is one line" [ "$(wc -l < "$w/err.txt")" = 1 ]
expect_error "several inputs to a file" "-o: with several inputs, -o must be a directory" "$w/file.pgm" \
  "$kx" filter "$w/gray8.pgm" "$w/second8.pgm" -o "$w/file.pgm" --band-pass
expect_ok "batch of four on two threads" "$kx" filter "$w/gray8.pgm" "$w/second8.pgm" "$w/third8.pgm" "$w/small.pgm" -o "$w/out/" --band-pass --jobs 2
check "one line per finished file" [ "$(grep -cE "^$w/out/[a-z0-9]+\.pgm \([0-9.]+ s\)$" "$w/out.txt")" = 4 ]
check "the summary" grep -q "filtered 4 of 4 images" "$w/err.txt"

# ---- 9. the JSON report
cp "$w/gray8.pgm" "$w/report-ok.pgm"
printf 'P5\n10 10\n255\nabc' > "$w/report-bad.pgm"
"$kx" filter "$w/report-ok.pgm" "$w/report-bad.pgm" -o "$w/rep/" --gabor --angle 45 --frequency 0.2 --sigma 0.02,0.01 --json "$w/report.json" > /dev/null 2>&1
check "a batch with a failure exits non-zero" [ $? != 0 ]
if /usr/bin/python3 - "$w/report.json" "$w" <<'EOF'
import json, sys
r = json.load(open(sys.argv[1]))
w = sys.argv[2]
ok, bad = r["inputs"]
assert ok["input"] == w + "/report-ok.pgm" and ok["output"] == w + "/rep/report-ok.pgm", ok
assert ok["width"] == 100 and ok["height"] == 60 and ok["status"] == "ok" and ok["seconds"] >= 0, ok
f = ok["filter"]
assert f["kind"] == "gabor" and f["frequency"] == 0.2 and f["angle"] == 45 and f["sigma"] == [0.02, 0.01], f
assert f["plateau"] == [0, 0] and f["dc_radius"] == 0 and f["output"] == "real" and f["pad"] == "mirror", f
assert bad["status"] == "error" and "truncated PGM" in bad["error"] and bad["output"] is None, bad
assert r["filtered"] == 1 and r["failed"] == 1, r
EOF
then pass; else fail "json report: $(cat "$w/report.json")"; fi

# ---- 10. refused options: the message names the option; no output
i8=$w/gray8.pgm
x=$w/x.pgm
expect_error "angle with a band filter" "--angle: not used by --band-pass" "$x" "$kx" filter "$i8" -o "$x" --band-pass --angle 30
expect_error "two sigmas with a band filter" "--sigma: --band-reject takes one value" "$x" "$kx" filter "$i8" -o "$x" --band-reject --sigma 0.01,0.02
expect_error "two plateaus with a band filter" "--plateau: --band-pass takes one value" "$x" "$kx" filter "$i8" -o "$x" --band-pass --plateau 0.01,0.02
"$kx" filter "$i8" -o "$w/saved.pgm" --gabor --save "$w/f.kxf" > /dev/null 2>&1
expect_error "frequency with --load" "--frequency: not used with --load" "$x" "$kx" filter "$i8" -o "$x" --load "$w/f.kxf" --frequency 0.2
expect_error "angle with --transfer" "--angle: not used with --transfer" "$x" "$kx" filter "$w/flat.pgm" -o "$x" --transfer "$w/gain128x64.pgm" --angle 3
expect_error "save with --transfer" "--save: not used with --transfer" "$x" "$kx" filter "$w/flat.pgm" -o "$x" --transfer "$w/gain128x64.pgm" --save "$w/t.kxf"
expect_error "low without range" "--low: used only with --map range" "$x" "$kx" spectrum "$i8" -o "$x" --low 1
expect_error "high without range" "--high: used only with --map range" "$x" "$kx" spectrum "$i8" -o "$x" --map log --high 1
expect_error "inverted range" "--low: the range is inverted" "$x" "$kx" spectrum "$i8" -o "$x" --part real --map range --low 5 --high 1
expect_error "range without high" "--high: --map range needs both" "$x" "$kx" spectrum "$i8" -o "$x" --part real --map range --low 5
expect_error "angle inf" "--angle: expects a finite number, not 'inf'" "$x" "$kx" filter "$i8" -o "$x" --gabor --angle inf
expect_error "sigma nan" "--sigma: expects a finite number, not 'nan'" "$x" "$kx" filter "$i8" -o "$x" --gabor --sigma nan
expect_error "frequency 1e999" "--frequency: expects a finite number" "$x" "$kx" filter "$i8" -o "$x" --gabor --frequency 1e999
expect_error "dc radius reject" "--dc-radius: DC Protection Radius cannot be negative." "$x" "$kx" filter "$i8" -o "$x" --band-reject --dc-radius -1
expect_error "dc radius pass" "--dc-radius: DC Removal Radius cannot be negative." "$x" "$kx" filter "$i8" -o "$x" --gabor --dc-radius -1
expect_error "frequency range" "--frequency: Frequency must be between 0.0 and 0.5." "$x" "$kx" filter "$i8" -o "$x" --band-pass --frequency 0.7
expect_error "sigma zero" "--sigma: Sigma must be positive." "$x" "$kx" filter "$i8" -o "$x" --band-pass --sigma 0
expect_error "gabor sigma zero" "--sigma: Sigma values must be positive." "$x" "$kx" filter "$i8" -o "$x" --gabor --sigma 0.01,0
expect_error "plateau negative" "--plateau: Plateau cannot be negative." "$x" "$kx" filter "$i8" -o "$x" --band-reject --plateau -0.01
expect_error "period below 2" "--period: must be at least 2 pixels" "$x" "$kx" filter "$i8" -o "$x" --gabor --period 1.5
expect_error "period zero" "--period: must be positive" "$x" "$kx" filter "$i8" -o "$x" --gabor --period 0
expect_error "period and frequency" "--period: give --frequency or --period" "$x" "$kx" filter "$i8" -o "$x" --gabor --period 8 --frequency 0.1
expect_error "output mode" "--output: expects real, signed or magnitude, not 'bogus'" "$x" "$kx" filter "$i8" -o "$x" --gabor --output bogus
expect_error "pad" "--pad: expects zero or mirror, not 'edge'" "$x" "$kx" filter "$i8" -o "$x" --gabor --pad edge
expect_error "spectrum pad" "--pad: expects zero or mirror" "$x" "$kx" spectrum "$i8" -o "$x" --pad none
expect_error "region syntax" "--region: expects" "$x" "$kx" filter "$i8" -o "$x" --gabor --region 1,2,3
expect_error "region size" "--region: width and height must be at least 1" "$x" "$kx" roundtrip "$i8" -o "$x" --region 1,2,0,3
expect_error "jobs" "--jobs: expects a number from 1 to 256" "$x" "$kx" filter "$i8" -o "$x" --gabor --jobs 0
expect_error "repeated" "--angle: given more than once" "$x" "$kx" filter "$i8" -o "$x" --gabor --angle 1 --angle 2
expect_error "flag with a value" "--scale: takes no value" "$x" "$kx" filter "$i8" -o "$x" --gabor --scale=1
expect_error "missing value" "--frequency: needs a value" "$x" "$kx" filter "$i8" -o "$x" --gabor --frequency
expect_error "part" "--part: expects magnitude, phase, real or imaginary" "$x" "$kx" spectrum "$i8" -o "$x" --part size
expect_error "auto map of the phase" "--map: auto is for the magnitude only" "$x" "$kx" spectrum "$i8" -o "$x" --part phase --map auto
expect_error "centered and uncentered" "--uncentered: excludes --centered" "$x" "$kx" spectrum "$i8" -o "$x" --centered --uncentered
expect_error "option of another command" "unknown option '--frequency'" "$x" "$kx" roundtrip "$i8" -o "$x" --frequency 0.1
expect_error "directory as input" "is a directory, not an image file" "$x" "$kx" roundtrip "$w/a" -o "$x"
expect_error "directory as filter" "--load: $w/a: is a directory" "$x" "$kx" filter "$i8" -o "$x" --load "$w/a"
expect_error "directory as gain" "--transfer: $w/a: cannot open: is a directory" "$x" "$kx" filter "$i8" -o "$x" --transfer "$w/a"

# ---- 11. spectrum: automatic contrast, peaks stand out
expect_ok "spectrum" "$kx" spectrum "$w/striped.pgm" -o "$w/spectrum.pgm"
read -r sw sh _ _ _ smean <<< "$("$helper" info "$w/spectrum.pgm")"
# the stripes' peak: 1/9 cycle per pixel at 30 degrees from the middle
px=$(awk -v w="$sw" 'BEGIN { printf "%d", w / 2 + w * cos(3.14159265 / 6) / 9 + 0.5 }')
py=$(awk -v h="$sh" 'BEGIN { printf "%d", h / 2 + h * sin(3.14159265 / 6) / 9 + 0.5 }')
peak=$("$helper" pixel "$w/spectrum.pgm" "$px" "$py")
echo "spectrum ($sw x $sh): stripe peak at ($px, $py) is $peak, mean $smean"
check "the stripes' peak stands out ($peak against a mean of $smean)" awk_true 'p > m + 90' -v p="$peak" -v m="$smean"
check "the background is neither black nor saturated (mean $smean)" awk_true 'm > 15 && m < 128' -v m="$smean"
# the demo's weave: its four peaks are white on a dark ground
"$kx" demo --out "$w/demo" > /dev/null || fail "demo"
demo_spectrum=$(ls "$w"/demo/spectrum.p[gn][mg])
for xy in "320 256" "192 256" "256 320" "256 192"; do
  v=$("$helper" pixel "$demo_spectrum" $xy)
  check "demo spectrum peak at ($xy) is white ($v)" awk_true 'v >= 250' -v v="$v"
done
read -r _ _ _ _ _ dmean <<< "$("$helper" info "$demo_spectrum")"
check "demo spectrum background is dark (mean $dmean)" awk_true 'm > 1 && m < 40' -v m="$dmean"
# --map range maps --low to 0 and --high to 255: a constant 64 x 64 image of
# 2 has a real part of 8192 at the zero frequency and 0 elsewhere
{ printf 'P5\n64 64\n255\n'; head -c 4096 /dev/zero | tr '\0' '\2'; } > "$w/two.pgm"
expect_ok "range map" "$kx" spectrum "$w/two.pgm" -o "$w/range.pgm" --part real --map range --low 100 --high 8192
check "--high maps to 255" [ "$("$helper" pixel "$w/range.pgm" 32 32)" = 255 ]
check "below --low maps to 0" [ "$("$helper" pixel "$w/range.pgm" 10 10)" = 0 ]
expect_ok "range map middle" "$kx" spectrum "$w/two.pgm" -o "$w/range2.pgm" --part real --map range --low 100 --high 16284
check "the middle of the range maps to 127" [ "$("$helper" pixel "$w/range2.pgm" 32 32)" = 127 ]
expect_ok "help" "$kx" filter --help
check "filter help states the angle convention" grep -q "clockwise on the screen" "$work/out.txt"
check "filter help comes from the option table" grep -q -- "--output MODE" "$work/out.txt"

finish
