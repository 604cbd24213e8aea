#!/usr/bin/env bash
# Kills the mergedb tool with SIGKILL at random moments of updates of many
# records of a table of some MB, of each kind, and checks after
# `mergedb recover` that the table is the whole old one or the whole new
# one, every record of it. Where the kills land depends on timing; the
# verdict never does.
#
#   crash_test.sh TOOL
set -u
tool=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
failures=0
kills_per_kind=25
records=30000

fail() {
  echo "FAIL: $*"
  failures=$((failures + 1))
}

# The records of a table, as a digest; empty when it does not read whole.
digest() {
  local dumped
  dumped=$("$tool" dump --no-header "$1" 2>/dev/null) && printf '%s' "$dumped" | sha256sum
}

now() { date +%s%N; }

# Random records that repeat nothing: a number and random hexadecimal.
head -c $((records * 24)) /dev/urandom | od -An -tx8 -v -w24 |
  awk '{ printf "\"%d\",\"%s\",\"%s %s\"\r\n", NR, $1, $2, $3 }' >old.csv
"$tool" convert old.csv old.doc --kind tagged0 >/dev/null || fail "no tagged table"

for kind in csv doc; do
  update=(update "t.$kind" --where '1=*' --all --set '2=changed by the update')
  old=$(digest old.$kind)
  cp old.$kind t.$kind
  start=$(now)
  "$tool" "${update[@]}" >/dev/null || fail "$kind: the update failed"
  took=$((($(now) - start) / 1000000))
  new=$(digest t.$kind)
  [ -n "$old" ] && [ -n "$new" ] && [ "$old" != "$new" ] || fail "$kind: no old and new to tell apart"
  in_commit=0
  for ((i = 0; i < kills_per_kind; i++)); do
    cp old.$kind t.$kind
    "$tool" "${update[@]}" >/dev/null 2>&1 &
    pid=$!
    # Anywhere from the second half of the walks to past the end.
    sleep "$(awk -v t="$took" -v r="$RANDOM" 'BEGIN { printf "%.3f", t * (0.4 + 0.7 * r / 32767) / 1000 }')"
    kill -9 $pid 2>/dev/null
    wait $pid 2>/dev/null
    [ -e t.bk ] && in_commit=$((in_commit + 1))
    "$tool" recover t.$kind >/dev/null 2>&1
    now_digest=$(digest t.$kind)
    if [ "$now_digest" != "$old" ] && [ "$now_digest" != "$new" ]; then
      fail "$kind, kill $i: the table is neither the old nor the new one: $(ls)"
      break
    fi
    [ ! -e t.bk ] || fail "$kind, kill $i: recover left t.bk"
    rm -f t.$kind t.bk t.$kind.partial
  done
  echo "$kind: $in_commit of $kills_per_kind kills landed inside a commit (an update takes ${took} ms)"
done
[ "$failures" -eq 0 ]
