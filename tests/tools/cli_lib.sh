# Helpers shared by the command-line tests; each sources it with its own
# arguments, KXFREQ HELPER [DATA_DIR] (the tool, make_test_images, the test
# images' folder). Makes a scratch directory $work (removed on exit) holding
# the standard test images, and counts passes and failures.
kx=$1
helper=$2
data=${3:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
passes=0

pass() { passes=$((passes + 1)); }
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
# check NAME CMD...: the command succeeds.
check() { local name=$1; shift; if "$@"; then pass; else fail "$name"; fi; }
# awk_true 'EXPR' VAR=VALUE...: EXPR holds.
awk_true() { local expr=$1; shift; awk "$@" "BEGIN { exit !($expr) }"; }

# expect_ok NAME CMD...: the command succeeds; its output is in $work/out.txt
# and $work/err.txt.
expect_ok() {
  local name=$1; shift
  if "$@" > "$work/out.txt" 2> "$work/err.txt"; then pass; else fail "$name: exit $? ($(cat "$work/err.txt"))"; fi
}

# expect_error NAME TEXT OUTPUT CMD...: the command fails with TEXT on
# standard error and leaves no OUTPUT (nor its temporary) behind.
expect_error() {
  local name=$1 text=$2 output=$3; shift 3
  rm -rf "$output"
  if "$@" > "$work/out.txt" 2> "$work/err.txt"; then
    fail "$name: succeeded"
  elif ! grep -qF -- "$text" "$work/err.txt"; then
    fail "$name: message '$(cat "$work/err.txt")' lacks '$text'"
  elif [ -e "$output" ] || ls "$output".partial > /dev/null 2>&1; then
    fail "$name: left $output behind"
  else
    pass
  fi
}

# expect_one_error NAME TEXT OUTPUT CMD...: expect_error, and the message is
# one line (a usage mistake may add the line pointing at --help), with nothing
# on standard output.
expect_one_error() {
  local before=$failures
  expect_error "$@"
  [ "$failures" != "$before" ] && return
  local lines
  lines=$(grep -cv "^Try 'kxfreq" "$work/err.txt")
  if [ "$lines" = 1 ] && [ ! -s "$work/out.txt" ]; then pass; else fail "$1: not one line: $(cat "$work/err.txt" "$work/out.txt")"; fi
}

# finish: the summary; the status tells whether everything passed.
finish() {
  echo "$passes passed, $failures failed"
  [ "$failures" = 0 ]
}

"$helper" "$work" || { echo "cannot make test images"; exit 1; }
has_png=0   # whether PNG files were made too
[ -f "$work/gray8.png" ] && has_png=1
