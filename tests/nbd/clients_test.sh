#!/bin/sh
# clients_test.sh SERVER: serves a fresh volume of each cipher with the native server and lets nbdcopy and qemu-io use
# it. What they wrote must come back equal, from a second start of the server too, and must not stand in the data file
# in the clear. Exit code 77: a client is missing.
set -eu
server=$1
name=$(basename "$0")
work=$(mktemp -d)
server_pid=

fail() {
    echo "$name: cipher $cipher: $*" >&2
    exit 1
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
    nbdcopy "$@" "$uri" "$work/back" || fail "cannot read back"
    cmp "$work/back" "$work/content" || fail "read back differs"
}

use_nbdcopy() {
    nbdcopy --synchronous --allocated "$work/content" "$uri"
    nbdcopy --connections=4 --requests=64 --flush "$work/content" "$uri"
    check_contents --connections=1 --request-size=33554432
}

use_qemu_io() {
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

trap 'stop_server || true; rm -rf "$work"' EXIT
trap 'exit 1' INT TERM
for client in nbdcopy qemu-io; do
    command -v $client >/dev/null || { echo "$name: SKIPPED, $client is not installed" >&2 && exit 77; }
done
head -c 32 /dev/urandom | od -An -tx1 | tr -d ' \n' >"$work/key"
for cipher in 0 6 10; do
    rm -f "$work/volume.raw"
    truncate -s 8388608 "$work/volume.raw"
    yes 'a line of plain text that is easy to find in a file' | head -c 4194304 >"$work/content"
    head -c 4194304 /dev/urandom >>"$work/content"
    start_server
    use_nbdcopy
    use_qemu_io
    stop_server
    start_server
    check_contents
    stop_server
    if [ "$cipher" != 0 ] && grep -q 'easy to find' "$work/volume.raw"; then
        fail "plain text in the data file"
    fi
done
