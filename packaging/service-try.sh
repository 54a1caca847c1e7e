#!/bin/sh
# Uses the installed service as its users do. Inside of a system that systemd has booted, as root.
# Prints what it does; its last line is "the service works" when all is well.
set -eu

key=Device/SubDeviceList/HeadYaw/Hardness/Actuator/Value

fail() {
  echo "service-try: $*"
  journalctl -u gksensors --no-pager -n 30
  exit 1
}
pid() {
  systemctl show gksensors -p MainPID --value
}
# Waits until something is so, for half a minute.
until_so() {
  tries=0
  until "$@" >/dev/null 2>&1; do
    tries=$((tries + 1))
    [ $tries -lt 300 ] || fail "never: $*"
    sleep 0.1
  done
}
restarted() {
  [ "$(pid)" != "$1" ] && systemctl is-active gksensors && gk get "$key"
}

echo "it starts, and is up when it says so"
systemctl start gksensors || fail "does not start"
until_so gk get "$key"
status=/proc/$(pid)/status
grep -q "^CapEff:.0*$" "$status" || fail "has a capability"
grep -q "^NoNewPrivs:.1" "$status" || fail "may get privileges"
[ "$(stat -c %U "/proc/$(pid)")" = gksensors ] || fail "runs as $(stat -c %U "/proc/$(pid)")"

echo "a loop that hangs is restarted"
hanging=$(pid)
kill -STOP "$hanging"
until_so restarted "$hanging"
systemctl show gksensors -p NRestarts | grep -qx NRestarts=1 || fail "was not restarted once"
journalctl -u gksensors --no-pager | grep -q "Watchdog timeout" || fail "not by the watchdog"

echo "a killed one, too"
killed=$(pid)
kill -KILL "$killed"
until_so restarted "$killed"

echo "a token, real time and a recording by the configuration; the journal has levels"
systemctl stop gksensors
sed -i 's,^#*token-file = .*,token-file = "/run/credentials/gksensors.service/token",; s/^#*realtime = .*/realtime = true/
  s/^#*record = .*/record = "try.mcap"/; s/^#*listen = .*/listen = "0.0.0.0:8090"/' /etc/gksensors/gk.conf
systemctl start gksensors || fail "does not start with another configuration"
systemctl show gksensors -p StatusText | grep -q 0.0.0.0:8090 || fail "listens elsewhere"
! gk get "$key" >/dev/null 2>&1 || fail "answers without the token"
if [ "$(prlimit --pid "$(pid)" --rtprio --output HARD --noheadings)" -ge 50 ]; then
  for task in "/proc/$(pid)"/task/*; do chrt -p "${task##*/}"; done | grep -q SCHED_FIFO || fail "no thread of real-time priority"
else
  echo "NOT TRIED: real time, for here systemd itself may not raise limits"
  until_so sh -c 'journalctl -u gksensors --no-pager -p warning | grep "no real-time priority"'
fi
systemctl stop gksensors
gk recording verify /var/lib/gksensors/try.mcap
systemctl show gksensors -p Result | grep -qx Result=success || fail "does not end in order"

echo "what is wrong is an error in the journal"
echo 'nosuch = 1' >>/etc/gksensors/gk.conf
! systemctl start gksensors 2>/dev/null || fail "starts with a wrong configuration"
journalctl -u gksensors --no-pager -p err | grep "gk.conf" || fail "no error in the journal"
echo "the service works"
