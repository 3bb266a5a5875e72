#!/usr/bin/env bash
# What the tray application costs while it waits: Lumenvale side by side, in one run,
# with a minimal Qt tray application (a QApplication whose QSystemTrayIcon has a
# one-row menu, built here from the few lines below) and with `sleep`, the floor.
# Prints figures and ratios; never part of the tests, nothing here judges them.
#
#   start-up  time from exec to the tray item registered with the desktop's watcher
#             (tests/e2e/lib/tray.py, which stamps each registration), median of 5
#             launches, each ended through its menu's Quit row
#   idle      over IDLE_SECONDS (60) after start-up has settled, the three running
#             at once: resident memory (VmRSS at the end, VmHWM), CPU time (utime +
#             stime from /proc/PID/stat, in clock ticks; and, finer, the time its
#             threads ran from /proc/PID/task/*/schedstat) and wake-ups (voluntary +
#             nonvoluntary context switches of its threads, /proc/PID/task/*/status)
#
#   LUMENVALE=build/release/Lumenvale/lumenvale bench/tray_startup_idle.sh [IDLE_SECONDS]
#
# It runs itself inside tests/session.sh (Xvfb, openbox, PulseAudio, a session bus)
# and needs g++ and the Qt 6 Widgets development files for the reference application.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
if [[ -z "${LUMENVALE_SESSION_INNER:-}" ]]; then
  exec "$root/tests/session.sh" bash "$root/bench/tray_startup_idle.sh" "$@"
fi
: "${LUMENVALE:=$root/build/release/Lumenvale/lumenvale}"
if [[ ! -x $LUMENVALE ]]; then
  echo "no lumenvale at $LUMENVALE: build it or set LUMENVALE" >&2
  exit 1
fi
idle_seconds=${1:-60}
launches=5
export LC_ALL=C

work=$(mktemp -d /tmp/lumenvale-bench-tray.XXXXXX)
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  rm -rf "$work"
}
trap cleanup EXIT
tray() { /usr/bin/python3 "$root/tests/e2e/lib/tray.py" "$@"; }

# Lumenvale with settings of its own, past its first launch (no welcome window).
export APP_STORE=$work/movies XDG_CONFIG_HOME=$work/config TMPDIR=$work/tmp
mkdir -p "$APP_STORE" "$XDG_CONFIG_HOME" "$TMPDIR"
printf '[General]\nwelcome.shown=true\n' >"$XDG_CONFIG_HOME/app.lumenvale.Lumenvale.test.conf"

cat >"$work/qt_tray.cpp" <<'CPP'
#include <QApplication>
#include <QMenu>
#include <QPixmap>
#include <QSystemTrayIcon>

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    QMenu menu;
    QObject::connect(menu.addAction(QStringLiteral("Quit")), &QAction::triggered, &app,
                     &QApplication::quit);
    QPixmap dot(22, 22);
    dot.fill(Qt::red);
    QSystemTrayIcon icon{QIcon(dot)};
    icon.setContextMenu(&menu);
    icon.show();
    return app.exec();
}
CPP
# shellcheck disable=SC2046 # pkg-config prints one flag a word
g++ -O2 -std=c++17 -fPIC $(pkg-config --cflags Qt6Widgets) "$work/qt_tray.cpp" \
  $(pkg-config --libs Qt6Widgets) -o "$work/qt_tray"

die() {
  echo "$*" >&2
  exit 1
}

tray watch --ready "$work/watcher.ready" >"$work/watcher.log" 2>&1 &
pids+=($!)
for _ in $(seq 200); do [[ -e $work/watcher.ready ]] && break; sleep 0.05; done
[[ -e $work/watcher.ready ]] || die "the tray watcher did not start: $(cat "$work/watcher.log")"

registered() { grep -c '^registered ' "$work/watcher.log" || true; }

# wait_for_registration COUNT: waits (30 s at most) until COUNT items have registered.
wait_for_registration() {
  for _ in $(seq 600); do
    [[ $(registered) -ge $1 ]] && return 0
    sleep 0.05
  done
  die "no tray item registered: $(cat "$work/watcher.log")"
}

# start_up QUIT_LABEL PROGRAM: one launch; sets $elapsed_ms, from exec to the program's
# registration. The program is then quit through its menu and waited for.
start_up() {
  local quit=$1 program=$2 before started line pid
  before=$(registered)
  started=$EPOCHREALTIME
  "$program" >>"$work/program.log" 2>&1 &
  pid=$!
  pids+=("$pid")
  wait_for_registration $((before + 1))
  line=$(grep '^registered ' "$work/watcher.log" | sed -n "$((before + 1))p")
  elapsed_ms=$(awk -v s="$started" -v r="$(awk '{ print $3 }' <<<"$line")" \
    'BEGIN { printf "%.0f", (r - s) * 1000 }')
  tray click "$quit"
  wait "$pid" || true
}

median() { tr ' ' '\n' | sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { if (b > 0) printf "%.1fx", a / b; else print "-" }'; }

echo "start-up: exec to tray item registered, median of $launches (ms)"
declare -A startup
for name in lumenvale qt_tray; do
  runs=()
  for _ in $(seq "$launches"); do
    if [[ $name == lumenvale ]]; then
      start_up "Quit Lumenvale" "$LUMENVALE"
    else
      start_up Quit "$work/qt_tray"
    fi
    runs+=("$elapsed_ms")
  done
  startup[$name]=$(echo "${runs[*]}" | median)
  printf '  %-18s %6s   runs: %s\n' "$name" "${startup[$name]}" "${runs[*]}"
done
printf '  %-18s %6s\n' "lumenvale/qt_tray" "$(ratio "${startup[lumenvale]}" "${startup[qt_tray]}")"

# --- idle: the three at once --------------------------------------------------------
declare -A pid_of
before=$(registered)
"$LUMENVALE" >>"$work/program.log" 2>&1 &
pid_of[lumenvale]=$!
"$work/qt_tray" >>"$work/program.log" 2>&1 &
pid_of[qt_tray]=$!
sleep 86400 &
pid_of[sleep]=$!
pids+=("${pid_of[@]}")
wait_for_registration $((before + 2))
sleep 5 # start-up's own work (first paint, D-Bus introspection by the host) settles

cpu_ticks() { sed 's/^.*) //' "/proc/$1/stat" | awk '{ print $12 + $13 }'; }
run_ns() {
  cat "/proc/$1"/task/*/schedstat 2>/dev/null | awk '{ n += $1 } END { printf "%.0f", n }'
}
wakeups() {
  cat "/proc/$1"/task/*/status 2>/dev/null |
    awk '/^(non)?voluntary_ctxt_switches:/ { n += $2 } END { print n + 0 }'
}
status_mib() { awk -v key="$2:" '$1 == key { printf "%.1f", $2 / 1024 }' "/proc/$1/status"; }
threads() { find "/proc/$1/task" -mindepth 1 -maxdepth 1 | wc -l; }

names=(lumenvale qt_tray sleep)
declare -A cpu0 run0 wake0
for name in "${names[@]}"; do
  cpu0[$name]=$(cpu_ticks "${pid_of[$name]}")
  run0[$name]=$(run_ns "${pid_of[$name]}")
  wake0[$name]=$(wakeups "${pid_of[$name]}")
done
sleep "$idle_seconds"
tick_ms=$((1000 / $(getconf CLK_TCK)))

row() { printf '  %-18s %9s %12s %8s %8s %10s %8s\n' "$@"; }
echo
echo "idle for $idle_seconds s, side by side"
row "" "RSS (MiB)" "peak (MiB)" "CPU ms" "ran ms" "wake-ups" threads
declare -A rss hwm cpu ran wake
for name in "${names[@]}"; do
  pid=${pid_of[$name]}
  rss[$name]=$(status_mib "$pid" VmRSS)
  hwm[$name]=$(status_mib "$pid" VmHWM)
  cpu[$name]=$((($(cpu_ticks "$pid") - ${cpu0[$name]}) * tick_ms))
  ran[$name]=$(awk -v a="$(run_ns "$pid")" -v b="${run0[$name]}" \
    'BEGIN { printf "%.1f", (a - b) / 1e6 }')
  wake[$name]=$(($(wakeups "$pid") - ${wake0[$name]}))
  row "$name" "${rss[$name]}" "${hwm[$name]}" "${cpu[$name]}" "${ran[$name]}" "${wake[$name]}" \
    "$(threads "$pid")"
done
versus() {
  local -n column=$1
  ratio "${column[lumenvale]}" "${column[qt_tray]}"
}
row "lumenvale/qt_tray" "$(versus rss)" "$(versus hwm)" "$(versus cpu)" "$(versus ran)" \
  "$(versus wake)" ""
echo "  (CPU ms in steps of $tick_ms ms; \"-\": nothing to divide by; threads that ended within"
echo "  the window are missing from ran ms and wake-ups)"
