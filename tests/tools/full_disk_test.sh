#!/usr/bin/env bash
# The tool on a file system that is full: an insert, an update, a delete
# through the driver and a delete by rewrite each fail and say so, and leave
# the table byte for byte as it was; once there is room, the next insert
# reads back. The file system is a small tmpfs, which only root can mount;
# without one the test is skipped (exit 77).
#
#   full_disk_test.sh TOOL
set -u
tool=$1
if [ "$(id -u)" -ne 0 ]; then
  echo "skipped: mounting a small tmpfs needs root"
  exit 77
fi
disk=$(mktemp -d)
keep=$(mktemp -d)
if ! mount -t tmpfs -o size=512k tmpfs "$disk"; then
  echo "skipped: no tmpfs could be mounted"
  rmdir "$disk" "$keep"
  exit 77
fi
trap 'cd /; umount "$disk"; rm -rf "$disk" "$keep"' EXIT
cd "$disk" || exit 1
failures=0
fail() {
  echo "FAIL: $*"
  failures=$((failures + 1))
}

awk 'BEGIN { for (i = 1; i <= 3000; i++) printf "%d,name %d and some text\r\n", i, i }' >t.txt
cp t.txt "$keep/before"
dd if=/dev/zero of=fill bs=4k 2>/dev/null
# Each edit fails for want of room and changes nothing. The inserted record
# is longer than what a page of the file system has left.
long=$(printf 'x%.0s' {1..6000})
for edit in "insert t.txt 1=3001 2=$long" \
            "update t.txt --where 1=5 --set 2=changed" \
            "delete t.txt --where 1=7" \
            "delete t.txt --where 1=1*"; do
  # shellcheck disable=SC2086
  "$tool" $edit >"$keep/out" 2>"$keep/err"
  status=$?
  what=${edit:0:40}
  [ "$status" -eq 1 ] || fail "$what: status $status: $(cat "$keep/err")"
  cmp -s t.txt "$keep/before" || fail "$what: the table changed"
  [ ! -e t.bk ] || fail "$what: a backup was left"
  grep -q "could not be written" "$keep/err" || fail "$what: stderr was: $(cat "$keep/err")"
done
rm fill
"$tool" insert t.txt 1=3001 2=room >/dev/null 2>"$keep/err" || fail "insert with room: $(cat "$keep/err")"
printf '"3001","room"\r\n' >>"$keep/before"
cmp -s t.txt "$keep/before" || fail "the insert with room: $(tail -c 60 t.txt | od -c | head -4)"
[ "$("$tool" find t.txt 1=3001 2>/dev/null)" = "3001,room" ] || fail "the new record does not read back"
[ "$failures" -eq 0 ]
