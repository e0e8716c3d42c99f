#!/bin/sh
# failing_disk_test.sh SERVER: a volume on a disk that fails a flush while it is mounted. The disk is a file of
# nbdfuse over nbdkit, which fails flushes as long as a file of that name exists. The client must get the error, and
# no later flush may succeed. Exit code 77: this machine has no FUSE.
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
    echo "$name: $*: $(cat "$work/log" "$work/server.log")" >&2
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

# expect FAILURES SUCCESSES COMMAND ...: over one connection, so many commands of qemu-io fail by an error of the
# disk, so many transfer what they should, and nothing else goes wrong.
expect() {
    failures=$1
    successes=$2
    shift 2
    timeout 60 qemu-io -f raw -t writeback "$@" "$(grep ^nbd: "$work/uri")" >"$work/log" 2>&1 || true
    [ "$(grep -c 'Input/output error' "$work/log")" = "$failures" ] || fail "not $failures failures"
    [ "$(grep -c 'bytes at offset' "$work/log")" = "$successes" ] || fail "not $successes transfers"
    ! grep -q 'Pattern verification failed' "$work/log" || fail "wrong data"
}

for tool in nbdfuse nbdkit qemu-io; do
    command -v $tool >/dev/null || skip "no $tool"
done
[ -e /dev/fuse ] || skip "no FUSE on this machine"
cd "$work"
truncate -s 8M disk
mkdir mount
nbdfuse mount [ nbdkit --exit-with-parent eval get_size='echo 8M' can_write='exit 0' can_flush='exit 0' \
    pread="dd if='$work/disk' skip=\$4 count=\$3 iflag=skip_bytes,count_bytes status=none" \
    pwrite="dd of='$work/disk' seek=\$4 oflag=seek_bytes conv=notrunc status=none" \
    flush="[ ! -e '$work/flushes_fail' ] || { echo EIO >&2; exit 1; }" ] >fuse.log 2>&1 &
fuse_pid=$!
await mount/nbd || skip "cannot mount by FUSE: $(cat fuse.log)"

"$server" mount/nbd 10 "$(printf '%064d' 7)" >uri 2>server.log &
server_pid=$!
await uri || fail "the server does not start"
expect 0 1 -c 'write -f -P 0x11 0 1M'

# What a failed flush has lost, no later one brings back.
touch flushes_fail
expect 1 1 -c 'write -f -P 0x55 0 4k' -c 'write -P 0x66 4k 4k'
rm flushes_fail
expect 1 2 -c 'read -P 0x55 0 4k' -c 'read -P 0x66 4k 4k' -c 'write -f 8k 4k'

kill -TERM "$server_pid"
pid=$server_pid
server_pid=
! wait "$pid" || fail "the server does not tell that the last flush has failed"
grep -q 'cannot flush' server.log || fail "the server ended otherwise"
