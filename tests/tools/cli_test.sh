#!/usr/bin/env bash
# Runs the kxfreq tool as a user would and checks what it prints and writes.
#   cli_test.sh KXFREQ MAKE_TEST_IMAGES
set -uo pipefail
. "$(dirname "$0")/cli_lib.sh"

# help and version
expect_ok "help" "$kx" --help
grep -q "Commands:" "$work/out.txt" && pass || fail "help lists the commands"
expect_ok "filter help" "$kx" filter --help
grep -q -- "--band-reject" "$work/out.txt" && pass || fail "filter help lists the filters"
expect_ok "version" "$kx" --version
grep -qE "^kxfreq [0-9]+\.[0-9]+\.[0-9]+$" "$work/out.txt" && pass || fail "version line"

# demo: pictures on disk, the scratch's contrast improved
expect_ok "demo" "$kx" demo --out "$work/demo"
for name in input spectrum filter result overview; do
  ls "$work/demo/$name".p[gn][mg] > /dev/null 2>&1 && pass || fail "demo wrote $name"
done
read -r before after <<< "$(sed -n 's/.*background: \([-0-9.e]*\) -> \([-0-9.e]*\) .*/\1 \2/p' "$work/out.txt")"
if [ -n "${after:-}" ] && awk -v a="$after" -v b="$before" 'BEGIN { exit !(a > 3 * b && a > 3) }'; then pass; else fail "demo contrast $before -> $after"; fi

# spectrum
expect_ok "spectrum pgm" "$kx" spectrum "$work/gray8.pgm" -o "$work/spectrum.pgm"
head -c 2 "$work/spectrum.pgm" | grep -q P5 && pass || fail "spectrum writes a PGM"
grep -q "128 64" "$work/spectrum.pgm" && pass || fail "spectrum has the padded size"
expect_ok "spectrum phase uncentered" "$kx" spectrum "$work/gray16.pgm" -o "$work/phase.pgm" --part phase --uncentered
expect_ok "spectrum range" "$kx" spectrum "$work/gray8.pgm" -o "$work/range.pgm" --part real --map range --low -1000 --high 1000

# roundtrip: at most one grey level for 8 bits
expect_ok "roundtrip" "$kx" roundtrip "$work/gray8.pgm" -o "$work/rt.pgm"
grep -qE "maximum difference: [01] grey level" "$work/out.txt" && pass || fail "roundtrip difference: $(cat "$work/out.txt")"
expect_ok "roundtrip ascii" "$kx" roundtrip "$work/ascii8.pgm" -o "$work/rt-ascii.pgm"

# filter: every kind, 8 and 16 bits; the output keeps the bit depth
for kind in --gabor --gabor-reject --band-pass --band-reject; do
  case $kind in --gabor*) gabor_args="--sigma 0.02,0.01 --angle 30";; *) gabor_args="--sigma 0.02";; esac
  expect_ok "filter $kind 8" "$kx" filter "$work/gray8.pgm" -o "$work/f8$kind.pgm" $kind --frequency 0.12 --sigma 0.02 --dc-radius 1
  grep -q "^255$" "$work/f8$kind.pgm" && pass || fail "$kind keeps 8 bits"
  expect_ok "filter $kind 16" "$kx" filter "$work/gray16.pgm" -o "$work/f16$kind.pgm" $kind --frequency 0.12 $gabor_args --scale
  grep -q "^65535$" "$work/f16$kind.pgm" && pass || fail "$kind keeps 16 bits"
done
if [ $has_png = 1 ]; then
  expect_ok "spectrum png" "$kx" spectrum "$work/gray8.png" -o "$work/spectrum.png"
  expect_ok "filter png 8" "$kx" filter "$work/gray8.png" -o "$work/f8.png" --band-reject --frequency 0.13
  expect_ok "filter png 16" "$kx" filter "$work/gray16.png" -o "$work/f16.png" --gabor --frequency 0.1
  expect_ok "roundtrip png" "$kx" roundtrip "$work/gray8.png" -o "$work/rt.png"
  grep -qE "maximum difference: [01] grey level" "$work/out.txt" && pass || fail "png roundtrip difference"
fi

# a batch on two threads
expect_ok "batch" "$kx" filter "$work/gray8.pgm" "$work/second8.pgm" "$work/third8.pgm" -o "$work/batch/" --band-pass --frequency 0.1 --jobs 2
for name in gray8 second8 third8; do [ -f "$work/batch/$name.pgm" ] && pass || fail "batch wrote $name"; done
grep -q "filtered 3 of 3 images" "$work/err.txt" && pass || fail "batch summary"
# batch output equals one-by-one output
expect_ok "single" "$kx" filter "$work/second8.pgm" -o "$work/single.pgm" --band-pass --frequency 0.1
cmp -s "$work/single.pgm" "$work/batch/second8.pgm" && pass || fail "batch and single runs differ"

# --save then --load gives identical output
expect_ok "save" "$kx" filter "$work/gray8.pgm" -o "$work/saved.pgm" --gabor-reject --frequency 0.2 --angle 45 --save "$work/f.kxf"
expect_ok "load" "$kx" filter "$work/gray8.pgm" -o "$work/loaded.pgm" --load "$work/f.kxf"
cmp -s "$work/saved.pgm" "$work/loaded.pgm" && pass || fail "--save/--load outputs differ"

# bad input: one clear line, non-zero status, no output
expect_error "missing file" "cannot open" "$work/x.pgm" "$kx" filter "$work/none.pgm" -o "$work/x.pgm" --gabor
printf 'P5\n10 10\n255\nabc' > "$work/trunc.pgm"
expect_error "truncated pgm" "truncated PGM" "$work/x.pgm" "$kx" roundtrip "$work/trunc.pgm" -o "$work/x.pgm"
printf 'P5\n10 x\n255\n' > "$work/corrupt.pgm"
expect_error "corrupt pgm" "corrupt" "$work/x.pgm" "$kx" spectrum "$work/corrupt.pgm" -o "$work/x.pgm"
printf 'hello' > "$work/text.pgm"
expect_error "not an image" "not a PGM, PNG, TIFF or JPEG" "$work/x.pgm" "$kx" roundtrip "$work/text.pgm" -o "$work/x.pgm"
if [ $has_png = 1 ]; then
  size=$(wc -c < "$work/gray8.png")
  for cut in 8 30 100 $((size / 2)) $((size - 12)); do
    head -c "$cut" "$work/gray8.png" > "$work/cut.png"
    expect_error "truncated png at $cut" "PNG" "$work/x.pgm" "$kx" roundtrip "$work/cut.png" -o "$work/x.pgm"
  done
fi
expect_error "too large" "at most 2048 pixels in a side" "$work/x.pgm" "$kx" roundtrip "$work/big.pgm" -o "$work/x.pgm"
expect_error "bad frequency" "Frequency must be between 0.0 and 0.5." "$work/x.pgm" "$kx" filter "$work/gray8.pgm" -o "$work/x.pgm" --gabor --frequency 0.7
expect_error "bad sigma" "Sigma must be positive." "$work/x.pgm" "$kx" filter "$work/gray8.pgm" -o "$work/x.pgm" --band-pass --sigma 0
expect_error "wrong filter size" "does not fit this image" "$work/x.pgm" "$kx" filter "$work/small.pgm" -o "$work/x.pgm" --load "$work/f.kxf"
printf 'garbage' > "$work/bad.kxf"
expect_error "bad filter file" "not a valid filter file" "$work/x.pgm" "$kx" filter "$work/gray8.pgm" -o "$work/x.pgm" --load "$work/bad.kxf"
expect_error "unknown option" "unknown option '--bogus'" "$work/x.pgm" "$kx" filter "$work/gray8.pgm" -o "$work/x.pgm" --gabor --bogus
expect_error "two filters" "exactly one filter" "$work/x.pgm" "$kx" filter "$work/gray8.pgm" -o "$work/x.pgm" --gabor --band-pass
expect_error "unknown command" "unknown command" "$work/x.pgm" "$kx" frobnicate
expect_error "unknown format" "unknown image format" "$work/x.bmp" "$kx" roundtrip "$work/gray8.pgm" -o "$work/x.bmp"
# a batch with one bad image: the others are written, the status is non-zero
cp "$work/trunc.pgm" "$work/bad1.pgm"
if "$kx" filter "$work/gray8.pgm" "$work/bad1.pgm" -o "$work/mixed/" --band-pass > /dev/null 2> "$work/err.txt"; then
  fail "batch with a bad image succeeded"
else
  [ -f "$work/mixed/gray8.pgm" ] && [ ! -e "$work/mixed/bad1.pgm" ] && grep -q "1 failed" "$work/err.txt" && pass || fail "batch with a bad image"
fi

finish
