#!/usr/bin/env bash
# Runs the kxfreq tool on images larger than one transform: the same result
# for any number of jobs and streamed or in memory, no seams between tiles,
# the stripes' frequency found on a large image, colour channels tiled alone,
# refused options and filters, failures that leave no file, and the peak
# memory of a 4096 x 30000 strip.
#   cli_large_test.sh KXFREQ HELPER DATA_DIR
# KXFREQ_SKIP_STRIP=1 leaves out the 4096 x 30000 strip (sanitizer builds).
set -uo pipefail
. "$(dirname "$0")/cli_lib.sh"
w=$work

# ---- 1. bit-identical for jobs 1, 2, 3 and for streamed against in memory
"$helper" strip "$w/large.pgm" 2600 2300 || fail "large image"
gabor=(--gabor-reject --angle 30 --period 9 --sigma 0.01 --dc-radius 1 --tile 512)
expect_ok "tiled jobs 1" "$kx" filter "$w/large.pgm" -o "$w/j1.pgm" "${gabor[@]}" --json "$w/report.json"
for jobs in 2 3; do
  expect_ok "tiled jobs $jobs" "$kx" filter "$w/large.pgm" -o "$w/j$jobs.pgm" "${gabor[@]}" --jobs $jobs
  check "jobs $jobs gives the result of jobs 1, bit for bit" cmp -s "$w/j1.pgm" "$w/j$jobs.pgm"
done
# a region of the whole image is read into memory and tiled there
expect_ok "in memory" "$kx" filter "$w/large.pgm" -o "$w/memory.pgm" "${gabor[@]}" --region 0,0,2600,2300
check "streamed equals in memory, bit for bit" cmp -s "$w/j1.pgm" "$w/memory.pgm"
if /usr/bin/python3 -c '
import json, sys
(i,) = json.load(open(sys.argv[1]))["inputs"]
assert i["status"] == "ok" and i["tile"] == 512 and i["margin"] > 0 and i["tiles"] >= 30, i
assert i["width"] == 2600 and i["height"] == 2300 and i["seconds"] > 0, i
print("report: tile", i["tile"], "margin", i["margin"], "tiles", i["tiles"])
' "$w/report.json"; then pass; else fail "tiled report: $(cat "$w/report.json")"; fi

# ---- 2. no seams: small tiles agree with large ones but for rounding
expect_ok "tiles of 2048" "$kx" filter "$w/large.pgm" -o "$w/t2048.pgm" --band-reject --frequency 0.111 --sigma 0.01 --tile 2048
expect_ok "tiles of 256" "$kx" filter "$w/large.pgm" -o "$w/t128.pgm" --band-reject --frequency 0.111 --sigma 0.01 --tile 256
read -r _ largest _ differing <<< "$("$helper" diff "$w/t2048.pgm" "$w/t128.pgm")"
echo "tiles of 256 against 2048: largest difference $largest, $differing pixels differ"
check "tiles of 256 and 2048 agree within 1 grey level ($largest)" awk_true 'l <= 1' -v l="$largest"

# ---- 3. the stripes are found on the large image, and removed
expect_ok "peaks of a large image" "$kx" peaks "$w/large.pgm" --max 1 --json
if /usr/bin/python3 -c '
import json, sys
r = json.load(open(sys.argv[1]))
(c,) = r["components"]
print("large image: component at", c["frequency"], "cycles per pixel,", c["angle"], "degrees")
assert abs(c["frequency"] - 1 / 9) < 0.002 and abs(c["angle"] - 30) < 1 and r["width"] == 2600, r
' "$w/out.txt"; then pass; else fail "large peaks: $(cat "$w/out.txt")"; fi
expect_ok "remove texture, large" "$kx" filter "$w/large.pgm" -o "$w/clean.pgm" --remove-texture --max 1 --tile 1024
expect_ok "peaks after" "$kx" peaks "$w/clean.pgm" --max 1
check "no component left after --remove-texture ($(cat "$w/out.txt"))" grep -q "no periodic components" "$w/out.txt"
expect_ok "spectrum of a large image" "$kx" spectrum "$w/large.pgm" -o "$w/spectrum.png"
read -r sw sh _ <<< "$("$helper" info "$w/spectrum.png")"
check "the large image's spectrum is the 1024 x 1024 average ($sw x $sh)" [ "$sw x $sh" = "1024 x 1024" ]

# ---- 4. colour: each channel streamed and tiled alone, alpha copied
if [ $has_png = 1 ]; then
  "$helper" crop "$w/large.pgm" 0 0 2040 300 "$w/wide.pgm"
  "$helper" colourise "$w/wide.pgm" "$w/wide.png" alpha
  expect_ok "large colour" "$kx" filter "$w/wide.png" -o "$w/wide-out.png" "${gabor[@]}"
  for c in 0 2; do
    "$helper" channel "$w/wide.png" $c "$w/win$c.pgm"
    "$kx" filter "$w/win$c.pgm" -o "$w/walone$c.pgm" "${gabor[@]}" > /dev/null
    "$helper" channel "$w/wide-out.png" $c "$w/wout$c.pgm"
    check "large colour: channel $c equals it tiled alone" cmp -s "$w/walone$c.pgm" "$w/wout$c.pgm"
  done
  "$helper" channel "$w/wide.png" 3 "$w/walpha-in.pgm"
  "$helper" channel "$w/wide-out.png" 3 "$w/walpha-out.pgm"
  check "large colour: alpha untouched" cmp -s "$w/walpha-in.pgm" "$w/walpha-out.pgm"
  # the luminance and texture removal hold the image in memory
  expect_ok "large colour, luminance" "$kx" filter "$w/wide.png" -o "$w/wide-lum.png" "${gabor[@]}" --color luminance
  expect_ok "large colour, texture" "$kx" filter "$w/wide.png" -o "$w/wide-tex.png" --remove-texture --max 1 --tile 512
  grep -q "found on its luminance and removed from each of its 3 channels" "$w/err.txt" && pass || fail "large texture note: $(cat "$w/err.txt")"
fi

# ---- 5. refused options and filters; failures leave no file
x=$w/x.pgm
expect_one_error "tile not a power of two" "--tile: Tile must be a power of two from 64 to 2048, not 100." "$x" \
  "$kx" filter "$w/large.pgm" -o "$x" --band-reject --tile 100
expect_one_error "tile too large" "--tile: Tile must be a power of two from 64 to 2048, not 4096." "$x" \
  "$kx" filter "$w/large.pgm" -o "$x" --band-reject --tile 4096
expect_one_error "margin too large" "--margin: A margin of 300 pixels leaves no room in a tile of 512: at most 255 fits." "$x" \
  "$kx" filter "$w/large.pgm" -o "$x" --band-reject --tile 512 --margin 300
expect_one_error "the filter's own margin too large for the tile" "leaves no room in a tile of 64" "$x" \
  "$kx" filter "$w/large.pgm" -o "$x" --band-reject --tile 64
"$kx" filter "$w/gray8.pgm" -o "$x" --band-reject --save "$w/small.kxf" > /dev/null
expect_one_error "a stored filter cannot be tiled" "cannot be cut into tiles" "$x" \
  "$kx" filter "$w/large.pgm" -o "$x" --load "$w/small.kxf"
expect_one_error "zero padding cannot be tiled" "--pad zero needs the image in one transform" "$x" \
  "$kx" filter "$w/large.pgm" -o "$x" --band-reject --pad zero
head -c 3000000 "$w/large.pgm" > "$w/cut.pgm"
expect_one_error "a cut large file" "truncated PGM pixel data" "$x" "$kx" filter "$w/cut.pgm" -o "$x" --band-reject
# stopped half-way: neither the output nor its temporary stays (SIGTERM: a
# background job of a script ignores SIGINT, and the tool leaves it so)
"$kx" filter "$w/large.pgm" -o "$w/interrupted.pgm" --band-reject --tile 128 --margin 20 > /dev/null 2>&1 &
pid=$!
for _ in $(seq 100); do [ -e "$w/interrupted.pgm.partial" ] && break; sleep 0.05; done
kill -TERM $pid; wait $pid; status=$?
check "the stopped run ends with SIGTERM's status ($status)" [ $status = 143 ]
check "no partial output after SIGTERM" bash -c "[ ! -e '$w/interrupted.pgm' ] && ! ls '$w/interrupted.pgm.partial' > /dev/null 2>&1"

# ---- 6. peak memory on a 4096 x 30000 strip, generated row by row
if [ "${KXFREQ_SKIP_STRIP:-0}" = 1 ]; then
  echo "note: the 4096 x 30000 strip is left out here"
else
  "$helper" strip "$w/strip.pgm" 4096 30000 || fail "strip"
  # Run on a terminal (script's), where a job this long draws a progress bar.
  run=("$kx" filter "$w/strip.pgm" -o "$w/strip-out.pgm" --gabor-reject --angle 30 --period 9)
  if command -v script > /dev/null; then
    script -qec "/usr/bin/time -v -o '$w/time.txt' ${run[*]}" "$w/terminal.txt" > /dev/null
  else
    /usr/bin/time -v -o "$w/time.txt" "${run[@]}" > /dev/null 2>&1
  fi
  if [ -s "$w/strip-out.pgm" ]; then
    kb=$(sed -n 's/.*Maximum resident set size (kbytes): //p' "$w/time.txt")
    secs=$(sed -n 's/.*Elapsed (wall clock) time (h:mm:ss or m:ss): //p' "$w/time.txt")
    echo "4096 x 30000 strip: peak $((kb / 1024)) MB, $secs"
    check "the strip is filtered in at most 256 MB ($((kb / 1024)) MB)" [ "$kb" -le $((256 * 1024)) ]
    read -r ow oh _ <<< "$("$helper" info "$w/strip-out.pgm" 2>/dev/null | head -1)"
    check "the strip's result is 4096 x 30000 ($ow x $oh)" [ "$ow x $oh" = "4096 x 30000" ]
    if [ -f "$w/terminal.txt" ]; then
      bars=$(tr '\r' '\n' < "$w/terminal.txt" | grep -c "tiles$")
      check "a progress bar on the terminal ($bars updates)" [ "$bars" -gt 0 ]
      check "the bar ends erased, the result line after it" grep -q "strip-out.pgm (" "$w/terminal.txt"
    fi
  else
    fail "strip: $(tail -3 "$w/time.txt")"
  fi
  rm -f "$w/strip.pgm" "$w/strip-out.pgm"
fi
finish
