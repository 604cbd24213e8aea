#!/usr/bin/env bash
# Kills the mergedb tool with SIGKILL during the commits of updates of a
# table of several MB, of each kind, and checks after `mergedb recover`
# that the table is the whole old one or the whole new one, every record of
# it. Each kill waits for the commit to begin (its backup appears) and then
# a random while. Where the kills land depends on timing; the verdict never
# does.
#
# Two updates take turns: one of every record, and one of the first record
# of a table whose other records are all alike. The second leaves the new
# table ending as the old one does, and a table cut short of its end reads
# whole: recover must still tell the cut table from the whole one.
#
# The commits' writes are slowed down by a library loaded in front of the C
# library, so that the kills land between them too.
#
#   crash_test.sh TOOL SLOW_WRITES_LIBRARY
set -u
tool=$1
slow_writes=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
failures=0
kills_per_kind=50
records=100000

fail() {
  echo "FAIL: $*"
  failures=$((failures + 1))
}

# Random records that repeat nothing: a number and random hexadecimal.
head -c $((records * 24)) /dev/urandom | od -An -tx8 -v -w24 |
  awk '{ printf "\"%d\",\"%s\",\"%s %s\"\r\n", NR, $1, $2, $3 }' >random.csv
# A first record, then records all alike, each 32 bytes in the file from a
# multiple of 32 on: a commit writes in pieces of 1 MiB, so a commit cut
# off ends between two records, and the cut table reads whole. The update
# keeps the first record's length.
alike() {
  awk -v n=$records -v first="$1" -v other="$2" \
    'BEGIN { printf "%s\r\n", first; for (i = 1; i < n; i++) printf "%s\r\n", other }'
}
alike first,xxxxxxxx,yyyyyyyyyyyyyyy alike,xxxxxxxx,yyyyyyyyyyyyyyy >alike.csv
alike first,aaaaaaaa,b alike,xxxxxxxx,yyyyyyyyyyy >alike-source.csv
"$tool" convert random.csv random.doc --kind tagged0 >/dev/null || fail "no tagged table"
"$tool" convert alike-source.csv alike.doc --kind tagged0 >/dev/null || fail "no tagged table"
[ $(($(stat -c %s alike.doc) % 32)) -eq 0 ] || fail "the tagged records do not stand at multiples of 32"

update_of() {
  case $1 in
  random) echo "update t.$2 --where 1=* --all --set 2=changed" ;;
  alike) echo "update t.$2 --where 1=first --set 2=changed1" ;;
  esac
}

# start_slow_update DATA KIND: the update of t.KIND with slowed writes, in
# the background (its process in pid), once its commit has begun or it
# has ended.
start_slow_update() {
  # shellcheck disable=SC2046
  LD_PRELOAD=$slow_writes "$tool" $(update_of "$1" "$2") >/dev/null 2>&1 &
  pid=$!
  until [ -e t.bk ] || ! kill -0 $pid 2>/dev/null; do sleep 0.002; done
}

for kind in csv doc; do
  for data in random alike; do
    cp $data.$kind t.$kind
    # shellcheck disable=SC2046
    "$tool" $(update_of $data $kind) >/dev/null || fail "$kind $data: the update failed"
    mv t.$kind $data.new.$kind
    ! cmp -s $data.$kind $data.new.$kind || fail "$kind $data: no old and new to tell apart"
  done
  # recover while a commit is writing changes nothing: the commit ends as if
  # no recover had been run.
  for ((i = 0; i < 3; i++)); do
    cp alike.$kind t.$kind
    start_slow_update alike $kind
    said=$("$tool" recover t.$kind 2>&1)
    wait $pid || fail "$kind: the update under a recover failed"
    case $said in
    *"a commit is writing the table now"* | "nothing to recover"*) ;;
    *) fail "$kind: recover during a commit said: $said" ;;
    esac
    cmp -s t.$kind alike.new.$kind && [ ! -e t.bk ] && [ ! -e t.$kind.partial ] ||
      fail "$kind: a recover during a commit changed its outcome: $(ls)"
    rm -f t.$kind
  done
  in_commit=0 kept_new=0
  for ((i = 0; i < kills_per_kind; i++)); do
    data=random
    ((i % 2)) && data=alike
    cp $data.$kind t.$kind
    start_slow_update $data $kind
    sleep "$(printf '0.%03d' $((RANDOM % 150)))"
    kill -9 $pid 2>/dev/null
    wait $pid 2>/dev/null
    [ -e t.bk ] && in_commit=$((in_commit + 1))
    "$tool" recover t.$kind >/dev/null 2>&1
    if cmp -s t.$kind $data.new.$kind; then
      kept_new=$((kept_new + 1))
    elif ! cmp -s t.$kind $data.$kind; then
      fail "$kind $data, kill $i: the table is neither the old nor the new one: $(ls)"
      break
    fi
    [ ! -e t.bk ] || fail "$kind $data, kill $i: recover left t.bk"
    rm -f t.$kind t.bk t.$kind.partial
  done
  echo "$kind: $in_commit of $kills_per_kind kills landed inside a commit; $kept_new tables were the new one"
  [ "$in_commit" -gt 0 ] || fail "$kind: no kill landed inside a commit"
done
[ "$failures" -eq 0 ]
