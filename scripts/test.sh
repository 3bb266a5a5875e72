#!/usr/bin/env bash
# Builds Lumenvale and runs every test: the core's unit tests, the media and
# application tests, the end-to-end runs (inside a private Xvfb + openbox +
# PulseAudio + D-Bus session) and the core's fuzzers (about 30 s each, under
# AddressSanitizer and UndefinedBehaviorSanitizer). Installs missing Debian
# packages first. Exits non-zero when anything fails.
#
#   scripts/test.sh                  everything
#   scripts/test.sh --no-fuzz        skip the fuzzers
#   scripts/test.sh --soak MINUTES   also the soak run (tests/soak/soak.sh) at the end
#   FUZZ_SECONDS=5 scripts/test.sh
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"

run_fuzzers=1
soak_minutes=0
while [[ $# -gt 0 ]]; do
  case $1 in
    --no-fuzz) run_fuzzers=0 ;;
    --soak) soak_minutes=${2:?--soak takes the minutes to run}; shift ;;
    *) echo "usage: scripts/test.sh [--no-fuzz] [--soak MINUTES]" >&2; exit 2 ;;
  esac
  shift
done
fuzz_seconds=${FUZZ_SECONDS:-30}
jobs=$(nproc)

bash scripts/deps.sh

echo "== Building (warnings are errors)"
cmake --preset ci >/dev/null
cmake --build --preset ci -j "$jobs"

echo "== Running the tests"
status=0
tests/session.sh ctest --preset ci -j 1 --timeout 600 || status=$?

if [[ $run_fuzzers -eq 1 ]]; then
  echo "== Fuzzing the core's decoders (${fuzz_seconds} s each)"
  cmake --preset fuzz >/dev/null
  cmake --build --preset fuzz -j "$jobs"
  fuzz_failed=0
  fuzz_passed=0
  for fuzzer in build/fuzz/fuzz/fuzz_*; do
    [[ -x "$fuzzer" ]] || continue
    name=$(basename "$fuzzer")
    work=build/fuzz/corpus-run/$name
    mkdir -p "$work"
    seeds=()
    [[ -d fuzz/corpus/$name ]] && seeds+=("fuzz/corpus/$name")
    if "$fuzzer" -max_total_time="$fuzz_seconds" -print_final_stats=0 -artifact_prefix="$work/" \
      "$work" "${seeds[@]}" >"$work.log" 2>&1; then
      echo "fuzz: $name ran clean"
      fuzz_passed=$((fuzz_passed + 1))
    else
      echo "fuzz: $name FAILED; its report:" >&2
      tail -n 40 "$work.log" >&2
      fuzz_failed=$((fuzz_failed + 1))
    fi
  done
  echo "fuzz: $fuzz_passed passed, $fuzz_failed failed"
  [[ $fuzz_failed -eq 0 ]] || status=1
fi

if [[ $soak_minutes -gt 0 ]]; then
  echo "== Soak: ${soak_minutes} minutes of hostile recording"
  LUMENVALE=$root/build/ci/Lumenvale/lumenvale tests/session.sh bash tests/soak/soak.sh "$soak_minutes" || status=1
fi

exit $status
