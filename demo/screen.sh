# A person at a screen, for who runs the launcher within a host: demo/inside and vm/inside source it. Before it is
# used, `facts` names a directory for what is seen, and `fail` ends the run with a message.

title="Ostrel Kernel Module Updater"
launcher=
exec {silence}<> <(:)  # a pipe that nothing is ever written to

# pause SECONDS: as sleep does, but without a process, whose start alone takes an emulated processor longer.
pause() { read -rt "$1" -u "$silence" || true; }

# wait_for SECONDS COMMAND...: until COMMAND succeeds; fails when the time is over.
wait_for() {
  local deadline=$((SECONDS + $1))
  shift
  until "$@" >/dev/null 2>&1; do
    [ "$SECONDS" -lt "$deadline" ] || return 1
    pause 0.1
  done
}

start_display() {
  # An index made before the product's icons came hides them.
  rm -f /usr/share/icons/hicolor/icon-theme.cache
  Xvfb -displayfd 3 -screen 0 800x600x24 -nolisten tcp -ac 3>"$facts/display" 2>"$facts/xvfb.log" &
  wait_for 120 test -s "$facts/display" || fail "no display"
  DISPLAY=:$(cat "$facts/display")
  export DISPLAY
  openbox >/dev/null 2>&1 &
  wait_for 120 wmctrl -m || fail "no window manager"
}

window() { xdotool search --onlyvisible --name "^${1:-$title}\$"; }

# start_launcher UID OUTPUT: in a session of its own and with an environment of its own, as a desktop would start it.
start_launcher() {
  local home
  home=$(getent passwd "$1" | cut -d: -f6)
  setsid --wait setpriv --reuid "$1" --regid "$1" --init-groups \
    env -i HOME="$home" PATH="$PATH" DISPLAY="$DISPLAY" LANG=C.UTF-8 \
    ostrel-demo </dev/null >"$2" 2>&1 {silence}<&- &
  launcher=$!
}

launcher_ended() { ! kill -0 "$launcher"; }

# end_of_launcher SECONDS: waits for the launcher and prints its status, or "none" when it did not end.
end_of_launcher() {
  if wait_for "$1" launcher_ended; then
    wait "$launcher"
    echo $?
  else
    echo none
  fi
}

# log_name OUTPUT N: the log that the N-th process of a run wrote (`$` for the last), from the line on its standard
# error.
log_name() { sed -n 's/^Logging to //p' "$1" | sed -n "$2p"; }
