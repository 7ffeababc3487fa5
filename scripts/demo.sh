#!/usr/bin/env bash
# The Veltrane tour: starts veltrane-sim on free loopback ports, talks to it
# with the veltrane command over SOAP, over NW RFC (our libsapnwrfc.so) and
# over classic RFC (our librfcum.so), and stops it again (also when a step
# fails).
#
#   scripts/demo.sh BUILD_DIR     (BUILD_DIR holds cli/veltrane, sim/veltrane-sim
#                                  lib/veltrane/nwrfcsdk/libsapnwrfc.so and
#                                  lib/veltrane/rfcsdk/librfcum.so)
set -euo pipefail

if [[ $# -ne 1 ]]; then
  echo "usage: scripts/demo.sh BUILD_DIR" >&2
  exit 2
fi
BUILD="$(cd "$1" && pwd)"
VELTRANE_BIN="$BUILD/cli/veltrane"
SIM_BIN="$BUILD/sim/veltrane-sim"
for program in "$VELTRANE_BIN" "$SIM_BIN"; do
  if [[ ! -x "$program" ]]; then
    echo "demo: $program is missing; build first" >&2
    exit 2
  fi
done

WORK="$(mktemp -d "${TMPDIR:-/tmp}/veltrane-demo.XXXXXX")"
SIM_PID=""
SERVE_PID=""

stop_serve() {
  if [[ -n "$SERVE_PID" ]] && kill -0 "$SERVE_PID" 2>/dev/null; then
    kill -TERM "$SERVE_PID" 2>/dev/null || true
    wait "$SERVE_PID" || true
  fi
  SERVE_PID=""
}
stop_sim() {
  local status=0
  if [[ -n "$SIM_PID" ]] && kill -0 "$SIM_PID" 2>/dev/null; then
    kill -TERM "$SIM_PID" 2>/dev/null || true
    wait "$SIM_PID" || status=$?
  fi
  SIM_PID=""
  return "$status"
}
cleanup() {
  stop_serve
  stop_sim || true
  rm -rf "$WORK"
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

heading() {
  if [[ -t 1 ]]; then
    printf '\n\033[1m== %s\033[0m\n' "$1"
  else
    printf '\n== %s\n' "$1"
  fi
}
# An argument as a user would type it in the shell.
quote() {
  local arg="$1"
  if [[ "$arg" =~ ^[A-Za-z0-9_./:=,@+%-]+$ ]]; then
    printf '%s' "$arg"
  elif [[ "$arg" != *"'"* ]]; then
    printf "'%s'" "$arg"
  else
    arg="${arg//\\/\\\\}"
    arg="${arg//\"/\\\"}"
    arg="${arg//\$/\\\$}"
    arg="${arg//\`/\\\`}"
    printf '"%s"' "$arg"
  fi
}
# The command line as typed.
show() {
  local shown=("veltrane")
  local arg
  for arg in "$@"; do shown+=("$(quote "$arg")"); done
  printf '$ %s\n' "${shown[*]}"
}
# Shows the command line, then runs it.
run() {
  show "$@"
  "$VELTRANE_BIN" "$@"
}
# Runs a command over SOAP and over NW RFC and shows the two answers next to
# each other.
side_by_side() {
  show "$@"
  show "${NWRFC[@]}" "$@"
  "$VELTRANE_BIN" "$@" >"$WORK/soap.out"
  "$VELTRANE_BIN" "${NWRFC[@]}" "$@" >"$WORK/nwrfc.out" 2>"$WORK/nwrfc.err"
  awk 'NR == FNR { soap[FNR] = $0; n = FNR; next }
       { nw[FNR] = $0; if (FNR > n) n = FNR }
       END { printf "%-40s %s\n", "-- over SOAP", "-- over NW RFC"
             for (i = 1; i <= n; ++i) printf "%-40s %s\n", soap[i], nw[i] }' "$WORK/soap.out" "$WORK/nwrfc.out"
}
# Runs a command over SOAP, then over NW RFC, and says whether they answered
# alike.
one_after_the_other() {
  show "$@"
  "$VELTRANE_BIN" "$@" | tee "$WORK/soap.out"
  show "${NWRFC[@]}" "$@"
  "$VELTRANE_BIN" "${NWRFC[@]}" "$@" | tee "$WORK/nwrfc.out"
  if cmp -s "$WORK/soap.out" "$WORK/nwrfc.out"; then
    echo "(the same answer over both back ends)"
  else
    echo "(the answers differ)"
  fi
}

heading "Starting the simulated ABAP system"
# The sim writes exactly one line to standard output: its ready line.
mkfifo "$WORK/ready"
"$SIM_BIN" --soap-port 0 --rfc-port 0 --host 127.0.0.1 --log-level warn >"$WORK/ready" 2>"$WORK/sim.log" &
SIM_PID=$!
# Kept open to the end, so that the sim never writes into a closed pipe.
exec 3<"$WORK/ready"
READY=""
if ! read -r -t 30 READY <&3 || [[ "$READY" != "veltrane-sim listening "* ]]; then
  echo "demo: veltrane-sim did not come up" >&2
  cat "$WORK/sim.log" >&2 || true
  exit 1
fi
URL="${READY#*soap=}"
URL="${URL%% *}"
PORT="${URL##*:}"
RFC="${READY#*rfc=}"
RFC="${RFC%% *}"
RFC_PORT="${RFC##*:}"
echo "$READY"
# The NW back end reaches the RFC front through the SDK's gateway service.
NWRFC=(--backend nwrfc --gwserv "$RFC_PORT")
# So does the classic back end; its SDK sends user and password in upper case
# unless TOUPPER=0 says otherwise, and the simulated passwords are case-sensitive.
CLASSIC=(--backend rfc --gwserv "$RFC_PORT" --connect "TOUPPER=0")

heading "Connecting (the connect sends RFC_PING)"
export VELTRANE_PASSWORD="Welcome1"
echo "\$ export VELTRANE_PASSWORD=Welcome1    # the password never goes on the command line"
run ping --host 127.0.0.1 --port "$PORT" --client 001 --user DEMO --lang EN --format table

export VELTRANE_HOST=127.0.0.1 VELTRANE_PORT="$PORT" VELTRANE_CLIENT=001 VELTRANE_USER=DEMO VELTRANE_LANG=EN
echo
echo "\$ export VELTRANE_HOST=127.0.0.1 VELTRANE_PORT=$PORT VELTRANE_CLIENT=001 VELTRANE_USER=DEMO VELTRANE_LANG=EN"

heading "Calling STFC_CONNECTION"
run call STFC_CONNECTION "REQUTEXT=Hello from Veltrane"

heading "The interface of BAPI_FLIGHT_GETLIST, imported from the dictionary, as XML"
run describe BAPI_FLIGHT_GETLIST

heading "Calling BAPI_FLIGHT_GETLIST with a filter"
run call BAPI_FLIGHT_GETLIST AIRLINE=LH MAX_ROWS=5 --format table

heading "Reading flights with the table reader"
run read-table SFLIGHT --fields CARRID,CONNID,FLDATE,PRICE,CURRENCY,SEATSMAX,SEATSOCC \
  --where "CARRID = 'LH'" --max 10 --format table

heading "Password state"
run check-password
run check-password --user EXPIRED

heading "Unicode support"
run check-unicode

heading "The NW RFC back end: our libsapnwrfc.so, loaded at the first connect"
run "${NWRFC[@]}" ping --format table

heading "The same calls over SOAP and over NW RFC"
side_by_side check-password --format table
side_by_side check-unicode --format table
one_after_the_other call BAPI_FLIGHT_GETLIST AIRLINE=LH MAX_ROWS=3 --format table
one_after_the_other read-table SCARR --fields CARRID,CARRNAME,CURRCODE --max 4 --format table

heading "The classic RFC back end: our librfcum.so, loaded at the first connect"
run "${CLASSIC[@]}" ping --format table
run "${CLASSIC[@]}" call BAPI_FLIGHT_GETLIST AIRLINE=LH MAX_ROWS=3 --format table
run "${CLASSIC[@]}" read-table SCARR --fields CARRID,CARRNAME,CURRCODE --max 4 --format table

heading "Transactional RFC over NW RFC: sent twice under one ID, run once"
KEY="DEMO-$$"
run "${NWRFC[@]}" call --trfc --send 2 --confirm Z_VSIM_COUNT_RUNS "KEY=$KEY" --format table
run "${NWRFC[@]}" call Z_VSIM_COUNT_RUNS "KEY=$KEY" READ_ONLY=X --format table

heading "Transactional RFC over classic RFC: the same, on the classic SDK"
KEY="CLASSIC-$$"
run "${CLASSIC[@]}" call --trfc --send 2 --confirm Z_VSIM_COUNT_RUNS "KEY=$KEY" --format table
run "${CLASSIC[@]}" call Z_VSIM_COUNT_RUNS "KEY=$KEY" READ_ONLY=X --format table

heading "A destination, and a batch of calls in one ABAP session"
# In a subshell: the settings come from the destination alone, and the
# sections after it keep theirs.
(
# The demo's own settings and cache, not the user's.
export XDG_CONFIG_HOME="$WORK/config" XDG_CACHE_HOME="$WORK/cache"
mkdir -p "$XDG_CONFIG_HOME/veltrane"
cat >"$XDG_CONFIG_HOME/veltrane/destinations.ini" <<INI
[sim]
backend = soap
host = 127.0.0.1
port = $PORT
client = 001
user = DEMO
stateful = yes
INI
echo "\$ cat \$XDG_CONFIG_HOME/veltrane/destinations.ini"
cat "$XDG_CONFIG_HOME/veltrane/destinations.ini"
unset VELTRANE_HOST VELTRANE_PORT VELTRANE_CLIENT VELTRANE_USER VELTRANE_LANG
run ping --dest sim --format table
BATCH='{"function":"Z_VSIM_COUNTER","parameters":{"STEP":5},"id":"first"}
{"function":"BAPI_FLIGHT_GETLIST","parameters":{"AIRLINE":"LH","MAX_ROWS":2},"only":["FLIGHT_LIST"]}
{"function":"Z_VSIM_COUNTER","parameters":{"STEP":1},"id":"again, in the same ABAP session"}
{"function":"Z_VSIM_NOTE_CREATE","parameters":{"KEY":"demo","TEXT":"a BAPI change, saved by the commit"}}
{"function":"BAPI_TRANSACTION_COMMIT","parameters":{"WAIT":"X"}}
{"function":"Z_VSIM_NOTE_GETLIST","parameters":{"KEY":"demo"},"id":"saved"}'
echo "\$ veltrane batch --dest sim <<'EOF'"
echo "$BATCH"
echo "EOF"
"$VELTRANE_BIN" batch --dest sim <<<"$BATCH"
)

heading "The system calls a registered server: veltrane serve answers with a command"
PROGRAM="VELTRANE.DEMO.$$"
ANSWER='python3 -c "import json,sys; d=json.load(sys.stdin); print(json.dumps({\"ECHOTEXT\": d[\"REQUTEXT\"].upper(), \"RESPTEXT\": \"answered by a shell command\"}))"'
show "${NWRFC[@]}" serve --program-id "$PROGRAM" "STFC_CONNECTION=$ANSWER" "&"
"$VELTRANE_BIN" "${NWRFC[@]}" serve --program-id "$PROGRAM" "STFC_CONNECTION=$ANSWER" 2>"$WORK/serve.err" &
SERVE_PID=$!
for _ in $(seq 1 100); do
  grep -q "registered at" "$WORK/serve.err" 2>/dev/null && break
  sleep 0.1
done
run "${NWRFC[@]}" call Z_VSIM_CALL_PROGRAM "PROGRAM_ID=$PROGRAM" FUNCTION=STFC_CONNECTION \
  'PARAMETERS={"REQUTEXT":"Hello from the ABAP side"}' --format table
stop_serve
echo "veltrane serve said:"
sed 's/^/  /' "$WORK/serve.err"

heading "Stopping the simulated ABAP system"
if stop_sim; then
  echo "veltrane-sim stopped"
else
  echo "demo: veltrane-sim ended with a failure" >&2
  exit 1
fi
