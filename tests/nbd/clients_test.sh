#!/bin/sh
# clients_test.sh SERVER CLIENT: serves a fresh volume of each cipher with the native server and lets one real NBD
# client use it. What the client wrote must come back equal, from a second start of the server too, and must not
# stand in the data file in the clear. Exit code 77: the client cannot be used on this machine.
set -eu
server=$1
client=$2
name=$(basename "$0")
work=$(mktemp -d)
server_pid=
fuse_pid=

fail() {
    echo "$name: cipher $cipher, $client: $*" >&2
    exit 1
}

skip() {
    echo "$name: SKIPPED, $*" >&2
    exit 77
}

clean_up() {
    [ -z "$fuse_pid" ] || kill "$fuse_pid" 2>/dev/null || true
    stop_server || true
    rm -rf "$work"
}

start_server() {
    rm -f "$work/uri"
    "$server" "$work/volume.raw" "$cipher" "@$work/key" >"$work/uri" 2>"$work/server.log" &
    server_pid=$!
    tries=0
    while [ ! -s "$work/uri" ]; do
        kill -0 "$server_pid" 2>/dev/null || fail "the server ended: $(cat "$work/server.log")"
        tries=$((tries + 1))
        [ $tries -lt 200 ] || fail "the server does not start"
        sleep 0.05
    done
    uri=$(cat "$work/uri")
}

# The server must end well: a sanitizer's finding makes its exit code non-zero.
stop_server() {
    [ -n "$server_pid" ] || return 0
    kill -TERM "$server_pid" 2>/dev/null || true
    pid=$server_pid
    server_pid=
    wait "$pid" || fail "the server ended with code $?: $(cat "$work/server.log")"
}

check_contents() {
    nbdcopy "$uri" "$work/back" || fail "cannot read back"
    cmp "$work/back" "$work/content" || fail "read back differs"
}

use_nbdinfo() {
    nbdinfo "$uri" >"$work/info"
    for fact in 'export-size: 8388608' 'can_flush: true' 'can_fua: true' 'can_zero: true' 'can_trim: false' \
        'can_multi_conn: true' 'block_size_minimum: 512' 'block_size_preferred: 4096' \
        'block_size_maximum: 33554432' 'is_read_only: false'; do
        grep -q "$fact" "$work/info" || fail "no '$fact' in: $(cat "$work/info")"
    done
    if nbdinfo --list "${uri%/*}" >/dev/null 2>&1; then
        fail "lists its exports"
    fi
    if nbdinfo "${uri%?}" >/dev/null 2>&1; then
        fail "serves another name"
    fi
    nbdcopy "$work/content" "$uri"
}

use_nbdcopy() {
    nbdcopy --connections=4 --requests=64 --flush "$work/content" "$uri"
    nbdcopy --connections=1 --request-size=33554432 "$uri" "$work/back"
    cmp "$work/back" "$work/content" || fail "one connection reads something else"
    nbdcopy --synchronous --allocated "$work/content" "$uri"
}

use_qemu_io() {
    nbdcopy "$work/content" "$uri"
    qemu-io -f raw -c 'write -P 7 1000 3000' -c 'read -P 7 1000 3000' -c 'write -z 513 70000' \
        -c 'read -P 0 513 70000' -c 'write -f -P 9 4m 3m' -c 'read -P 9 4m 3m' -c 'aio_write -P 3 100k 300k' \
        -c 'aio_write -P 4 500k 300k' -c 'aio_flush' -c 'flush' -c 'read -P 3 100k 300k' "$uri" >"$work/io"
    if grep -qi 'fail\|error' "$work/io"; then
        fail "$(cat "$work/io")"
    fi
    # The same on a plain file says what must stand in the volume now.
    qemu-io -f raw -c 'write -P 7 1000 3000' -c 'write -z 513 70000' -c 'write -P 9 4m 3m' \
        -c 'write -P 3 100k 300k' -c 'write -P 4 500k 300k' "$work/content" >/dev/null
}

use_nbdfuse() {
    mkdir -p "$work/mnt"
    nbdfuse "$work/mnt" "$uri" &
    fuse_pid=$!
    tries=0
    while [ ! -f "$work/mnt/nbd" ]; do
        kill -0 "$fuse_pid" 2>/dev/null || fail "nbdfuse ended"
        tries=$((tries + 1))
        [ $tries -lt 100 ] || fail "nbdfuse does not mount"
        sleep 0.05
    done
    dd if="$work/content" of="$work/mnt/nbd" bs=100k conv=notrunc,fsync 2>/dev/null
    cmp "$work/mnt/nbd" "$work/content" || fail "the mounted file differs"
    fusermount3 -u "$work/mnt" 2>/dev/null || fusermount -u "$work/mnt"
    wait "$fuse_pid" || fail "nbdfuse ended with code $?"
    fuse_pid=
}

trap clean_up EXIT
trap 'exit 1' INT TERM
command -v "$client" >/dev/null || skip "$client is not installed"
command -v nbdcopy >/dev/null || skip "nbdcopy is not installed"
if [ "$client" = nbdfuse ]; then
    if ! [ -r /dev/fuse ] || ! [ -w /dev/fuse ]; then
        skip "/dev/fuse cannot be used"
    fi
    command -v fusermount3 >/dev/null || command -v fusermount >/dev/null || skip "no fusermount"
fi
head -c 32 /dev/urandom | od -An -tx1 | tr -d ' \n' >"$work/key"
for cipher in 0 6 10; do
    rm -f "$work/volume.raw"
    truncate -s 8388608 "$work/volume.raw"
    yes 'a line of plain text that is easy to find in a file' | head -c 4194304 >"$work/content"
    head -c 4194304 /dev/urandom >>"$work/content"
    start_server
    case $client in
    qemu-io) use_qemu_io ;;
    *) "use_$client" ;;
    esac
    check_contents
    stop_server
    start_server
    check_contents
    stop_server
    if [ "$cipher" != 0 ] && grep -q 'easy to find' "$work/volume.raw"; then
        fail "plain text in the data file"
    fi
done
echo "$name: $client works with each cipher"
