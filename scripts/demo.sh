#!/usr/bin/env bash
# The main job from beginning to end: builds the programs, brings a module with two responders up, sends
# 1,000 test packets to each over loopback, takes everything down and checks every figure.
#   scripts/demo.sh
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

packets=1000
build=build/release
work=$(mktemp -d)
control= # process ID of twampctl while it runs
builder= # of the build

clean_up() {
  if [[ -n $control ]]; then
    kill -KILL "$control" 2>/dev/null || true
    wait "$control" 2>/dev/null || true
  fi
  [[ -z $builder ]] || kill "$builder" 2>/dev/null || true # it ends its compilers, too
  rm -rf "$work"
}
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

section() { printf '\n== %s\n' "$1"; }

fail() {
  printf 'demo: %s\n' "$1" >&2
  exit 1
}

# Wait up to 10 seconds for a command to succeed.
wait_for() {
  local tries
  for ((tries = 0; tries < 200; ++tries)); do
    ! "$@" || return 0
    sleep 0.05
  done
  return 1
}

is_over() { ! kill -0 "$1" 2>/dev/null; }

is_ready_or_over() { grep -q '^ready ' "$work/control" || is_over "$control"; }

# Run a command with its output in a file; print the output and leave the exit status in $status.
status=0
run_into() {
  local file=$1
  shift
  status=0
  "$@" >"$file" 2>&1 || status=$?
  cat "$file"
}

disagreements=0
check() { # WHAT EXPECTED FOUND
  if [[ $2 == "$3" ]]; then
    printf '  %-52s %s\n' "$1" "$3"
  else
    printf '  %-52s %s, but %s was expected\n' "$1" "${3:-nothing}" "$2"
    disagreements=$((disagreements + 1))
  fi
}

# Number after "LABEL: " in the section of twampctl's output that begins with a heading.
figure() { # HEADING LABEL
  awk -v heading="$1" -v label="$2: " '
    /^Statistics of / { inside = index($0, heading) == 1 }
    /^Tables:/ { inside = 0 }
    inside && index($0, label) == 1 { print substr($0, length(label) + 1) }
  ' "$work/control"
}

count_lines() { # PATTERN: twampctl's lines that match it
  grep -cE -- "$1" "$work/control" || true
}

# "sent", "received" or "valid" packets in the summary of a probe.
counted_by() { # PROBE-OUTPUT NAME
  sed -nE "/^sent /s/.*\<$2 ([0-9]+).*/\1/p" "$1"
}

probe() { # NUMBER ADDRESS; 1 ms apart
  run_into "$work/probe$1" "$build/apps/twamp-probe" "$2" --count "$packets" --interval 1
  probe_status[$1]=$status
}

# Build, and say every five seconds how far it is.
build_programs() {
  local steps result=0 next_line=$SECONDS
  cmake --build --preset release --target twampctl twamp-probe >"$work/build" 2>&1 &
  builder=$!
  while ! is_over "$builder"; do
    sleep 0.2
    if ((SECONDS >= next_line)); then
      steps=$(grep -oE '^\[[0-9]+/[0-9]+\]' "$work/build" | tail -n 1 || true)
      printf 'building %s\n' "$steps"
      next_line=$((SECONDS + 5))
    fi
  done
  wait "$builder" || result=$?
  builder=
  return "$result"
}

prepare() {
  section '1. Packages and build'
  scripts/install-packages.sh
  cmake --preset release >"$work/build" 2>&1 || { cat "$work/build"; fail 'the configuration failed'; }
  build_programs || { cat "$work/build"; fail 'the build failed'; }
  echo "built: $build/apps/twampctl, $build/apps/twamp-probe"
  # The file is missing where the kernel has no IPv6.
  grep -qs '^00000000000000000000000000000001 ' /proc/net/if_inet6 ||
    fail 'there is no IPv6 loopback address (::1) on this machine; the demo needs it'
}

bring_up() {
  section '2. The control application brings the module up'
  local command=("$build/apps/twampctl" run --listen 127.0.0.1:0 --listen '[::1]:0' --tables --imc
    --log-level 15)
  echo "\$ ${command[*]}"
  : >"$work/control"
  "${command[@]}" >>"$work/control" 2>&1 &
  control=$!
  wait_for is_ready_or_over || fail 'twampctl was not ready within 10 seconds'
  cat "$work/control"
  grep -q '^ready ' "$work/control" || fail 'twampctl ended before it was ready'
  read -r _ ipv4 ipv6 < <(grep '^ready ' "$work/control")
}

take_down() {
  section '5. SIGINT: statistics, tables and the way down'
  local shown
  shown=$(wc -l <"$work/control")
  kill -INT "$control"
  wait_for is_over "$control" || fail 'twampctl did not end within 10 seconds of SIGINT'
  control_status=0
  wait "$control" || control_status=$?
  control=
  tail -n "+$((shown + 1))" "$work/control"
}

check_responder() { # NUMBER PROBE-OUTPUT
  local sent
  sent=$(counted_by "$2" sent)
  check "probe $1: sent" "$packets" "$sent"
  check "probe $1: valid replies" "$packets" "$(counted_by "$2" valid)"
  check "responder $1: received" "$sent" "$(figure "Statistics of responder $1," 'received packets')"
  check "responder $1: transmitted" "$sent" "$(figure "Statistics of responder $1," 'transmitted packets')"
  check "responder $1: active sessions" 1 "$(figure "Statistics of responder $1," 'Number of active sessions')"
}

check_all() {
  section '6. Do all figures agree?'
  local total
  check_responder 1 "$work/probe1"
  check_responder 2 "$work/probe2"
  total=$(($(counted_by "$work/probe1" sent) + $(counted_by "$work/probe2" sent)))
  check 'module: received' "$total" "$(figure 'Statistics of the module' 'Total received packets')"
  check 'module: transmitted' "$total" "$(figure 'Statistics of the module' 'Total transmitted packets')"
  check 'drop counters printed' 0 "$(count_lines 'Packets dropped')"
  check 'responder entries in the dump' 2 \
    "$(count_lines '^olv_twamp\.twamp_responder_lookup, 0x[0-9A-F]+, DEFINED$')"
  check 'bind entries in the dump' 2 "$(count_lines '^olv_twamp\.twamp_bind_to_next_module, ')"
  check 'call to the IPv4 module' 0x101 "$(sed -n 's/^call to the IPv4 module: tree function //p' "$work/control")"
  check 'call to the IPv6 module' 0x101 "$(sed -n 's/^call to the IPv6 module: tree function //p' "$work/control")"
  check 'unbinds logged' 2 "$(count_lines 'Custom Un Bind Successfully done\.')"
  check 'left behind' \
    '0 blocks, 0 responder IDs, 0 responder entries, 0 bind entries, 0 patterns, 0 violations' \
    "$(sed -n 's/^left behind: //p' "$work/control")"
  check 'exit status of twampctl' 0 "$control_status"
  check 'exit status of probe 1' 0 "${probe_status[1]}"
  check 'exit status of probe 2' 0 "${probe_status[2]}"
}

probe_status=()
prepare
bring_up
section "3. Probe 1: $packets packets over IPv4"
probe 1 "$ipv4"
section "4. Probe 2: $packets packets over IPv6"
probe 2 "$ipv6"
take_down
check_all

section 'Verdict'
if ((disagreements != 0)); then
  fail "$disagreements figure(s) disagree, see above"
fi
echo 'Good: every packet was reflected once and counted once, and nothing was left behind.'
