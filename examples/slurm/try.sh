#!/bin/sh
# Tests many scenarios on Slurm, on this machine alone: makes them, starts a cluster of one node,
# tests them in shards, kills one shard and repeats it, joins the results, ends the cluster.
#
#   ./try.sh [SCENARIOS [SHARDS]]        as root; 10000 scenarios in 20 shards when nothing is said
#
# One scenario is wrong on purpose, so the end is exit code 1. Needs gk on the path and, of Debian,
# slurm-wlm and munge.
set -eu

scenarios=${1:-10000}
shards=${2:-20}
here=$(cd "$(dirname "$0")" && pwd)

for command in gk slurmctld slurmd munged unshare ip; do
  command -v "$command" > /dev/null || { echo "$0: $command is not there" >&2; exit 2; }
done
[ "$(id -u)" = 0 ] || { echo "$0: only root can start Slurm's daemons" >&2; exit 2; }
if [ "${GK_SLURM_INSIDE:-}" = "" ]; then
  # Processes, mounts and a network of its own: whatever is left of it ends with the shell.
  GK_SLURM_INSIDE=yes exec unshare --fork --pid --mount --mount-proc --net "$0" "$scenarios" "$shards"
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

echo "== a cluster of one node"
ip link set lo up
# With 127.0.0.1 as its only address a machine finds no other by name.
ip addr add 192.0.2.1/32 dev lo
mount -t tmpfs tmpfs /run
mkdir -p /run/munge /run/slurm "$work/state" "$work/spool" "$work/key"
chown munge /run/munge "$work/key"
chown slurm "$work/state"
chmod 755 "$work"
su -s /bin/sh munge -c "mungekey --create --keyfile '$work/key/munge.key'"
su -s /bin/sh munge -c "munged --key-file='$work/key/munge.key' --log-file='$work/key/munged.log' \
  --pid-file='$work/key/munged.pid' --seed-file='$work/key/munged.seed'"
sed "s|@WORK@|$work|g; s|@CPUS@|$(nproc)|" "$here/slurm.conf" > "$work/slurm.conf"
export SLURM_CONF="$work/slurm.conf"
slurmctld
slurmd -N gknode
tries=0
until [ "$(sinfo --noheader --format %T 2> /dev/null)" = idle ]; do
  tries=$((tries + 1))
  [ "$tries" -lt 60 ] || { cat "$work"/*.log >&2; echo "$0: the node does not come up" >&2; exit 2; }
  sleep 0.5
done
sinfo

echo "== $scenarios scenarios, the last of which is wrong"
mkdir "$work/checks" "$work/results"
awk -v count="$scenarios" -v folder="$work/checks" 'BEGIN {
  key = "Device/SubDeviceList/Head/Touch/Front/Sensor/Value"
  for (i = 1; i <= count; ++i) {
    file = sprintf("%s/touch-%05d.jsonl", folder, i)
    at = 0.1 + (i % 40) / 50
    value = i == count ? "2.0" : "1.0"
    printf "{\"t\": %.2f, \"set\": {\"%s\": 1.0}}\n", at, key > file
    printf "{\"t\": %.2f, \"expect\": {\"event\": \"FrontTactilTouched\", \"value\": %s, \"within\": 0.1}}\n", at, value > file
    printf "{\"t\": 1.0, \"end\": true}\n" > file
    close(file)
  }
}'

# A shard writes into a file that appears when it is whole: one that was killed leaves none.
cat > "$work/shard.sh" <<END
#!/bin/sh
# A failed test is no reason for Slurm to call the shard failed: merge tells it.
cd "$work"
shard=\$((SLURM_ARRAY_TASK_ID + 1))
gk test checks --shard \$shard/$shards --jobs 1 --json > results/\$shard.part 2> results/\$shard.log
code=\$?
[ \$code -le 1 ] && mv results/\$shard.part results/\$shard.results
exit \$((code > 1))
END
chmod +x "$work/shard.sh"

submit() {
  sbatch --parsable --output=/dev/null --array="$1" "$work/shard.sh"
}
finished() {
  while [ -n "$(squeue --noheader --job "$1" 2> /dev/null)" ]; do
    sleep 0.2
  done
}

echo "== $shards shards, one of which is killed"
start=$(date +%s)
killed=$((shards / 2))
job=$(submit "0-$((shards - 1))")
scancel "${job}_$killed"
finished "$job"
echo "$(ls "$work/results" | grep -c 'results$') of $shards shards after $(($(date +%s) - start)) s"

echo "== what is missing is not overlooked"
cd "$work/results"
gk test merge ./*.results && { echo "$0: a missing shard was overlooked" >&2; exit 2; }

echo "== only that shard again"
finished "$(submit "$killed")"
code=0
gk test merge ./*.results --junit "$work/results.xml" || code=$?
echo "== exit code $code, $(grep -c '<testcase' "$work/results.xml") tests in the JUnit file"
exit "$code"
