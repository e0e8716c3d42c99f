#!/bin/sh
# failing_disk_test.sh SERVER: a volume on a disk that fails while it is mounted. The disk is a file of nbdfuse
# over nbdkit, whose error filter makes reads or writes fail as long as a trigger file exists. The client must get
# the error, and right data again once the disk works. Exit code 77: this machine has no FUSE.
set -eu
server=$1
name=$(basename "$0")
work=$(mktemp -d)
fuse_pid=
server_pid=

skip() {
    echo "$name: SKIPPED, $*" >&2
    exit 77
}

fail() {
    echo "$name: $*" >&2
    exit 1
}

clean_up() {
    [ -z "$server_pid" ] || kill "$server_pid" 2>/dev/null || true
    [ -z "$fuse_pid" ] || kill "$fuse_pid" 2>/dev/null || true
    [ -z "$fuse_pid" ] || wait "$fuse_pid" 2>/dev/null || true
    rm -rf "$work"
}
trap clean_up EXIT

await() {
    tries=0
    while ! [ -s "$1" ]; do
        tries=$((tries + 1))
        [ $tries -lt 200 ] || return 1
        sleep 0.05
    done
}

# use COMMAND ...: what qemu-io says to a few commands over one connection.
use() {
    set -- "$@" -c flush
    timeout 60 qemu-io -f raw "$@" "$uri" 2>&1 || true
}

for tool in nbdfuse nbdkit qemu-io; do
    command -v $tool >/dev/null || skip "no $tool"
done
[ -e /dev/fuse ] || skip "no FUSE on this machine"
truncate -s 8M "$work/disk.raw"
mkdir "$work/mount"
nbdfuse "$work/mount" [ nbdkit --exit-with-parent --filter=error file "$work/disk.raw" \
    error-pread=EIO error-pread-rate=100% error-pread-file="$work/reads_fail" \
    error-pwrite=EIO error-pwrite-rate=100% error-pwrite-file="$work/writes_fail" ] >"$work/fuse.log" 2>&1 &
fuse_pid=$!
await "$work/mount/nbd" || skip "cannot mount by FUSE: $(cat "$work/fuse.log")"

key=$(printf '%064d' 7)
"$server" "$work/mount/nbd" 10 "$key" >"$work/uri" 2>"$work/server.log" &
server_pid=$!
await "$work/uri" || fail "the server does not start: $(cat "$work/server.log")"
uri=$(cat "$work/uri")

use -c 'write -P 0x11 0 1M' >"$work/log"
grep -q 'wrote 1048576/1048576' "$work/log" || fail "the first write failed: $(cat "$work/log")"

touch "$work/writes_fail"
use -c 'write -P 0x22 64k 64k' -c 'write -z 256k 64k' -c 'read -P 0x11 512k 64k' >"$work/log"
[ "$(grep -c 'failed: Input/output error' "$work/log")" = 2 ] || fail "writes did not fail: $(cat "$work/log")"
grep -q 'read 65536/65536' "$work/log" || fail "a good read did not go on: $(cat "$work/log")"
rm "$work/writes_fail"

touch "$work/reads_fail"
# Offsets never read before, since the system may remember the others.
use -c 'read 4M 64k' -c 'read 5M 512' -c 'write -P 0x33 6M 64k' >"$work/log"
[ "$(grep -c 'failed: Input/output error' "$work/log")" = 2 ] || fail "reads did not fail: $(cat "$work/log")"
grep -q 'wrote 65536/65536' "$work/log" || fail "a good write did not go on: $(cat "$work/log")"
rm "$work/reads_fail"

use -c 'read -P 0x11 0 1M' -c 'read -P 0x33 6M 64k' -c 'write -P 0x44 64k 64k' -c 'read -P 0x44 64k 64k' \
    -c 'read -P 0x11 128k 128k' >"$work/log"
[ "$(grep -c 'read .* bytes at offset' "$work/log")" = 4 ] || fail "the disk works again: $(cat "$work/log")"
! grep -qi 'failed\|error' "$work/log" || fail "an error stayed behind: $(cat "$work/log")"

kill -TERM "$server_pid"
pid=$server_pid
server_pid=
wait "$pid" || fail "the server ended with code $?: $(cat "$work/server.log")"
