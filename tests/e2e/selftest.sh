#!/usr/bin/env bash
# The built-in self-test: refused without an APP_STORE folder in /tmp; with one, every
# labelled check passes, the movies land in that folder, and neither the user's
# settings nor the test settings' options and shortcuts are left changed. A check broken
# on purpose (part files that cannot be written) fails with its label and exit 1,
# without waiting out the checks that depend on it.
set -euo pipefail
source "$(dirname "$0")/lib/common.bash"

# selftest [VAR=VALUE...]: runs the self-test to its end; sets $status, $out and $err.
selftest() {
  set +e
  env "$@" "$LUMENVALE" --selftest >"$work/out" 2>"$work/err"
  status=$?
  set -e
  out=$(cat "$work/out")
  err=$(cat "$work/err")
}

selftest
[[ $status -eq 1 && "$err" == *"SELFTEST refused: set APP_STORE to a folder in /tmp"* ]] ||
  fail "without APP_STORE: status $status, said: $err"
selftest APP_STORE=/var/tmp/lumenvale-selftest-store
[[ $status -eq 1 && "$err" == *"SELFTEST refused"* ]] || fail "APP_STORE outside /tmp: status $status"
pass "refused without a test folder in /tmp"

store=$work/store
selftest APP_STORE="$store"
[[ $status -eq 0 ]] || fail "the self-test failed (status $status): $out $err"
checks=$(grep -c '^ok ' <<<"$out" || true)
[[ $checks -ge 12 ]] || fail "only $checks checks passed: $out"
! grep -q '^FAILED' <<<"$out" || fail "a check failed: $out"
grep -q '^SELFTEST passed: 0 of' <<<"$out" || fail "no summary: $out"
movies=$(find "$store" -maxdepth 1 -name '[!.]*.mp4' | wc -l)
[[ $movies -eq 2 ]] || fail "expected the two movies of the self-test in APP_STORE, found $movies"
for movie in "$store"/*.mp4; do
  ffprobe -v error -show_entries format=duration -of csv=p=0 "$movie" >/dev/null ||
    fail "$movie does not read back"
done
[[ ! -e "$XDG_CONFIG_HOME/app.lumenvale.Lumenvale.conf" ]] ||
  ! grep -q 'options\|hotkey' "$XDG_CONFIG_HOME/app.lumenvale.Lumenvale.conf" ||
  fail "the user's settings file was written"
test_settings=$XDG_CONFIG_HOME/app.lumenvale.Lumenvale.test.conf
! grep -q '^hotkey.screen' "$test_settings" || fail "the self-test left its shortcut stored"
! grep -q 'self-test microphone' "$test_settings" || fail "the self-test left its options stored"
pass "every check passed ($checks), two movies in APP_STORE, settings left as they were"

# Part files go to TMPDIR: a file there instead of a folder breaks recording.
touch "$work/not-a-folder"
started=$(date +%s)
selftest APP_STORE="$work/broken" TMPDIR="$work/not-a-folder"
took=$(($(date +%s) - started))
[[ $status -eq 1 ]] || fail "a broken recording still passed: $out"
grep -q '^FAILED record the screen: .' <<<"$out" || fail "the failing label is not printed: $out"
grep -q '^FAILED stop and save: not run, as “record the screen” failed' <<<"$out" ||
  fail "the checks that need the recording ran anyway: $out"
grep -q '^ok settings stored and read back' <<<"$out" || fail "independent checks did not run: $out"
grep -q '^SELFTEST FAILED' <<<"$out" || fail "no failing summary: $out"
[[ $took -lt 60 ]] || fail "the broken self-test took $took s"
pass "a broken check fails with its label and exit 1 in $took s"
