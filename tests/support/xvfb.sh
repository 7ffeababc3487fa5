#!/usr/bin/env bash
# One X server for the window tests of a ctest run (a fixture):
#   xvfb.sh start DIR   starts Xvfb on a free display, writes ":N" to DIR/display
#   xvfb.sh stop DIR    stops the server that start left in DIR/pid
# Without Xvfb, start writes no display file and succeeds: the window tests
# then use $DISPLAY, or say that there is none and skip.
set -u
dir="$2"
mkdir -p "$dir"
case "$1" in
  start)
    rm -f "$dir/display" "$dir/pid"
    if ! command -v Xvfb >/dev/null; then
      echo "xvfb.sh: no Xvfb on this machine; window tests use \$DISPLAY or skip"
      exit 0
    fi
    rm -f "$dir/displayfd"
    mkfifo "$dir/displayfd"
    # The server ends by itself after an hour should the stop step never run.
    setsid timeout 3600 Xvfb -displayfd 3 -screen 0 1280x1024x24 -nolisten tcp -noreset \
      3>"$dir/displayfd" >"$dir/xvfb.log" 2>&1 </dev/null &
    echo $! >"$dir/pid"
    # Xvfb writes the number of its display once it accepts clients.
    if read -r -t 20 number <"$dir/displayfd" && [[ -n "$number" ]]; then
      echo ":$number" >"$dir/display"
      echo "xvfb.sh: display :$number"
      exit 0
    fi
    echo "xvfb.sh: Xvfb did not start:" >&2
    cat "$dir/xvfb.log" >&2
    exit 1
    ;;
  stop)
    if [[ -f "$dir/pid" ]]; then
      kill "$(cat "$dir/pid")" 2>/dev/null || true
      rm -f "$dir/pid" "$dir/display" "$dir/displayfd"
    fi
    exit 0
    ;;
esac
echo "usage: xvfb.sh start|stop DIR" >&2
exit 2
